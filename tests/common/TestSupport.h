#pragma once
#include <QByteArray>
#include <QString>
#include <QStringList>

namespace testsupport {

// Points HOME and the XDG folders at a new temporary folder and makes the
// settings store forget what it had read.
void useFreshHome();
QString homeDir();

// Runs a program (looked up on PATH) and returns its exit code; -1 when it
// could not start. Output goes to *output when given.
int run(const QString& program, const QStringList& arguments, QByteArray* output = nullptr,
        int timeoutMs = 120000);
// A program's run with its standard output and error kept apart. exitCode is -1
// when it did not start, did not end in time (it is killed) or did not end normally.
struct Outcome {
    int exitCode = -1;
    QByteArray out;
    QString err;
};
Outcome runApart(const QString& program, const QStringList& arguments, int timeoutMs = 120000);
// The path of a program built by this project (velmora-cli, tools).
QString builtProgram(const QString& name);

bool writeFile(const QString& path, const QByteArray& bytes);
QByteArray readFile(const QString& path);

} // namespace testsupport
