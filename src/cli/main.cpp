#include "cli/CliCommand.h"

#include "platform/FileNames.h"

#include <QCoreApplication>

#include <algorithm>
#include <csignal>
#include <cstdio>

namespace {
std::vector<CliCommand>& registry()
{
    static std::vector<CliCommand> commands;
    return commands;
}

// "NAME USAGE", or the name alone for a command that takes nothing.
QString usageLine(const CliCommand& command)
{
    const QString name = QString::fromUtf8(command.name);
    return *command.usage ? name + ' ' + QString::fromUtf8(command.usage) : name;
}

void printHelp(FILE* out)
{
    std::fprintf(out, "Usage: velmora-cli COMMAND [OPTIONS] [ARGUMENTS]\n"
                      "  or:  velmora-cli --version | --help\n\n"
                      "Velmora's engine without windows, for scripts and tests.\n\nCommands:\n");
    auto commands = registry();
    std::sort(commands.begin(), commands.end(),
              [](const CliCommand& a, const CliCommand& b) { return qstrcmp(a.name, b.name) < 0; });
    for (const CliCommand& command : commands)
        std::fprintf(out, "  %s\n      %s\n", qPrintable(usageLine(command)), command.summary);
}
} // namespace

const std::vector<CliCommand>& cliCommands()
{
    return registry();
}

CliRegistration::CliRegistration(const CliCommand& command)
{
    registry().push_back(command);
}

int main(int argc, char** argv)
{
    // Writes to a closed pipe and past the file size limit fail with an error we
    // report, instead of ending the program half-way through a file.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Velmora"));
    QCoreApplication::setApplicationVersion(QStringLiteral(VELMORA_VERSION));
    // Text is UTF-8 everywhere in Velmora; a name in another encoding cannot be
    // opened again once it has been read as text, so it is refused by name.
    bool unreadable = false;
    for (int i = 1; i < argc; ++i) {
        if (!FileNames::isValidUtf8(QByteArray(argv[i]))) {
            std::fprintf(stderr, "velmora-cli: %s\n",
                         qPrintable(FileNames::unreadableNameMessage(FileNames::escaped(QByteArray(argv[i])))));
            unreadable = true;
        }
    }
    if (unreadable)
        return 1;
    QStringList arguments = app.arguments().mid(1);
    if (arguments.isEmpty()) {
        printHelp(stderr);
        return 2;
    }
    const QString first = arguments.takeFirst();
    if (first == QLatin1String("--version")) {
        std::printf("velmora-cli (Velmora) %s\n", VELMORA_VERSION);
        return 0;
    }
    if (first == QLatin1String("--help") || first == QLatin1String("-h") || first == QLatin1String("help")) {
        printHelp(stdout);
        return 0;
    }
    for (const CliCommand& command : registry()) {
        if (first != QLatin1String(command.name))
            continue;
        if (!arguments.isEmpty() && (arguments.first() == QLatin1String("--help") || arguments.first() == QLatin1String("-h"))) {
            std::printf("Usage: velmora-cli %s\n\n%s\n", qPrintable(usageLine(command)), command.summary);
            return 0;
        }
        return command.run(arguments);
    }
    std::fprintf(stderr, "velmora-cli: unknown command \"%s\" (see velmora-cli --help)\n", qPrintable(first));
    return 2;
}
