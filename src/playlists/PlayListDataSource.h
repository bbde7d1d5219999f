#pragma once
#include <QFuture>
#include <QObject>
#include <QStringList>
#include <QThreadPool>

#include <memory>

class FlashWriting;
class HPlayListDataSource;
class MediaDataSource;
class PlaylistFlashCopier;

// The playlist store: the ".cd3" files of the playlist folder and the
// imported playlists of the iTunes folder, as one list behind the playlist
// table. It renames, deletes, hides and ticks playlists and tells the rest of
// the program through the bus which playlist is selected and which exist.
class PlayListDataSource : public QObject {
    Q_OBJECT
public:
    explicit PlayListDataSource(QObject* parent = nullptr);
    ~PlayListDataSource() override;

    // The collaborators are given before awakeFromNib().
    void setMediaSource(MediaDataSource* media) { media_ = media; }
    void setHiddenSource(HPlayListDataSource* hidden) { hidden_ = hidden; }
    void setFlashWriter(FlashWriting* writer);

    // Removes Finder's folder file, creates the folders, writes the first
    // playlist into an empty playlist folder, lists and starts observing.
    void awakeFromNib();

    // Rebuilds the list from both folders (hidden names left out).
    void reloadData();
    int rowCount() const { return int(list_.size()); }
    QStringList playlistList() const { return list_; }
    QString pathAt(int row) const;
    QString nameAt(int row) const;
    bool isCheckedAt(int row) const;
    // Imported playlists are drawn dimmed.
    bool isFromITunesAt(int row) const;

    int selectedRow() const { return selectedRow_; }
    // The user selected a row (-1: none).
    void selectRow(int row);
    // Editing the "playlist" column: rename.
    void setNameAt(int row, const QString& name);
    // Editing the "checkbox" column: tick in or out of the selected media set.
    void toggleCheckedAt(int row);

    void deletePlaylist();
    void hidePlaylist();
    void copyPlayListToFlash();
    void cancelWriteToFlash();

    // Every playlist file of both folders, hidden ones included.
    static QStringList allPlaylistFiles();

signals:
    void reloaded();
    void scrollToRowRequested(int row);
    void alert(const QString& title, const QString& message);
    void copyStarted();
    void copyingFile(const QString& name);
    void copyFinished();

private:
    void selectionDidChange();
    void postPlaylistInfo();
    void vlDidAddPlaylistNotification(const QString& path);
    void vlShouldCopyFilesNotification(const QVariant& destination);

    QStringList list_;
    int selectedRow_ = -1;
    MediaDataSource* media_ = nullptr;
    HPlayListDataSource* hidden_ = nullptr;
    FlashWriting* flashWriter_ = nullptr;
    std::unique_ptr<PlaylistFlashCopier> copier_;
    QFuture<void> copyThread_;
    QThreadPool workers_;
};
