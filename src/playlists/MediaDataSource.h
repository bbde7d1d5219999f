#pragma once
#include <QFuture>
#include <QObject>
#include <QStringList>
#include <QThreadPool>
#include <QVariantMap>

#include <atomic>
#include <memory>
#include <optional>

class FlashWriting;
class PlaylistFlashCopier;

// The media sets: which playlists go onto which medium. Each set is a
// property-list file {"playlists": [playlist paths]} in the media folder; the
// selected set decides the tick boxes of the playlist table, the burn list,
// what plays and what is copied to a flash player.
class MediaDataSource : public QObject {
    Q_OBJECT
public:
    static constexpr char kAddMediaDefaultName[] = "untitled.xml";
    static constexpr char kAddMediaMessage[] = "Please save this .xml file in the Media folder.";

    explicit MediaDataSource(QObject* parent = nullptr);
    ~MediaDataSource() override;

    void setFlashWriter(FlashWriting* writer);

    // Creates the folders and the first two sets, lists them, selects the
    // first set and starts observing the bus.
    void awakeFromNib();

    // The table: the list is rebuilt by reloadData().
    void reloadData();
    int rowCount() const { return int(entries_.size()); }
    QStringList entries() const { return entries_; }
    QString nameAt(int row) const;
    QString pathAt(int row) const;
    int selectedRow() const;
    // The user selected a row (-1: none): reads the set and announces it.
    void selectRow(int row);
    // The user typed a new name into row r.
    void setNameAt(int row, const QString& name);

    QString selectedPath() const { return selectedPath_; }
    QVariantMap selectedDictionary() const { return selectedDictionary_; }

    // Asked by the playlist store.
    bool isOnSelectedMedia(const QString& playlistPath) const;
    void setIsOnSelectedMedia(const QString& playlistPath);
    // Replaces (or, with a null new path, removes) a playlist in every set.
    void fixupMedia(const QString& oldPath, const QString& newPath);

    // Actions. addMedia() takes the path chosen in the save sheet.
    void addMedia(const QString& chosenPath);
    void deleteMedia();
    void deletePlaylist();
    void playMedia();
    // The selected set's playlists followed by the set's own path without its
    // extension, which is how the burner learns the set; none without a set.
    std::optional<QStringList> getBurnArray() const;
    void copyMediaToFlash();
    void cancelWriteToFlash();

    // Recomputes the selected set's size on a worker thread; sizeChanged follows.
    void updateSelectedMediaSizeInUI();
    qint64 lastSizeMegabytes() const { return lastSizeMegabytes_; }
    // Waits for a running size computation (tests and the command line).
    void waitForSize();

signals:
    void reloaded();
    void scrollToRowRequested(int row);
    // "" while computing, then the size in megabytes.
    void sizeChanged(const QString& text);
    void alert(const QString& title, const QString& message);
    void copyStarted();
    void copyingFile(const QString& name);
    void copyFinished();

private:
    void removeSelectedMedia(const char* selectionNotification);
    void runSelectionHandling();
    void postGroupInfo();
    void vlDidAddMediaNotification(const QString& path);
    void vlShouldCopyFilesNotification(const QVariant& destination);

    QStringList entries_;
    QString selectedPath_;
    QVariantMap selectedDictionary_;
    FlashWriting* flashWriter_ = nullptr;
    std::unique_ptr<PlaylistFlashCopier> copier_;
    QFuture<void> copyThread_;
    QFuture<void> sizeThread_;
    std::atomic<int> sizeGeneration_{0};
    qint64 lastSizeMegabytes_ = 0;
    QThreadPool workers_;
};
