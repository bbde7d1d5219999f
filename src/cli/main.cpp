#include "cli/CliCommand.h"

#include <QCoreApplication>

#include <algorithm>
#include <cstdio>

namespace {
std::vector<CliCommand>& registry()
{
    static std::vector<CliCommand> commands;
    return commands;
}

void printHelp(FILE* out)
{
    std::fprintf(out, "Usage: velmora-cli COMMAND [OPTIONS] [ARGUMENTS]\n"
                      "       velmora-cli --version | --help\n\n"
                      "Velmora's engine without windows, for scripts and tests.\n\nCommands:\n");
    auto commands = registry();
    std::sort(commands.begin(), commands.end(),
              [](const CliCommand& a, const CliCommand& b) { return qstrcmp(a.name, b.name) < 0; });
    for (const CliCommand& command : commands) {
        std::fprintf(out, "  %s %s\n      %s\n", command.name, command.usage, command.summary);
    }
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
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Velmora"));
    QCoreApplication::setApplicationVersion(QStringLiteral(VELMORA_VERSION));
    QStringList arguments = app.arguments().mid(1);
    if (arguments.isEmpty()) {
        printHelp(stderr);
        return 2;
    }
    const QString first = arguments.takeFirst();
    if (first == QLatin1String("--version")) {
        std::printf("Velmora %s\n", VELMORA_VERSION);
        return 0;
    }
    if (first == QLatin1String("--help") || first == QLatin1String("-h") || first == QLatin1String("help")) {
        printHelp(stdout);
        return 0;
    }
    for (const CliCommand& command : registry()) {
        if (first == QLatin1String(command.name))
            return command.run(arguments);
    }
    std::fprintf(stderr, "velmora-cli: unknown command \"%s\" (see velmora-cli --help)\n", qPrintable(first));
    return 2;
}
