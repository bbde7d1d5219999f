#include "playlists/M3uManager.h"

#include "core/Defaults.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "platform/AppPaths.h"
#include "playlists/PlaylistFiles.h"
#include "tags/TagFacade.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

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

struct TrackInfo {
    QString seconds;
    std::optional<QString> title;
};

// Length and title from one reading of the file.
TrackInfo readTrack(const QString& path)
{
    TrackInfo info{QStringLiteral("0"), std::nullopt};
    const auto record = getComments(path);
    if (!record)
        return info;
    info.seconds = QString::number(record->value(QStringLiteral("duration")).toString().toInt());
    const QString title = record->value(QStringLiteral("title")).toString();
    if (!title.isEmpty() && !hasNoTitleReader(path))
        info.title = title;
    return info;
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
    return readTrack(path).seconds;
}

std::optional<QString> m3uManager::getSongName(const QString& path)
{
    return readTrack(path).title;
}

QString m3uManager::copyPlaylistDict(const QVariantMap& group, const QString& basePath, const QString& root,
                                     int index, bool asMP3) const
{
    const bool numbered = preserveOrder();
    QString text;
    int counter = index;
    for (const QVariant& entry : group.value(QStringLiteral("Entries")).toList()) {
        const QString prefix = numbered ? QString::asprintf("%03d", counter) : QString();
        ++counter;
        if (entry.typeId() == QMetaType::QVariantMap) {
            const QVariantMap subGroup = entry.toMap();
            const QString folder = prefix + lastPathComponent(subGroup.value(QStringLiteral("Group")).toString());
            text += copyPlaylistDict(subGroup, basePath, appendingPathComponent(root, folder), 0, asMP3);
            continue;
        }
        const QString track = entry.toString();
        const TrackInfo info = readTrack(track);
        const QString title = info.title.value_or(displayName(track));
        QString path = appendingPathComponent(appendingPathComponent(basePath, root), prefix + lastPathComponent(track));
        if (asMP3 && pathExtension(path).toLower() != QLatin1String("mp3"))
            path = replacingPathExtension(path, QStringLiteral("MP3"));
        text += QStringLiteral("#EXTINF:%1,%2\n%3\n").arg(info.seconds, title, path);
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
    const QString name = displayName(playlistPath);
    const QString target = targetPathFor(playlistPath);
    emit statusChanged(QStringLiteral(" Create .M3U for ") + lastPathComponent(playlistPath), 50, true);

    QString basePath;
    const QString indexString = request.value(QStringLiteral("indexstring")).toString();
    if (preserveOrder() && !indexString.isEmpty())
        basePath = indexString + name;

    QString text = QStringLiteral("#EXTM3U\n")
                   + copyPlaylistDict(request.value(QStringLiteral("dictionary")).toMap(), basePath,
                                      request.value(QStringLiteral("prefsM3UPathPrefixStored")).toString(), 0,
                                      request.value(QStringLiteral("makemp3ifneeded")).toBool());
    if (request.value(QStringLiteral("mShuffleM3UStored")).toInt() != 0)
        text = shuffleM3UPlaylist(text);

    QDir().mkpath(m3uFolder());
    QSaveFile file(target);
    bool written = file.open(QIODevice::WriteOnly) && file.write(text.toUtf8()) >= 0 && file.commit();
    if (!written)
        qWarning("Velmora: could not write %s: %s", qPrintable(target), qPrintable(file.errorString()));

    const QString exportFolder = request.value(QStringLiteral("prefsM3UExportFolderStored")).toString();
    if (written && !exportFolder.isEmpty()) {
        const QString folder = AppPaths::expandTilde(exportFolder);
        QDir().mkpath(folder);
        const QString copy = QDir::cleanPath(folder + '/' + lastPathComponent(target));
        if (QFileInfo(copy).absoluteFilePath() != QFileInfo(target).absoluteFilePath()
            && QFileInfo(copy).canonicalFilePath() != QFileInfo(target).canonicalFilePath()) {
            QFile::remove(copy);
            QFile::copy(target, copy);
        }
    }
    emit statusChanged(QString(), 0, false);
    return written ? target : QString();
}
