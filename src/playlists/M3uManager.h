#pragma once
#include <QObject>
#include <QString>
#include <QVariantMap>

#include <functional>
#include <optional>

class Job;

// Writes extended M3U files for playlists on VLM3UPlaylistNotification: one
// "#EXTINF" entry per track with its length and title, followed by the path
// the track will have on the disc or player, optionally shuffled. The files
// live in the M3U folder and may also be copied to a folder the user chose.
class m3uManager : public QObject {
    Q_OBJECT
public:
    explicit m3uManager(QObject* parent = nullptr);
    ~m3uManager() override;

    // Creates the folders and starts observing VLM3UPlaylistNotification.
    void awakeFromNib();

    // Handles one request ({"path", "dictionary", "mShuffleM3UStored",
    // "prefsM3UPathPrefixStored", "prefsM3UExportFolderStored", "indexstring",
    // "makemp3ifneeded"}) as a job on the calling thread, with a step of
    // progress per track; returns the path of the M3U file written, or "" when
    // it was cancelled or could not be written (the failed job says why).
    QString vlM3UPlaylistNotification(const QVariantMap& request);

    // The "#EXTINF" entries of a group, numbered from index.
    QString copyPlaylistDict(const QVariantMap& group, const QString& basePath, const QString& root, int index,
                             bool asMP3) const;
    // Exchanges every entry with another randomly drawn one.
    QString shuffleM3UPlaylist(const QString& text) const;
    static QString getSongTime(const QString& path);
    static std::optional<QString> getSongName(const QString& path);

    // The random numbers the shuffle draws (random() by default).
    void setRandomSource(std::function<long()> source) { random_ = std::move(source); }

    static QString targetPathFor(const QString& playlistPath);

signals:
    // The status line and progress bar of the Music tab.
    void statusChanged(const QString& status, int progress, bool animating);
    // A request was written: the M3U file, and its copy in the export folder when one was made.
    void written(const QString& playlistPath, const QStringList& files);

private:
    // The job a request runs in and the tracks it has done of its total.
    struct Progress {
        Job& job;
        QString status;
        int total = 0;
        int done = 0;
    };
    QString copyPlaylistDict(const QVariantMap& group, const QString& basePath, const QString& root, int index,
                             bool asMP3, Progress* progress) const;
    QString writeRequest(const QVariantMap& request, Progress& progress, QString* error, QString* copy) const;

    std::function<long()> random_;
};
