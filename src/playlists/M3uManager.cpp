#include "playlists/M3uManager.h"

#include "core/Defaults.h"
#include "core/Job.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "platform/AppPaths.h"
#include "platform/SafeFile.h"
#include "playlists/PlaylistFiles.h"
#include "tags/Id3FrameLister.h"
#include "tags/MediaDuration.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cstdlib>

using namespace PlaylistFiles;

namespace {

constexpr char kPreserveOrderKey[] = "prefsPreserveOrderStored";

bool preserveOrder()
{
    return Defaults::standard().integerForKey(kPreserveOrderKey) != 0;
}

bool hasNoTitleReader(const QString& path)
{
    const QString extension = pathExtension(path).toUpper();
    return extension == QLatin1String("WMA") || extension == QLatin1String("FLAC");
}

// The text of the first frame with that identifier in id3info's listing: it
// starts two characters after the colon that follows the identifier.
std::optional<QString> firstFrameText(const QByteArray& listing, const QByteArray& frame)
{
    const QByteArray marker = "=== " + frame + ' ';
    for (const QByteArray& line : listing.split('\n')) {
        if (!line.startsWith(marker))
            continue;
        const qsizetype colon = line.indexOf(':', marker.size());
        if (colon < 0)
            continue;
        return QString::fromUtf8(line.mid(colon + 2));
    }
    return std::nullopt;
}

} // namespace

m3uManager::m3uManager(QObject* parent) : QObject(parent), random_([] { return ::random(); }) {}

m3uManager::~m3uManager()
{
    NotificationCenter::defaultCenter().removeObserver(this);
}

void m3uManager::awakeFromNib()
{
    QDir().mkpath(appFolder());
    QDir().mkpath(m3uFolder());
    NotificationCenter::defaultCenter().addObserver(this, VLM3UPlaylistNotification, [this](const Notification& n) {
        vlM3UPlaylistNotification(n.object.toMap());
    });
}

QString m3uManager::targetPathFor(const QString& playlistPath)
{
    return m3uFolder() + '/' + displayName(playlistPath) + QStringLiteral(".m3u");
}

QString m3uManager::getSongTime(const QString& path)
{
    if (!QFileInfo::exists(path))
        return QStringLiteral("0");
    // The media framework's play time, the same for every format.
    return QString::number(std::max(0, mediaDurationSeconds(path)));
}

std::optional<QString> m3uManager::getSongName(const QString& path)
{
    if (hasNoTitleReader(path))
        return std::nullopt;
    // Only ID3 titles count: other formats' tags are not asked for.
    const QByteArray listing = id3infoOutput(path);
    if (auto title = firstFrameText(listing, "TT2"))
        return title;
    return firstFrameText(listing, "TIT2");
}

QString m3uManager::copyPlaylistDict(const QVariantMap& group, const QString& basePath, const QString& root,
                                     int index, bool asMP3) const
{
    return copyPlaylistDict(group, basePath, root, index, asMP3, nullptr);
}

QString m3uManager::copyPlaylistDict(const QVariantMap& group, const QString& basePath, const QString& root, int index,
                                     bool asMP3, Progress* progress) const
{
    const bool numbered = preserveOrder();
    QString text;
    int counter = index;
    for (const QVariant& entry : group.value(QStringLiteral("Entries")).toList()) {
        if (progress && progress->job.isCancelled())
            return {};
        const QString prefix = numbered ? QString::asprintf("%03d", counter) : QString();
        ++counter;
        if (entry.typeId() == QMetaType::QVariantMap) {
            const QVariantMap subGroup = entry.toMap();
            const QString folder = prefix + lastPathComponent(subGroup.value(QStringLiteral("Group")).toString());
            text += copyPlaylistDict(subGroup, basePath, appendingPathComponent(root, folder), 0, asMP3, progress);
            continue;
        }
        const QString track = entry.toString();
        const QString title = getSongName(track).value_or(displayName(track));
        QString path = appendingPathComponent(appendingPathComponent(basePath, root), prefix + lastPathComponent(track));
        if (asMP3 && pathExtension(path).toLower() != QLatin1String("mp3"))
            path = replacingPathExtension(path, QStringLiteral("MP3"));
        text += QStringLiteral("#EXTINF:%1,%2\n%3\n").arg(getSongTime(track), title, path);
        if (progress) {
            ++progress->done;
            progress->job.setProgress(100.0 * progress->done / progress->total, progress->status);
        }
    }
    return text;
}

QString m3uManager::shuffleM3UPlaylist(const QString& text) const
{
    QStringList lines = text.split('\n');
    const qsizetype pairs = (lines.size() - 2) / 2;
    if (pairs < 2)
        return text;
    for (qsizetype i = 0; i < pairs; ++i) {
        qsizetype r;
        do {
            r = qsizetype(static_cast<unsigned long>(random_()) % static_cast<unsigned long>(pairs));
        } while (r == i);
        lines.swapItemsAt(1 + 2 * i, 1 + 2 * r);
        lines.swapItemsAt(2 + 2 * i, 2 + 2 * r);
    }
    QString result;
    for (const QString& line : lines)
        result += line + '\n';
    return result;
}

QString m3uManager::vlM3UPlaylistNotification(const QVariantMap& request)
{
    const QString playlistPath = request.value(QStringLiteral("path")).toString();
    const QString target = targetPathFor(playlistPath);
    const QString status = QStringLiteral(" Create .M3U for ") + lastPathComponent(playlistPath);
    emit statusChanged(status, 50, true);
    QString made;
    QString copy;
    const auto job = Job::create(QStringLiteral("Writing %1").arg(lastPathComponent(target)), [&](Job& job) {
        Progress progress{job, status};
        QStringList tracks;
        gatherLeaves(request.value(QStringLiteral("dictionary")).toMap(), tracks);
        progress.total = int(tracks.size());
        job.setProgress(0, status);
        QString error;
        made = writeRequest(request, progress, &error, &copy);
        if (job.isCancelled())
            return JobResult::cancelled(made.isEmpty() ? QStringList() : QStringList{made});
        if (!error.isEmpty())
            return JobResult::failed(error, made.isEmpty() ? QStringList() : QStringList{made});
        return JobResult::succeeded({made});
    });
    const bool ok = job->run().ok();
    emit statusChanged(QString(), 0, false);
    if (ok)
        emit written(playlistPath, copy.isEmpty() ? QStringList{made} : QStringList{made, copy});
    return made;
}

QString m3uManager::writeRequest(const QVariantMap& request, Progress& progress, QString* error, QString* copied) const
{
    const QString playlistPath = request.value(QStringLiteral("path")).toString();
    const QString name = displayName(playlistPath);
    const QString target = targetPathFor(playlistPath);

    QString basePath;
    const QString indexString = request.value(QStringLiteral("indexstring")).toString();
    if (preserveOrder() && !indexString.isEmpty())
        basePath = indexString + name;

    QString text = QStringLiteral("#EXTM3U\n") +
                   copyPlaylistDict(request.value(QStringLiteral("dictionary")).toMap(), basePath,
                                    request.value(QStringLiteral("prefsM3UPathPrefixStored")).toString(), 0,
                                    request.value(QStringLiteral("makemp3ifneeded")).toBool(), &progress);
    if (progress.job.isCancelled())
        return {};
    if (request.value(QStringLiteral("mShuffleM3UStored")).toInt() != 0)
        text = shuffleM3UPlaylist(text);

    QDir().mkpath(m3uFolder());
    const QByteArray bytes = text.toUtf8();
    if (!SafeFile::writeFile(target, bytes, error))
        return {};

    const QString exportFolder = request.value(QStringLiteral("prefsM3UExportFolderStored")).toString();
    if (exportFolder.isEmpty())
        return target;
    const QString folder = AppPaths::expandTilde(exportFolder);
    QDir().mkpath(folder);
    const QString copy = QDir::cleanPath(folder + '/' + lastPathComponent(target));
    const QFileInfo copyInfo(copy);
    if (copyInfo.absoluteFilePath() == QFileInfo(target).absoluteFilePath() ||
        (copyInfo.exists() && copyInfo.canonicalFilePath() == QFileInfo(target).canonicalFilePath()))
        return target;
    // The export folder may be shared: a link found there is never written through.
    if (copyInfo.isSymLink()) {
        *error = QStringLiteral("\u201c%1\u201d is a symbolic link; the copy was not written there.").arg(copy);
        return target;
    }
    if (SafeFile::writeFile(copy, bytes, error))
        *copied = copy;
    return target;
}
