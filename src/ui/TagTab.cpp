#include "ui/TagTab.h"
#include "ui/SourceOutline.h"

#include "tabs/TagSourcesWrapper.h"
#include "ui/ProgressSheet.h"

#include <QAbstractTableModel>
#include <QApplication>
#include <QClipboard>
#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QDragEnterEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QImageReader>
#include <QItemSelectionModel>
#include <QLineEdit>
#include <QMessageBox>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QProgressDialog>
#include <QPushButton>
#include <QShortcut>
#include <QSplitter>
#include <QTableView>
#include <QToolButton>
#include <QTreeWidget>
#include <QVBoxLayout>

#include <algorithm>

// The file table over the wrapper's rows; it counts the rows it has announced,
// so views never see rows before they are inserted.
class TagTableModel : public QAbstractTableModel {
public:
    explicit TagTableModel(TagSourcesWrapper& tags, QObject* parent) : QAbstractTableModel(parent), tags_(tags)
    {
        connect(&tags, &TagSourcesWrapper::songsReset, this, [this] {
            beginResetModel();
            rows_ = tags_.rowCount();
            endResetModel();
        });
        connect(&tags, &TagSourcesWrapper::rowsAppended, this, [this](int, int last) {
            beginInsertRows({}, rows_, last);
            rows_ = last + 1;
            endInsertRows();
        });
        connect(&tags, &TagSourcesWrapper::rowChanged, this,
                [this](int row) { emit dataChanged(index(row, 0), index(row, columnCount() - 1)); });
    }

    int rowCount(const QModelIndex& parent = {}) const override { return parent.isValid() ? 0 : rows_; }
    int columnCount(const QModelIndex& parent = {}) const override
    {
        return parent.isValid() ? 0 : int(TagSourcesWrapper::columnIdentifiers().size());
    }
    QVariant data(const QModelIndex& index, int role) const override
    {
        const QString column = TagSourcesWrapper::columnIdentifiers().value(index.column());
        if (role == Qt::DisplayRole)
            return tags_.cellText(index.row(), column);
        if (role == Qt::EditRole)
            return tags_.tags().value(index.row()).toMap().value(column).toString();
        if (role == Qt::ToolTipRole)
            return tags_.songs().value(index.row());
        return {};
    }
    bool setData(const QModelIndex& index, const QVariant& value, int role) override
    {
        if (role != Qt::EditRole)
            return false;
        tags_.setCell(index.row(), TagSourcesWrapper::columnIdentifiers().value(index.column()), value.toString());
        return true;
    }
    Qt::ItemFlags flags(const QModelIndex& index) const override
    {
        return QAbstractTableModel::flags(index) | Qt::ItemIsEditable;
    }
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override
    {
        if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
            return QAbstractTableModel::headerData(section, orientation, role);
        static const QStringList titles = {tr("Title"), tr("Artist"), tr("Album"),
                                           tr("Year"),  tr("Track"),  tr("Genre")};
        return titles.value(section);
    }

private:
    TagSourcesWrapper& tags_;
    int rows_ = 0;
};

namespace {

constexpr int kRowRole = SourceOutline::kRowRole;

QImage imageFrom(const QMimeData* mime)
{
    if (!mime)
        return {};
    if (mime->hasImage())
        return qvariant_cast<QImage>(mime->imageData());
    for (const QUrl& url : mime->urls()) {
        QImage image;
        if (url.isLocalFile() && image.load(url.toLocalFile()))
            return image;
    }
    return {};
}

QIcon sourceIcon(TagSourcesWrapper::SourceKind kind)
{
    switch (kind) {
    case TagSourcesWrapper::SourceKind::Library:
        return QIcon::fromTheme(QStringLiteral("folder-music"), QIcon::fromTheme(QStringLiteral("folder")));
    case TagSourcesWrapper::SourceKind::Playlist:
        return QIcon::fromTheme(QStringLiteral("audio-x-generic"));
    case TagSourcesWrapper::SourceKind::Folder:
        return QIcon::fromTheme(QStringLiteral("folder"));
    case TagSourcesWrapper::SourceKind::FlashMedia:
        return QIcon::fromTheme(QStringLiteral("multimedia-player"),
                                QIcon::fromTheme(QStringLiteral("drive-removable-media")));
    }
    return {};
}

}  // namespace

// ---------------------------------------------------------------- the well

ArtworkWell::ArtworkWell(QWidget* parent) : QLabel(parent)
{
    setAcceptDrops(true);
    setAlignment(Qt::AlignCenter);
    setMinimumSize(160, 160);
    setFrameShape(QFrame::StyledPanel);
    setToolTip(tr("Drop a picture here, or paste one (Ctrl+V), to make it this file's artwork"));
}

void ArtworkWell::showImage(const QImage& image)
{
    image_ = image;
    refreshPixmap();
}

void ArtworkWell::refreshPixmap()
{
    setPixmap(image_.isNull() ? QPixmap()
                              : QPixmap::fromImage(image_.scaled(contentsRect().size(), Qt::KeepAspectRatio,
                                                                 Qt::SmoothTransformation)));
}

void ArtworkWell::paste()
{
    const QImage image = imageFrom(QApplication::clipboard()->mimeData());
    if (!image.isNull())
        emit imageChosen(image);
}

void ArtworkWell::dragEnterEvent(QDragEnterEvent* event)
{
    const QMimeData* mime = event->mimeData();
    if (mime->hasImage() || mime->hasUrls())
        event->acceptProposedAction();
}

void ArtworkWell::dropEvent(QDropEvent* event)
{
    const QImage image = imageFrom(event->mimeData());
    if (image.isNull())
        return;
    event->acceptProposedAction();
    emit imageChosen(image);
}

void ArtworkWell::resizeEvent(QResizeEvent* event)
{
    QLabel::resizeEvent(event);
    refreshPixmap();
}

// ---------------------------------------------------------------- the tab

TagTab::TagTab(TagSourcesWrapper& tags, QWidget* parent)
    : QWidget(parent), tags_(tags), model_(new TagTableModel(tags, this)), outline_(new QTreeWidget),
      table_(new QTableView), artist_(new QLineEdit), album_(new QLineEdit), well_(new ArtworkWell),
      position_(new QLabel), size_(new QLabel), pictureType_(new QComboBox),
      save_(new QPushButton(QIcon::fromTheme(QStringLiteral("document-save")), tr("Save"))),
      findStatus_(new QLabel), stop_(makeToolButton("process-stop", tr("Stop"), tr("Stop reading this source's files")))
{
    // Sources.
    outline_->setObjectName(QStringLiteral("tagSources"));
    outline_->setHeaderHidden(true);
    outline_->setToolTip(tr("Where the files to tag come from"));
    connect(outline_, &QTreeWidget::itemSelectionChanged, this, [this] {
        const QList<QTreeWidgetItem*> items = outline_->selectedItems();
        if (!items.isEmpty())
            tags_.selectSource(items.first()->data(0, kRowRole).toInt());
    });
    auto* openFolder = makeToolButton("folder-open", tr("Open Folder…"), tr("Add a folder of music files as a source"));
    connect(openFolder, &QToolButton::clicked, this, [this] {
        auto* chooser = new QFileDialog(this, tr("Open Folder"));
        chooser->setFileMode(QFileDialog::Directory);
        chooser->setOption(QFileDialog::ShowDirsOnly);
        chooser->setAttribute(Qt::WA_DeleteOnClose);
        connect(chooser, &QFileDialog::fileSelected, this, [this](const QString& folder) { tags_.addFolder(folder); });
        chooser->open();
    });
    auto* removeFolder = makeToolButton("list-remove", tr("Remove"), tr("Take the selected folder off this list"));
    connect(removeFolder, &QToolButton::clicked, this, [this] {
        const auto source = tags_.sources().value(tags_.selectedSource());
        if (source.kind == TagSourcesWrapper::SourceKind::Folder && source.level == 1)
            tags_.removeFolder(source.path);
    });
    auto* sourcesPane = new QWidget;
    auto* sourcesLayout = new QVBoxLayout(sourcesPane);
    sourcesLayout->setContentsMargins(0, 0, 0, 0);
    sourcesLayout->addWidget(outline_, 1);
    auto* sourceButtons = new QHBoxLayout;
    sourceButtons->addWidget(openFolder);
    sourceButtons->addWidget(removeFolder);
    sourceButtons->addStretch();
    sourcesLayout->addLayout(sourceButtons);

    // The artist and album fields, written into every selected file on saving.
    artist_->setToolTip(tr("The artist written into every selected file when they are saved"));
    album_->setToolTip(tr("The album written into every selected file when they are saved"));
    connect(artist_, &QLineEdit::textEdited, &tags_, &TagSourcesWrapper::setArtistField);
    connect(album_, &QLineEdit::textEdited, &tags_, &TagSourcesWrapper::setAlbumField);
    save_->setToolTip(tr("Write the tags and artwork of the selected files (Ctrl+S)"));
    save_->setShortcut(QKeySequence::Save);
    connect(save_, &QPushButton::clicked, this, [this] { tags_.setTags(); });
    auto* information = makeToolButton("dialog-information", tr("Information"),
                                   tr("Show what the selected file's tags hold (every ID3 frame of an MP3 file)"));
    connect(information, &QToolButton::clicked, this, &TagTab::showInformation);
    auto* fields = new QHBoxLayout;
    fields->addWidget(new QLabel(tr("Artist:")));
    fields->addWidget(artist_, 1);
    fields->addWidget(new QLabel(tr("Album:")));
    fields->addWidget(album_, 1);
    fields->addWidget(save_);
    fields->addWidget(information);

    // The file table.
    table_->setObjectName(QStringLiteral("tagTable"));
    table_->setModel(model_);
    table_->setSelectionBehavior(QAbstractItemView::SelectRows);
    table_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    table_->setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed
                            | QAbstractItemView::AnyKeyPressed);
    table_->verticalHeader()->hide();
    table_->setWordWrap(false);
    table_->verticalHeader()->setDefaultSectionSize(table_->fontMetrics().height() + 8);
    // The names share the width; year and track numbers take only what they need.
    table_->horizontalHeader()->setSectionResizeMode(QHeaderView::Stretch);
    for (const char* narrow : {"year", "track"})
        table_->horizontalHeader()->setSectionResizeMode(
            int(TagSourcesWrapper::columnIdentifiers().indexOf(QLatin1String(narrow))), QHeaderView::ResizeToContents);
    table_->setToolTip(tr("Double-click a cell to change it; leaving the row writes the changes"));
    connect(table_->selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] {
        if (syncingSelection_)
            return;
        tags_.selectRows(sortedSelectedRows(table_));
    });
    findStatus_->setObjectName(QStringLiteral("findStatus"));
    connect(stop_, &QToolButton::clicked, &tags_, &TagSourcesWrapper::stop);
    auto* findLine = new QHBoxLayout;
    findLine->addWidget(findStatus_, 1);
    findLine->addWidget(stop_);
    auto* tablePane = new QWidget;
    auto* tableLayout = new QVBoxLayout(tablePane);
    tableLayout->setContentsMargins(0, 0, 0, 0);
    tableLayout->addLayout(fields);
    tableLayout->addWidget(table_, 1);
    tableLayout->addLayout(findLine);

    // The artwork.
    well_->setObjectName(QStringLiteral("artworkWell"));
    connect(well_, &ArtworkWell::imageChosen, this, [this](const QImage& image) {
        if (!tags_.setArtworkImage(image) && !tags_.selectedRows().isEmpty())
            QMessageBox::warning(this, tr("Artwork"), tr("This picture cannot be used as artwork."));
    });
    auto* previous = makeToolButton("go-previous", tr("Previous"), tr("Show the previous picture"));
    auto* next = makeToolButton("go-next", tr("Next"), tr("Show the next picture"));
    connect(previous, &QToolButton::clicked, &tags_, &TagSourcesWrapper::prevArtwork);
    connect(next, &QToolButton::clicked, &tags_, &TagSourcesWrapper::nextArtwork);
    pictureType_->addItems(TagSourcesWrapper::pictureTypeNames());
    pictureType_->setToolTip(tr("What the picture shows"));
    connect(pictureType_, &QComboBox::activated, this,
            [this](int index) { tags_.setArtworkPictureType(pictureType_->itemText(index)); });
    auto* add = makeToolButton("list-add", tr("Add"), tr("Add a picture after this one"));
    auto* remove = makeToolButton("list-remove", tr("Delete"), tr("Remove this picture from the file"));
    auto* choose = makeToolButton("document-open", tr("Choose…"), tr("Choose a picture file for this artwork"));
    auto* paste = makeToolButton("edit-paste", tr("Paste"), tr("Use the picture on the clipboard (Ctrl+V)"));
    connect(add, &QToolButton::clicked, &tags_, &TagSourcesWrapper::addArtwork);
    connect(remove, &QToolButton::clicked, &tags_, &TagSourcesWrapper::deleteArtwork);
    connect(choose, &QToolButton::clicked, this, &TagTab::chooseArtworkFile);
    connect(paste, &QToolButton::clicked, well_, &ArtworkWell::paste);
    auto* pasteKey = new QShortcut(QKeySequence::Paste, well_);
    pasteKey->setContext(Qt::WidgetWithChildrenShortcut);
    connect(pasteKey, &QShortcut::activated, well_, &ArtworkWell::paste);
    well_->setFocusPolicy(Qt::ClickFocus);
    position_->setAlignment(Qt::AlignCenter);
    size_->setAlignment(Qt::AlignCenter);
    auto* artworkPane = new QWidget;
    auto* artworkLayout = new QVBoxLayout(artworkPane);
    artworkLayout->setContentsMargins(0, 0, 0, 0);
    artworkLayout->addWidget(new QLabel(tr("Artwork")));
    artworkLayout->addWidget(well_, 1);
    artworkLayout->addWidget(size_);
    auto* stepping = new QHBoxLayout;
    stepping->addWidget(previous);
    stepping->addWidget(position_, 1);
    stepping->addWidget(next);
    artworkLayout->addLayout(stepping);
    artworkLayout->addWidget(pictureType_);
    auto* editing = new QHBoxLayout;
    for (QToolButton* button : {add, remove, choose, paste})
        editing->addWidget(button);
    artworkLayout->addLayout(editing);

    auto* splitter = new QSplitter;
    splitter->setObjectName(QStringLiteral("tagSplitter"));
    splitter->addWidget(sourcesPane);
    splitter->addWidget(tablePane);
    splitter->addWidget(artworkPane);
    splitter->setStretchFactor(1, 1);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(splitter);

    connect(&tags_, &TagSourcesWrapper::sourcesChanged, this, &TagTab::rebuildOutline);
    connect(&tags_, &TagSourcesWrapper::sourceSelected, this, &TagTab::showSourceSelected);
    connect(&tags_, &TagSourcesWrapper::selectionShown, this, &TagTab::showSelection);
    connect(&tags_, &TagSourcesWrapper::artworkChanged, this, &TagTab::showArtwork);
    connect(&tags_, &TagSourcesWrapper::progressChanged, this, &TagTab::showProgress);
    connect(&tags_, &TagSourcesWrapper::busyChanged, this, &TagTab::updateSheet);
    connect(&tags_, &TagSourcesWrapper::rowsAppended, this, &TagTab::updateSheet);
    connect(&tags_, &TagSourcesWrapper::dirtyChanged, this, [this](bool dirty) { save_->setEnabled(dirty); });
    connect(&tags_, &TagSourcesWrapper::unsavedEditsPending, this, [this] {
        askAboutUnsavedEdits([this](int button) {
            tags_.resolveUnsavedEdits(button == QMessageBox::Save      ? TagSourcesWrapper::UnsavedChoice::Save
                                      : button == QMessageBox::Discard ? TagSourcesWrapper::UnsavedChoice::Discard
                                                                       : TagSourcesWrapper::UnsavedChoice::Cancel);
        });
    });
    connect(&tags_, &TagSourcesWrapper::saveFinished, this, &TagTab::showSaveFailures);
    save_->setEnabled(tags_.isDirty());
    rebuildOutline();
    showSelection();
    updateSheet();
}

void TagTab::rebuildOutline()
{
    QList<SourceOutline::Row> rows;
    for (const TagSourcesWrapper::SourceRow& source : tags_.sources())
        rows << SourceOutline::Row{source.title, source.path, sourceIcon(source.kind), source.level};
    SourceOutline::fill(outline_, rows, tr("Every file of %1"), tags_.selectedSource());
}

void TagTab::showSourceSelected(int row)
{
    SourceOutline::select(outline_, row);
}

void TagTab::showSelection()
{
    artist_->setText(tags_.artistField());
    album_->setText(tags_.albumField());
    const bool selected = !tags_.selectedRows().isEmpty();
    artist_->setEnabled(selected);
    album_->setEnabled(selected);
    // The view follows selections the wrapper makes itself (the information action's first row).
    if (sortedSelectedRows(table_) != tags_.selectedRows()) {
        syncingSelection_ = true;
        QItemSelection selection;
        for (int row : tags_.selectedRows())
            selection.select(model_->index(row, 0), model_->index(row, model_->columnCount() - 1));
        table_->selectionModel()->select(selection, QItemSelectionModel::ClearAndSelect);
        syncingSelection_ = false;
    }
}

void TagTab::showArtwork()
{
    const QVariantMap record = tags_.currentArtwork();
    well_->showImage(record.value(QStringLiteral("Image")).value<QImage>());
    position_->setText(tags_.artworkLabel());
    size_->setText(tags_.artworkSizeText());
    const int type = pictureType_->findText(record.value(QStringLiteral("Picture Type")).toString());
    pictureType_->setCurrentIndex(tags_.artworkIndex() < 0 ? -1 : type);
    pictureType_->setEnabled(tags_.artworkIndex() >= 0);
}

void TagTab::chooseArtworkFile()
{
    if (tags_.selectedRows().isEmpty())
        return;
    QStringList patterns;
    for (const QByteArray& format : QImageReader::supportedImageFormats())
        patterns << QStringLiteral("*.") + QString::fromLatin1(format);
    auto* chooser = new QFileDialog(this, tr("Choose Artwork"), QString(),
                                    tr("Pictures (%1)").arg(patterns.join(QLatin1Char(' '))));
    chooser->setFileMode(QFileDialog::ExistingFile);
    chooser->setAttribute(Qt::WA_DeleteOnClose);
    connect(chooser, &QFileDialog::fileSelected, this, [this](const QString& file) {
        QImage image;
        if (!image.load(file) || !tags_.setArtworkImage(image))
            QMessageBox::warning(this, tr("Artwork"),
                                 tr("\u201c%1\u201d cannot be read as a picture.").arg(QFileInfo(file).fileName()));
    });
    chooser->open();
}

void TagTab::showInformation()
{
    const TagSourcesWrapper::Information information = tags_.showInformation();
    if (information.path.isEmpty())
        return;
    auto* sheet = new QDialog(this);
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    sheet->setWindowModality(Qt::WindowModal);
    sheet->setObjectName(QStringLiteral("tagInformation"));
    auto* layout = new QVBoxLayout(sheet);
    if (!information.frames.isEmpty()) {
        sheet->setWindowTitle(tr("ID3 Frames of %1").arg(QFileInfo(information.path).fileName()));
        auto* frames = new QPlainTextEdit(information.frames.trimmed());
        frames->setReadOnly(true);
        frames->setLineWrapMode(QPlainTextEdit::NoWrap);
        frames->setMinimumSize(520, 300);
        layout->addWidget(frames);
    } else {
        sheet->setWindowTitle(tr("Information"));
        auto* form = new QFormLayout;
        form->addRow(tr("Name:"), new QLabel(information.name));
        form->addRow(tr("Kind:"), new QLabel(information.extension));
        form->addRow(tr("Folder:"), new QLabel(information.folder));
        layout->addLayout(form);
    }
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    connect(buttons, &QDialogButtonBox::rejected, sheet, &QDialog::reject);
    layout->addWidget(buttons);
    sheet->open();
}

void TagTab::showProgress(const QVariantMap& progress)
{
    progress_ = progress;
    if (sheet_) {
        sheet_->setWindowTitle(progress.value("operation").toString());
        sheet_->setLabelText(progress.value("status").toString() + QLatin1Char('\n')
                             + progress.value("savefilename").toString());
    }
}

void TagTab::updateSheet()
{
    // The sheet stands while nothing can be shown yet, or while many files are written;
    // once the first rows of a search are in, the rest come in under the table.
    const bool searching = tags_.isFinding();
    const bool sheetWanted = (searching && tags_.rowCount() == 0)
                          || (!searching && tags_.isBusy() && tags_.selectedRows().size() > 1);
    findStatus_->setVisible(searching && !sheetWanted);
    findStatus_->setText(searching ? tr("Reading the tags of the files found; %1 so far").arg(tags_.rowCount())
                                   : QString());
    stop_->setVisible(searching && !sheetWanted);
    if (sheetWanted && !sheet_) {
        sheet_ = makeProgressSheet(this, tr("Stop; what has been done stays done"), [this] { tags_.stop(); });
        sheet_->setCancelButtonText(tr("Stop"));
        showProgress(progress_);
        sheet_->open();
    } else if (!sheetWanted && sheet_) {
        sheet_->close();
        sheet_->deleteLater();
        sheet_ = nullptr;
    }
}

void TagTab::askAboutUnsavedEdits(std::function<void(int button)> answered)
{
    auto* ask = new QMessageBox(QMessageBox::Question, tr("Unsaved Tags"),
                                tr("The tags you changed have not been written to the files yet."),
                                QMessageBox::Save | QMessageBox::Discard | QMessageBox::Cancel, this);
    ask->setObjectName(QStringLiteral("unsavedTags"));
    ask->setInformativeText(tr("Save writes them now; Discard forgets them."));
    ask->setDefaultButton(QMessageBox::Save);
    ask->setWindowModality(Qt::WindowModal);
    ask->setAttribute(Qt::WA_DeleteOnClose);
    connect(ask, &QMessageBox::finished, this, [ask, answered = std::move(answered)](int) {
        answered(ask->standardButton(ask->clickedButton()));
    });
    ask->open();
}

void TagTab::confirmLeaving(std::function<void()> proceed)
{
    if (!tags_.isDirty()) {
        proceed();
        return;
    }
    askAboutUnsavedEdits([this, proceed = std::move(proceed)](int button) {
        if (button == QMessageBox::Discard) {
            tags_.resolveUnsavedEdits(TagSourcesWrapper::UnsavedChoice::Discard);
            proceed();
        } else if (button == QMessageBox::Save) {
            if (!tags_.setTags()) {
                proceed();
                return;
            }
            auto once = std::make_shared<QMetaObject::Connection>();
            *once = connect(&tags_, &TagSourcesWrapper::saveFinished, this,
                            [this, once, proceed](const QStringList& failures) {
                                disconnect(*once);
                                if (failures.isEmpty() && !tags_.isDirty())
                                    proceed();
                            });
        }
    });
}

void TagTab::showSaveFailures(const QStringList& failures)
{
    updateSheet();
    if (failures.isEmpty())
        return;
    auto* alert = new QMessageBox(QMessageBox::Warning, tr("Tags Not Written"),
                                  tr("%n file(s) kept their old tags; your changes are still here to save again.",
                                     nullptr, int(failures.size())),
                                  QMessageBox::Ok, this);
    alert->setObjectName(QStringLiteral("tagsNotWritten"));
    alert->setDetailedText(failures.join(QLatin1Char('\n')));
    alert->setInformativeText(failures.mid(0, 3).join(QLatin1Char('\n')));
    alert->setWindowModality(Qt::WindowModal);
    alert->setAttribute(Qt::WA_DeleteOnClose);
    alert->open();
}

void TagTab::hideEvent(QHideEvent* event)
{
    tags_.leaveTable();
    QWidget::hideEvent(event);
}
