#pragma once
#include "tabs/CompilationModel.h"
#include "tabs/SimpleTreeNode.h"

#include <QItemSelectionModel>
#include <QObject>
#include <QThreadPool>

#include <map>
#include <memory>

class Job;
struct JobResult;

// The compilation tree behind the current playlist: the user drags files and
// folders in, folders are searched for music files on a worker thread, the
// tree is sized against a CD and saved as the current playlist after every
// change. A view shows model() with selectionModel(), shows the search sheet
// while searchSheetShown() and the size figures with their colours.
//
// Lives on the main thread; only the folder search runs elsewhere, as a job
// ("Searching for music files") per drop that fills a scratch tree and hands
// it back to the main thread.
class MP3DataSource : public QObject {
    Q_OBJECT
public:
    static const QString searchSheetTitle;    // "Searching for music files"
    static const QString searchSheetMessage;
    static const QString searchSheetButton;   // "Cancel"

    // A compilation this size or more does not fit a CD.
    static constexpr qint64 cdCapacityBytes = qint64(650) << 20;
    enum class FigureColor { Blue, Red };

    explicit MP3DataSource(QObject* parent = nullptr);
    ~MP3DataSource() override;

    CompilationModel* model() { return &model_; }
    QItemSelectionModel* selectionModel() { return &selection_; }
    SimpleTreeNode* root() const { return model_.root(); }

    // Toolbar actions on the current selection.
    void addGroup();
    void addLeaf();
    void deleteSelections();
    void sortData();

    // A drop on target (null: the root area) at childIndex (-1: on the node).
    bool acceptDrop(const CompilationModel::Drop& drop, SimpleTreeNode* target, int childIndex);

    // Scans folder into node: subfolders with music become groups (by full path),
    // music files leaves; stops at once when the job is cancelled (*cancelled
    // tells). Returns the number of files added. Safe on any thread for a node
    // no view shows.
    static int addMP3(const QString& folder, SimpleTreeNode& node, const Job& job, bool* cancelled = nullptr);
    static bool isScannedMusicFile(const QString& name);

    // The search sheet's Cancel button: cancels every search job.
    void cancelSearch();
    bool searchSheetShown() const { return sheetShown_; }
    bool isSearching() const { return !searches_.empty(); }

    // Sizing.
    void updateSizeInUI();
    qint64 totalBytes() const { return totalBytes_; }
    qint64 totalMegabytes() const { return totalBytes_ >> 20; }
    int missingFiles() const { return missingFiles_; }
    FigureColor sizeColor() const { return totalBytes_ < cdCapacityBytes ? FigureColor::Blue : FigureColor::Red; }
    FigureColor missingColor() const { return missingFiles_ == 0 ? FigureColor::Blue : FigureColor::Red; }

    // The playlist the tree is saved to (a .cd3 file); set when a playlist is
    // selected (VLDidSelectPlaylistNotification, loaded from the event loop
    // right after), and by loadPlaylist. For an imported playlist (.xml) the
    // .cd3 file beside it is read when it exists, and written.
    QString currentPlaylist() const { return currentPlaylist_; }
    void loadPlaylist(const QString& path);
    // Writes the tree to the current playlist and posts VLDidChangePlaylistNotification.
    bool saveCurrentMP3CD();
    // Makes an empty playlist under the first free name "Playlist N" of the
    // playlist folder, makes it the current one and posts
    // VLDidChangePlaylistNotification and VLDidAddPlaylistNotification with its
    // path; "" when it could not be written (the failure is reported).
    QString newPlaylist();

    // Hand the compilation on. The M3U export is written on a worker thread;
    // false when there is no playlist to export.
    void playPlaylist();
    bool exportM3U();
    void waitForExport();
    void burnAudioCD();

    // The scroll-speed slider.
    void setScrollSpeed(double speed) { model_.setScrollSpeed(speed); }

signals:
    void searchSheetChanged(bool shown);
    void searchFinished();
    void sizeChanged();

private:
    struct ScanJob {
        QString path;
        std::weak_ptr<TreeNode> group;
    };
    void startSearch(const QList<TreeNode::Ptr>& groups);
    static JobResult handleThread(MP3DataSource* self, const QList<ScanJob>& scans, Job& job);
    void adoptScan(const std::weak_ptr<TreeNode>& target, const SimpleTreeNode::Ptr& scratch);
    void finishSearch(quint64 jobId);
    void setSheetShown(bool shown);
    void selectNodes(const QList<TreeNode::Ptr>& nodes);
    QList<TreeNode::Ptr> selectedNodes() const;
    void sumTree(const TreeNode& node);
    void insertNew(const SimpleTreeNode::Ptr& node);
    // The playlist list changed: a current playlist deleted meanwhile is let go,
    // so no later edit writes it back.
    void dropDeletedPlaylist();

    CompilationModel model_;
    QItemSelectionModel selection_;
    QString currentPlaylist_;
    QString loadedFrom_;  // the playlist as selected (an imported one is edited as its .cd3)
    QThreadPool exports_;
    qint64 totalBytes_ = 0;
    int missingFiles_ = 0;
    bool sheetShown_ = false;
    // One search job per drop, by job id; Cancel stops them all.
    std::map<quint64, std::shared_ptr<Job>> searches_;
};
