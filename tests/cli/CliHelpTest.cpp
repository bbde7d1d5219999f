#include "common/TestSupport.h"

#include <QRegularExpression>

#include <gtest/gtest.h>

using testsupport::builtProgram;
using testsupport::run;

namespace {

struct Listed {
    QString name;
    QString usage;
};

// The commands `velmora-cli --help` lists: "  NAME USAGE" lines, each followed by
// its summary indented further.
std::vector<Listed> listedCommands()
{
    QByteArray output;
    EXPECT_EQ(run(builtProgram("velmora-cli"), {"--help"}, &output), 0);
    std::vector<Listed> commands;
    static const QRegularExpression line(QStringLiteral("^  ([a-z0-9-]+)(?: (.*))?$"));
    for (const QString& text : QString::fromUtf8(output).split('\n')) {
        const auto match = line.match(text);
        if (match.hasMatch())
            commands.push_back({match.captured(1), match.captured(2)});
    }
    return commands;
}

}  // namespace

TEST(CliHelp, EveryListedCommandPrintsItsUsageAndSucceeds)
{
    const std::vector<Listed> commands = listedCommands();
    // The commands this build must have, at the least.
    QStringList names;
    for (const Listed& command : commands)
        names << command.name;
    for (const char* expected :
         {"convert", "export", "m3u", "playlists", "itunes-import", "tags", "rip", "clip", "flash", "burn", "drives", "erase"})
        EXPECT_TRUE(names.contains(expected)) << expected << " missing from: " << qPrintable(names.join(' '));

    for (const Listed& command : commands) {
        for (const char* flag : {"--help", "-h"}) {
            SCOPED_TRACE(qPrintable(command.name + ' ' + flag));
            QByteArray output;
            // A help flag wins over anything after it.
            EXPECT_EQ(run(builtProgram("velmora-cli"), {command.name, flag, "/no/such/file"}, &output), 0);
            const QString text = QString::fromUtf8(output);
            const QString usage = QStringLiteral("Usage: velmora-cli %1 %2").arg(command.name, command.usage).trimmed();
            EXPECT_TRUE(text.startsWith(usage + '\n')) << qPrintable(text);
            // The summary follows, so the help says what the command does.
            EXPECT_GT(text.size(), usage.size() + 10) << qPrintable(text);
        }
    }
}

TEST(CliHelp, AnUnknownCommandFailsAndPointsAtTheHelp)
{
    QByteArray output;
    EXPECT_EQ(run(builtProgram("velmora-cli"), {"no-such-command", "--help"}, &output), 2);
    EXPECT_TRUE(output.contains("velmora-cli --help")) << output.constData();
    EXPECT_EQ(run(builtProgram("velmora-cli"), {}, &output), 2);
    EXPECT_TRUE(output.startsWith("Usage: velmora-cli COMMAND")) << output.constData();
}
