#include "disc/BurnCache.h"

#include "platform/AppPaths.h"

#include <QDir>
#include <QRegularExpression>

#include <cerrno>
#include <csignal>
#include <unistd.h>

std::unique_ptr<QTemporaryDir> BurnCache::make(const QString& prefix)
{
    AppPaths::makePrivateFolder(AppPaths::cacheDir());
    auto folder = std::make_unique<QTemporaryDir>(
        QStringLiteral("%1/%2-%3-XXXXXX").arg(AppPaths::cacheDir(), prefix).arg(::getpid()));
    return folder->isValid() ? std::move(folder) : nullptr;
}

void BurnCache::clearStale()
{
    static const QRegularExpression name(QStringLiteral("^(WAV|MP3)-(\\d+)-.{6}$"));
    const QDir cache(AppPaths::cacheDir());
    for (const QString& entry : cache.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        const QRegularExpressionMatch match = name.match(entry);
        if (!match.hasMatch())
            continue;
        const pid_t owner = pid_t(match.captured(2).toLongLong());
        if (owner != ::getpid() && ::kill(owner, 0) != 0 && errno == ESRCH)
            QDir(cache.filePath(entry)).removeRecursively();
    }
}
