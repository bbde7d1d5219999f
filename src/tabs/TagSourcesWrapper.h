#pragma once
#include <QImage>
#include <QList>
#include <QObject>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

#include <memory>

class Job;

// The Tag tab's logic: the sources (library folders, playlists, folders the
// user opened, flash media), the taggable files of the selected source with
// their track records, edits of cells and of the artist and album fields, the
// artwork of the selected file, and writing the changes back through the tag
// facade. Lives on the main thread; finding files and saving them are jobs.
class TagSourcesWrapper : public QObject {
    Q_OBJECT
public:
    enum class SourceKind { Library, Playlist, Folder, FlashMedia };
    // One row of the sources list: a top-level source (level 0, every entry of
    // its kind) or one of its entries (level 1).
    struct SourceRow {
        SourceKind kind = SourceKind::Library;
        int level = 0;
        QString title;
        QString path;
        bool operator==(const SourceRow& other) const
        {
            return kind == other.kind && level == other.level && path == other.path;
        }
    };
    // What to do with unsaved edits before the source changes or the program quits.
    enum class UnsavedChoice { Save, Discard, Cancel };

    // "mp3", "ogg", "m4a", "m4p", "m4b", "m4r", "aac": the types whose tags can be written.
    static const QStringList& taggableTypes();
    // The editable columns, named by the record keys they show.
    static const QStringList& columnIdentifiers();
    static QStringList pictureTypeNames();
    // The file of a picture for a write: the encoding its "Mime Type" asks for
    // ("jpg" or "jpeg" JPEG, "png" PNG, anything else the previous picture's,
    // TIFF for the first), named "N.<last part of the type>" in folder. Sets
    // each record's "cachepath"; false when a file cannot be written.
    static bool writeArtworkFiles(QVariantList& artwork, const QString& folder, QString* error = nullptr);

    explicit TagSourcesWrapper(QObject* parent = nullptr);
    ~TagSourcesWrapper() override;

    // Flash players appear once their watcher tells of them.
    void setFlashPlayers(const QStringList& mountPoints);
    // A folder opened as a source; kept across restarts.
    void addFolder(const QString& folder);
    void removeFolder(const QString& folder);

    QList<SourceRow> sources() const { return sources_; }
    int selectedSource() const { return selectedSource_; }
    // Loads the taggable files of a source. Ignored while busy; with unsaved
    // edits the source is kept pending and unsavedEditsPending() asks first.
    void selectSource(int row);
    // The answer to unsavedEditsPending(): a pending source change goes on
    // after a save (once it has written everything) or a discard.
    void resolveUnsavedEdits(UnsavedChoice choice);
    bool isDirty() const { return dirty_; }
    // Busy while a source is searched or files are saved: source changes are ignored.
    bool isBusy() const { return finding_ != nullptr || saving_ != nullptr; }
    bool isFinding() const { return finding_ != nullptr; }
    // Stops the search, or the save (files not yet written keep their edits).
    void stop();

    // The table.
    QStringList songs() const { return songs_; }
    QVariantList tags() const { return tags_; }
    int rowCount() const { return int(songs_.size()); }
    // What a cell shows: the value; "--" when absent; the file name for a blank title.
    QString cellText(int row, const QString& column) const;
    // Stores the text under the column's key of the row's record.
    void setCell(int row, const QString& column, const QString& text);
    QList<int> selectedRows() const { return selectedRows_; }
    // A new selection; with edits the old selection is saved first.
    void selectRows(QList<int> rows);
    // Leaving the table with edits saves them.
    void leaveTable();
    QString artistField() const { return artistField_; }
    QString albumField() const { return albumField_; }
    void setArtistField(const QString& text);
    void setAlbumField(const QString& text);

    // Artwork of the selected file.
    QVariantList artwork() const { return artwork_; }
    int artworkIndex() const { return artworkIndex_; }
    QVariantMap currentArtwork() const { return artwork_.value(artworkIndex_).toMap(); }
    // "2 of 3", "No artwork" or "No track selected".
    QString artworkLabel() const;
    // "640 × 480 pixels, 52,113 bytes" for the current picture; "" without one.
    QString artworkSizeText() const;
    void nextArtwork();
    void prevArtwork();
    void addArtwork();
    void deleteArtwork();
    void setArtworkPictureType(const QString& name);
    // A picture dropped, pasted or chosen: re-encoded as JPEG at 0.9 and made
    // the current artwork (a new one when there is none). False with no row
    // selected or a picture that cannot be encoded.
    bool setArtworkImage(const QImage& image);

    // Writes the selected rows (the artist and album fields into each) as a job.
    // Null when nothing is selected or a save runs.
    std::shared_ptr<Job> setTags();
    // Blocks until a running save has ended and its result has been taken.
    void waitForSave();

    // What the information action shows for a row (row 0 when none is selected).
    struct Information {
        QString path;
        QString frames;     // MP3: every ID3 frame, as id3info lists them
        QString name;       // others: the name without extension,
        QString extension;  // the extension in upper case,
        QString folder;     // and the folder
    };
    Information showInformation();

signals:
    void sourcesChanged();
    void sourceSelected(int row);
    void songsReset();
    void rowsAppended(int first, int last);
    void rowChanged(int row);
    void selectionShown();  // the fields and the artwork show the selection
    void artworkChanged();
    void dirtyChanged(bool dirty);
    void busyChanged(bool busy);
    // {"operation", "status", "savefilename"} of the search or the save.
    void progressChanged(const QVariantMap& progress);
    void unsavedEditsPending();
    // A save ended; failures name the files that kept their old tags.
    void saveFinished(const QStringList& failures);

private:
    struct FoundRows;
    void rebuildSources();
    void startFinding(const SourceRow& source);
    void takeRows(quint64 generation);
    void findEnded(quint64 generation);
    void showSelection();
    void setDirty(bool dirty);
    void artworkEdited();
    void saveEnded(const QStringList& failures);
    void emitProgress(const QString& operation, const QString& status, const QString& fileName);

    QStringList playlists_;
    QStringList folders_;
    QStringList flashPlayers_;
    QList<SourceRow> sources_;
    int selectedSource_ = -1;
    int pendingSource_ = -1;

    QStringList songs_;
    QVariantList tags_;
    QList<int> selectedRows_;
    QString artistField_;
    QString albumField_;
    QVariantList artwork_;
    int artworkIndex_ = -1;
    bool dirty_ = false;
    bool artworkTouched_ = false;
    quint64 edits_ = 0;  // counts edits, so a save ending does not clear newer ones

    std::shared_ptr<Job> finding_;
    std::shared_ptr<FoundRows> found_;  // handed over by the find thread under its lock
    quint64 findGeneration_ = 0;
    std::shared_ptr<Job> saving_;
    quint64 saveEdits_ = 0;  // edits_ when the running save began
    bool continuePendingAfterSave_ = false;
};
