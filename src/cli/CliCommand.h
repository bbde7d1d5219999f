#pragma once
#include <QStringList>

#include <vector>

// A velmora-cli command. Each command lives in its own file and registers itself
// with a static CliRegistration, so `velmora-cli --help` lists every one.
struct CliCommand {
    const char* name;
    const char* usage;    // arguments after the command name
    const char* summary;  // one line for --help
    int (*run)(const QStringList& arguments);  // arguments after the command name; returns the exit code
};

const std::vector<CliCommand>& cliCommands();

struct CliRegistration {
    explicit CliRegistration(const CliCommand& command);
};
