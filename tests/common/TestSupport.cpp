#include "common/TestSupport.h"

#include "core/Defaults.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <cstdlib>
#include <memory>

namespace testsupport {

namespace {
std::unique_ptr<QTemporaryDir>& home()
{
    static std::unique_ptr<QTemporaryDir> dir;
    return dir;
}
} // namespace

void useFreshHome()
{
    home() = std::make_unique<QTemporaryDir>(QDir::tempPath() + "/velmora-test-XXXXXX");
    const QString root = home()->path();
    for (const char* sub : {".config", ".local/share", ".cache", "run", "Music"})
        QDir().mkpath(root + '/' + sub);
    QFile::setPermissions(root + "/run", QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    setenv("HOME", qPrintable(root), 1);
    setenv("XDG_CONFIG_HOME", qPrintable(root + "/.config"), 1);
    setenv("XDG_DATA_HOME", qPrintable(root + "/.local/share"), 1);
    setenv("XDG_CACHE_HOME", qPrintable(root + "/.cache"), 1);
    setenv("XDG_RUNTIME_DIR", qPrintable(root + "/run"), 1);
    setenv("XDG_MUSIC_DIR", qPrintable(root + "/Music"), 1);
    Defaults::standard().reload();
}

QString homeDir()
{
    return home() ? home()->path() : QString();
}

int run(const QString& program, const QStringList& arguments, QByteArray* output, int timeoutMs)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    if (!process.waitForStarted(10000))
        return -1;
    process.closeWriteChannel();
    if (!process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished();
        return -1;
    }
    if (output)
        *output = process.readAll();
    return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

Outcome runApart(const QString& program, const QStringList& arguments, int timeoutMs)
{
    QProcess process;
    process.start(program, arguments);
    Outcome outcome;
    if (!process.waitForStarted(10000))
        return outcome;
    if (!process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished();
        return outcome;
    }
    outcome.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    outcome.out = process.readAllStandardOutput();
    outcome.err = QString::fromUtf8(process.readAllStandardError());
    return outcome;
}

QString builtProgram(const QString& name)
{
    const QString inBin = QStringLiteral(VELMORA_TEST_BIN_DIR "/") + name;
    if (QFileInfo::exists(inBin))
        return inBin;
    return QStringLiteral(VELMORA_TEST_BIN_DIR "/../libexec/velmora/") + name;
}

bool writeFile(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

} // namespace testsupport
