#include "common/PlayerFixtures.h"

#include "common/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cstdlib>
#include <unistd.h>

namespace playerfixtures {

void useFakeAudio()
{
    setenv("MQP_AUDIO_SINK", "fakesink sync=true", 1);
    setenv("VELMORA_MPLAYER_AO", "null", 1);
}

QString makeSong(const QString& folder, const QString& name, double seconds, const QString& title,
                 const QString& artist, const QString& album, const QString& cover)
{
    QDir().mkpath(folder);
    const QString path = folder + '/' + name;
    const QString suffix = QFileInfo(path).suffix().toLower();
    const QString wav = suffix == QLatin1String("wav") ? path : path + QStringLiteral(".source.wav");
    if (testsupport::run("sox", {"-n", "-r", "44100", "-c", "2", "-b", "16", wav, "synth", QString::number(seconds),
                                 "sine", "440"}) != 0)
        return {};
    int status = 0;
    if (suffix == QLatin1String("mp3")) {
        QStringList arguments{"--quiet", "-b", "64"};
        if (!title.isEmpty())
            arguments << "--tt" << title;
        if (!artist.isEmpty())
            arguments << "--ta" << artist;
        if (!album.isEmpty())
            arguments << "--tl" << album;
        if (!cover.isEmpty())
            arguments << "--ti" << cover;
        status = testsupport::run("lame", arguments << wav << path);
    } else if (suffix == QLatin1String("ogg")) {
        QStringList arguments{"-Q", "-q", "0", "-o", path};
        if (!title.isEmpty())
            arguments << "-t" << title;
        if (!artist.isEmpty())
            arguments << "-a" << artist;
        if (!album.isEmpty())
            arguments << "-l" << album;
        status = testsupport::run("oggenc", arguments << wav);
    } else if (suffix == QLatin1String("m4a")) {
        status = testsupport::run("ffmpeg", {"-v", "error", "-y", "-i", wav, "-c:a", "aac", "-b:a", "64k", path});
        QStringList arguments{path};
        if (!title.isEmpty())
            arguments << "--title" << title;
        if (!artist.isEmpty())
            arguments << "--artist" << artist;
        if (!album.isEmpty())
            arguments << "--album" << album;
        if (!cover.isEmpty())
            arguments << "--artwork" << cover;
        if (status == 0 && arguments.size() > 1)
            status = testsupport::run("AtomicParsley", arguments << "--overWrite");
    }
    if (wav != path)
        QFile::remove(wav);
    return status == 0 && QFileInfo::exists(path) ? path : QString();
}

QString makeCorrupt(const QString& folder, const QString& name)
{
    const QString path = folder + '/' + name;
    QByteArray noise;
    for (int i = 0; i < 20000; ++i)
        noise.append(char((i * 7919) % 251));
    return testsupport::writeFile(path, noise) ? path : QString();
}

namespace {
QByteArray procFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}
}  // namespace

QList<pid_t> children()
{
    QList<pid_t> found;
    for (const QString& task : QDir(QStringLiteral("/proc/self/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        for (const QByteArray& pid : procFile("/proc/self/task/" + task + "/children").split(' ')) {
            if (!pid.trimmed().isEmpty())
                found << pid_t(pid.trimmed().toInt());
        }
    }
    return found;
}

QList<pid_t> zombies()
{
    QList<pid_t> found;
    for (pid_t pid : children()) {
        const QByteArray stat = procFile(QStringLiteral("/proc/%1/stat").arg(pid));
        const qsizetype close = stat.lastIndexOf(')');
        if (close > 0 && stat.mid(close + 2, 1) == "Z")
            found << pid;
    }
    return found;
}

QList<pid_t> processesMentioning(const QString& text)
{
    QList<pid_t> found;
    for (const QString& entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        bool number = false;
        const pid_t pid = pid_t(entry.toInt(&number));
        if (number && pid != getpid() &&
            procFile("/proc/" + entry + "/cmdline").replace('\0', ' ').contains(text.toUtf8()))
            found << pid;
    }
    return found;
}

pid_t childWith(const QString& text)
{
    for (pid_t pid : children()) {
        const QByteArray line = procFile(QStringLiteral("/proc/%1/cmdline").arg(pid)).replace('\0', ' ');
        if (line.contains(text.toUtf8()) && !zombies().contains(pid))
            return pid;
    }
    return -1;
}

}  // namespace playerfixtures
