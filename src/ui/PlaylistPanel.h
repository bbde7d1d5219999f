#pragma once
#include <QWidget>

class HPlayListDataSource;
class MediaDataSource;
class PlayListDataSource;
class QLabel;
class QTableView;

// The playlist table, the media-set table and their buttons, shown beside the
// Music tab's outline. Everything it shows comes from the three stores and
// every action is forwarded to them.
class PlaylistPanel : public QWidget {
    Q_OBJECT
public:
    PlaylistPanel(PlayListDataSource& playlists, MediaDataSource& media, HPlayListDataSource& hidden,
                  QWidget* parent = nullptr);

    QTableView* playlistTable() const { return playlistTable_; }
    QTableView* mediaTable() const { return mediaTable_; }
    // Selects a listed playlist (as the user would) and starts editing its name.
    void selectAndRename(const QString& path);
    // Asks before the selected playlist's file is deleted.
    void confirmDeletePlaylist();
    void renamePlaylist();

signals:
    // The New and Export buttons: the compilation behind the playlist does these.
    void newPlaylistRequested();
    void exportRequested();

private:
    void syncPlaylistSelection();
    void syncMediaSelection();
    // The playlist and media set selected when Velmora last ran.
    void restoreSelections();
    void addMedia();
    void showHiddenPlaylists();
    void showAlert(const QString& title, const QString& message);
    void connectCopySheet(QObject* source, const char* title, void (PlaylistPanel::*cancel)());
    void cancelPlaylistCopy();
    void cancelMediaCopy();

    PlayListDataSource& playlists_;
    MediaDataSource& media_;
    HPlayListDataSource& hidden_;
    QTableView* playlistTable_;
    QTableView* mediaTable_;
    QLabel* sizeLabel_;
};
