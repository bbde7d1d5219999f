#pragma once
#include "tabs/MusicSourcesWrapper.h"

#include <QWidget>

class AppControllers;
class MP3DataSource;
class PlaylistPanel;
class QComboBox;
class QLabel;
class QListWidget;
class QProgressDialog;
class QPushButton;
class QTreeView;

// The Music tab: the sources outline (library folders, the drop zone and a
// mounted audio CD), the playlist and media-set tables, the compilation tree,
// and the convert, burn and copy-to-flash actions. It shows state and forwards
// the user's actions to MusicSourcesWrapper and MP3DataSource.
class MusicTab : public QWidget {
    Q_OBJECT
public:
    explicit MusicTab(AppControllers& controllers, QWidget* parent = nullptr);
    ~MusicTab() override;

    MusicSourcesWrapper& music() { return music_; }
    QTreeView* libraryOutline() const { return outline_; }
    PlaylistPanel* playlistPanel() const { return playlistPanel_; }
    MP3DataSource* compilation() const { return compilation_; }
    QTreeView* compilationView() const { return compilationView_; }
    // What the convert, burn and copy actions work on: the last thing selected.
    MusicSourcesWrapper::Selection currentSelection() const;
    // Starts a conversion into a folder already chosen (the folder sheet's end).
    void convertInto(const QString& formatKey, const QString& folder);

    // The main actions, also on the window's menus.
    void convert();
    void newPlaylist();
    void exportM3U();

signals:
    // A line for the window's status bar.
    void statusMessage(const QString& text);

private:
    void chooseSaveFolder(const QString& formatKey);
    void showBatchSummary(const MusicSourcesWrapper::BatchSummary& summary);
    void showExported(const QStringList& files);
    void burn();
    void copyToFlash();
    // Opens the setup, size-warning and erase sheets the burners ask for.
    void connectBurners(AppControllers& controllers);
    void showProgressSheet();
    void showProgress(const QVariantMap& progress);
    void endProgressSheet();
    void refreshOtherSources();
    void updateCompilationFigures();
    void showSearchSheet(bool shown);

    enum class Focus { Library, DropZone, AudioCD, Playlist, MediaSet };

    MusicSourcesWrapper& music_;  // the composition root's, shared with velmora-cli's code paths
    MP3DataSource* compilation_;
    PlaylistPanel* playlistPanel_ = nullptr;
    QTreeView* outline_;
    QListWidget* otherSources_;
    QTreeView* compilationView_;
    QLabel* sizeLabel_;
    QLabel* missingLabel_;
    QLabel* m3uStatusLabel_;
    QComboBox* formatCombo_;
    QComboBox* burnCombo_;
    QProgressDialog* progressSheet_ = nullptr;
    QProgressDialog* searchSheet_ = nullptr;
    QString exporting_;  // the playlist whose M3U export the user asked for
    QString operation_, status_, saveFileName_;
    Focus focus_ = Focus::Library;
    QString selectedPlaylist_;
    QString selectedMediaSet_;
};
