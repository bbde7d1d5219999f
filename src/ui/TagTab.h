#pragma once
#include <QImage>
#include <QLabel>
#include <QWidget>

#include <functional>

class QComboBox;
class QLineEdit;
class QProgressDialog;
class QPushButton;
class QTableView;
class QToolButton;
class QTreeWidget;
class TagSourcesWrapper;
class TagTableModel;

// The picture of the selected file: pictures can be dropped on it (image data
// or image files) and pasted into it.
class ArtworkWell : public QLabel {
    Q_OBJECT
public:
    explicit ArtworkWell(QWidget* parent = nullptr);
    void showImage(const QImage& image);
    // The clipboard's picture, or the first image file copied.
    void paste();

signals:
    void imageChosen(const QImage& image);

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    void refreshPixmap();
    QImage image_;
};

// The Tag tab: the sources list, the table of taggable files with their tags,
// the artist and album fields, and the artwork of the selected file. It shows
// TagSourcesWrapper's state and forwards the user's actions to it.
class TagTab : public QWidget {
    Q_OBJECT
public:
    explicit TagTab(TagSourcesWrapper& tags, QWidget* parent = nullptr);

    TagSourcesWrapper& tags() { return tags_; }
    QTreeWidget* sourcesOutline() const { return outline_; }
    QTableView* table() const { return table_; }
    QLineEdit* artistField() const { return artist_; }
    QLineEdit* albumField() const { return album_; }
    ArtworkWell* artworkWell() const { return well_; }
    QLabel* artworkPosition() const { return position_; }
    QLabel* artworkSize() const { return size_; }
    QComboBox* pictureTypeMenu() const { return pictureType_; }
    QPushButton* saveButton() const { return save_; }

    // Runs proceed once the edits not yet written are saved or discarded, as
    // the user answers; not at all when the user cancels or a save fails.
    void confirmLeaving(std::function<void()> proceed);
    // The chooser of a picture file.
    void chooseArtworkFile();
    void showInformation();

protected:
    void hideEvent(QHideEvent* event) override;

private:
    void rebuildOutline();
    void showSourceSelected(int row);
    void showSelection();
    void showArtwork();
    void showProgress(const QVariantMap& progress);
    void updateSheet();
    void askAboutUnsavedEdits(std::function<void(int button)> answered);
    void showSaveFailures(const QStringList& failures);

    TagSourcesWrapper& tags_;
    TagTableModel* model_;
    QTreeWidget* outline_;
    QTableView* table_;
    QLineEdit* artist_;
    QLineEdit* album_;
    ArtworkWell* well_;
    QLabel* position_;
    QLabel* size_;
    QComboBox* pictureType_;
    QPushButton* save_;
    QLabel* findStatus_;
    QToolButton* stop_;
    QProgressDialog* sheet_ = nullptr;
    QVariantMap progress_;
    bool syncingSelection_ = false;
};
