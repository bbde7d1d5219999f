#include "ui/MusicTab.h"

#include "core/Defaults.h"
#include "core/LibraryModel.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "disc/AudioCDWrapper.h"
#include "disc/AudioDVDWrapper.h"
#include "disc/Eraser.h"
#include "disc/OpticalMediaWrapper.h"
#include "platform/Desktop.h"
#include "playlists/M3uManager.h"
#include "tabs/AppControllers.h"
#include "tabs/CompilationModel.h"
#include "tabs/MP3DataSource.h"
#include "ui/BurnDialogs.h"
#include "ui/FolderChooser.h"
#include "ui/LibraryOutline.h"
#include "ui/PlaylistPanel.h"
#include "ui/ProgressSheet.h"

#include <QComboBox>
#include <QDragEnterEvent>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QIcon>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QMimeData>
#include <QProgressDialog>
#include <QPushButton>
#include <QSplitter>
#include <QTreeView>
#include <QUrl>
#include <QVBoxLayout>

namespace {

QStringList localFiles(const QMimeData* mime)
{
    QStringList files;
    if (!mime || !mime->hasUrls())
        return files;
    for (const QUrl& url : mime->urls())
        if (url.isLocalFile())
            files << url.toLocalFile();
    return files;
}

// The library outline of the Music tab; files dropped on it from the desktop
// become the drop zone's contents.
class SourcesOutline : public QTreeView {
public:
    using QTreeView::QTreeView;

protected:
    void dragEnterEvent(QDragEnterEvent* event) override
    {
        if (event->source() != this && !localFiles(event->mimeData()).isEmpty())
            event->acceptProposedAction();
        else
            QTreeView::dragEnterEvent(event);
    }
    void dragMoveEvent(QDragMoveEvent* event) override
    {
        if (event->source() != this && !localFiles(event->mimeData()).isEmpty())
            event->acceptProposedAction();
        else
            QTreeView::dragMoveEvent(event);
    }
    void dropEvent(QDropEvent* event) override
    {
        const QStringList files = localFiles(event->mimeData());
        if (event->source() == this || files.isEmpty())
            return;
        event->acceptProposedAction();
        NotificationCenter::defaultCenter().post(
            VLMSWFileDropNotification,
            QVariantMap{{"sender", QVariant::fromValue<QObject*>(this)}, {"filearray", files}});
    }
};

const QString kDropZoneRow = QStringLiteral("Dropped Files");
constexpr char kFormatKey[] = "mConvertFormatStored";
constexpr char kBurnKindKey[] = "mBurnCDFormatPopup";

QString colourFor(MP3DataSource::FigureColor colour)
{
    return colour == MP3DataSource::FigureColor::Blue ? QStringLiteral("blue") : QStringLiteral("red");
}

} // namespace

MusicTab::MusicTab(AppControllers& controllers, QWidget* parent)
    : QWidget(parent), music_(controllers.musicSources()), compilation_(new MP3DataSource(this)),
      outline_(new SourcesOutline), otherSources_(new QListWidget), compilationView_(new QTreeView),
      sizeLabel_(new QLabel), missingLabel_(new QLabel), m3uStatusLabel_(new QLabel), formatCombo_(new QComboBox),
      burnCombo_(new QComboBox)
{
    // Sources: the library, then the drop zone and a mounted disc.
    setUpLibraryOutline(outline_, QStringLiteral("musicLibraryOutline"));
    outline_->setAcceptDrops(true);
    outline_->setDropIndicatorShown(true);
    outline_->setToolTip(tr("Drop files here to convert, burn or copy just those"));
    connect(outline_->selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] {
        if (outline_->selectionModel()->hasSelection()) {
            focus_ = Focus::Library;
            otherSources_->clearSelection();
        }
    });
    otherSources_->setMaximumHeight(70);
    otherSources_->setObjectName(QStringLiteral("otherSources"));
    connect(otherSources_, &QListWidget::itemSelectionChanged, this, [this] {
        const QList<QListWidgetItem*> items = otherSources_->selectedItems();
        if (items.isEmpty())
            return;
        focus_ = items.first()->text().startsWith(kDropZoneRow) ? Focus::DropZone : Focus::AudioCD;
        outline_->clearSelection();
    });
    auto* sourcesPane = new QWidget;
    auto* sourcesLayout = new QVBoxLayout(sourcesPane);
    sourcesLayout->setContentsMargins(0, 0, 0, 0);
    sourcesLayout->addWidget(new QLabel(tr("Library")));
    sourcesLayout->addWidget(outline_, 1);
    sourcesLayout->addWidget(otherSources_);

    // Playlists and media sets.
    playlistPanel_ = new PlaylistPanel(controllers.playlists(), controllers.media(), controllers.hiddenPlaylists());
    connect(playlistPanel_, &PlaylistPanel::newPlaylistRequested, this, &MusicTab::newPlaylist);
    connect(playlistPanel_, &PlaylistPanel::exportRequested, this, &MusicTab::exportM3U);
    NotificationCenter& center = NotificationCenter::defaultCenter();
    center.addObserver(this, VLDidSelectPlaylistNotification, [this](const Notification& n) {
        const QString path = n.object.toString();
        QMetaObject::invokeMethod(this, [this, path] {
            selectedPlaylist_ = path;
            focus_ = Focus::Playlist;
        });
    });
    center.addObserver(this, VLDidSelectMediaNotification, [this](const Notification& n) {
        const QString path = n.object.toString();
        QMetaObject::invokeMethod(this, [this, path] {
            selectedMediaSet_ = path;
            focus_ = Focus::MediaSet;
        });
    });
    // A deleted playlist is no source any more.
    center.addObserver(this, VLPlaylistInfoNotification, [this](const Notification&) {
        QMetaObject::invokeMethod(this, [this] {
            if (!selectedPlaylist_.isEmpty() && !QFileInfo::exists(selectedPlaylist_))
                selectedPlaylist_.clear();
        });
    });

    // The compilation tree: names with their icons; what kind a row is shows in its icon.
    compilationView_->setObjectName(QStringLiteral("compilationView"));
    compilationView_->setModel(compilation_->model());
    compilationView_->setColumnHidden(CompilationModel::IsExpandableColumn, true);
    compilationView_->setColumnHidden(CompilationModel::NodeKindColumn, true);
    compilationView_->setSelectionModel(compilation_->selectionModel());
    compilationView_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    compilationView_->setDragDropMode(QAbstractItemView::DragDrop);
    compilationView_->setDefaultDropAction(Qt::MoveAction);
    compilationView_->setDropIndicatorShown(true);
    compilationView_->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    auto* compilationButtons = new QHBoxLayout;
    auto addButton = [&](QBoxLayout* layout, const QString& text, const QString& toolTip, auto action) {
        auto* button = new QPushButton(text);
        button->setToolTip(toolTip);
        layout->addWidget(button);
        connect(button, &QPushButton::clicked, this, action);
        return button;
    };
    addButton(compilationButtons, tr("New Group"), tr("Add a group (a folder on the disc or player) to the playlist"),
              [this] { compilation_->addGroup(); });
    addButton(compilationButtons, tr("New Entry"), tr("Add an entry to the playlist; type a file's path as its name"),
              [this] { compilation_->addLeaf(); });
    addButton(compilationButtons, tr("Remove"), tr("Remove the selected entries from the playlist (not from the disk)"),
              [this] { compilation_->deleteSelections(); });
    addButton(compilationButtons, tr("Sort"), tr("Sort the playlist by name"), [this] { compilation_->sortData(); });
    compilationButtons->addStretch();
    compilationButtons->addWidget(new QLabel(tr("Size:")));
    compilationButtons->addWidget(sizeLabel_);
    sizeLabel_->setToolTip(tr("Blue while the playlist fits on a CD (650 MB), red when it does not"));
    compilationButtons->addWidget(new QLabel(tr("Missing files:")));
    compilationButtons->addWidget(missingLabel_);
    missingLabel_->setToolTip(tr("Entries whose files cannot be found"));
    connect(compilation_, &MP3DataSource::sizeChanged, this, &MusicTab::updateCompilationFigures);
    connect(compilation_, &MP3DataSource::searchSheetChanged, this, &MusicTab::showSearchSheet);
    auto* compilationPane = new QWidget;
    auto* compilationLayout = new QVBoxLayout(compilationPane);
    compilationLayout->setContentsMargins(0, 0, 0, 0);
    compilationLayout->addWidget(new QLabel(tr("Playlist contents (drop music here)")));
    compilationLayout->addWidget(compilationView_, 1);
    compilationLayout->addLayout(compilationButtons);

    auto* right = new QSplitter(Qt::Vertical);
    right->setObjectName(QStringLiteral("musicRightSplitter"));
    right->addWidget(playlistPanel_);
    right->addWidget(compilationPane);
    auto* splitter = new QSplitter;
    splitter->setObjectName(QStringLiteral("musicSplitter"));
    splitter->addWidget(sourcesPane);
    splitter->addWidget(right);
    splitter->setStretchFactor(0, 3);
    splitter->setStretchFactor(1, 2);
    splitter->setSizes({3000, 2000});  // the library's columns want the room first

    // Actions.
    auto* actions = new QHBoxLayout;
    actions->addWidget(new QLabel(tr("Convert to")));
    formatCombo_->setObjectName(QStringLiteral("convertFormat"));
    formatCombo_->setToolTip(tr("The format the selected music is converted to"));
    formatCombo_->addItems(MusicSourcesWrapper::formatKeys());
    const QString storedFormat = Defaults::standard().stringForKey(kFormatKey);
    formatCombo_->setCurrentText(MusicSourcesWrapper::formatKeys().contains(storedFormat) ? storedFormat
                                                                                          : QStringLiteral("MP3"));
    connect(formatCombo_, &QComboBox::currentTextChanged, this, [](const QString& format) {
        Defaults::standard().setObject(kFormatKey, format);
        Defaults::standard().synchronize();
    });
    actions->addWidget(formatCombo_);
    addButton(actions, tr("Convert…"), tr("Convert the selected music into a folder you choose (Ctrl+Shift+C)"),
              [this] { convert(); })
        ->setObjectName(QStringLiteral("convert"));
    actions->addSpacing(20);
    burnCombo_->setObjectName(QStringLiteral("burnKind"));
    burnCombo_->setToolTip(tr("What kind of disc to burn"));
    burnCombo_->addItems(MusicSourcesWrapper::burnKinds());
    if (const int kind = burnCombo_->findText(Defaults::standard().stringForKey(kBurnKindKey)); kind >= 0)
        burnCombo_->setCurrentIndex(kind);
    connect(burnCombo_, &QComboBox::textActivated, this, &MusicSourcesWrapper::burnCDSetFormat);
    actions->addWidget(burnCombo_);
    QPushButton* burnButton = addButton(
        actions, tr("Burn"), tr("Burn the selected music onto a disc of the kind chosen"), [this] { burn(); });
    burnButton->setObjectName(QStringLiteral("burn"));
    burnButton->setIcon(QIcon::fromTheme(QStringLiteral("media-optical-burn")));
    QPushButton* eraseButton = addButton(actions, tr("Erase Disc…"), tr("Erase the rewritable disc in a burner"),
                                         [&controllers] { controllers.discEraser().eraseCD(); });
    eraseButton->setObjectName(QStringLiteral("eraseDisc"));
    eraseButton->setIcon(QIcon::fromTheme(QStringLiteral("edit-clear")));
    QPushButton* flashButton = addButton(actions, tr("Copy to Flash Player"),
                                         tr("Copy the selected music onto a flash player"), [this] { copyToFlash(); });
    flashButton->setObjectName(QStringLiteral("copyToFlash"));
    flashButton->setIcon(QIcon::fromTheme(QStringLiteral("drive-removable-media")));
    actions->addStretch();
    actions->addWidget(m3uStatusLabel_);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(splitter, 1);
    layout->addLayout(actions);
    connectBurners(controllers);

    // The save thread reports through the main thread.
    music_.setProgressHandler([this](const QVariantMap& progress) {
        QMetaObject::invokeMethod(this, [this, progress] { showProgress(progress); });
    });
    connect(&music_, &MusicSourcesWrapper::progressSheetShown, this, &MusicTab::showProgressSheet,
            Qt::QueuedConnection);
    connect(&music_, &MusicSourcesWrapper::progressSheetEnded, this, &MusicTab::endProgressSheet,
            Qt::QueuedConnection);
    connect(&music_, &MusicSourcesWrapper::sourcesChanged, this, &MusicTab::refreshOtherSources,
            Qt::QueuedConnection);
    connect(&music_, &MusicSourcesWrapper::dropZoneFilled, this, [this] {
        refreshOtherSources();
        otherSources_->setCurrentRow(0);
        otherSources_->item(0)->setSelected(true);
        focus_ = Focus::DropZone;
    }, Qt::QueuedConnection);
    connect(&controllers.m3u(), &m3uManager::statusChanged, this,
            [this](const QString& status) { m3uStatusLabel_->setText(status); }, Qt::QueuedConnection);
    connect(
        &controllers.m3u(), &m3uManager::written, this,
        [this](const QString& playlist, const QStringList& files) {
            if (playlist == std::exchange(exporting_, QString()))
                showExported(files);
        },
        Qt::QueuedConnection);
    // Each file's conversion shows in the job list; the end of the batch here.
    connect(&music_, &MusicSourcesWrapper::batchFinished, this, &MusicTab::showBatchSummary, Qt::QueuedConnection);

    refreshOtherSources();
    updateCompilationFigures();
}

MusicTab::~MusicTab()
{
    NotificationCenter::defaultCenter().removeObserver(this);
    music_.setProgressHandler({});
}

MusicSourcesWrapper::Selection MusicTab::currentSelection() const
{
    MusicSourcesWrapper::Selection selection;
    switch (focus_) {
    case Focus::Library: {
        const auto* model = static_cast<LibraryModel*>(outline_->model());
        for (const QModelIndex& index : outline_->selectionModel()->selectedRows())
            selection << MusicSourcesWrapper::Source::library(model->fullPath(index));
        break;
    }
    case Focus::DropZone:
        selection = music_.dropZoneSelection();
        break;
    case Focus::AudioCD: {
        QVariantMap entry = music_.audioCD();
        entry.insert("selectedalbum", 0);
        selection << MusicSourcesWrapper::Source::playlist(entry);
        break;
    }
    case Focus::Playlist:
        selection << MusicSourcesWrapper::Source::playlist({{"playlistpath", selectedPlaylist_}});
        break;
    case Focus::MediaSet:
        selection << MusicSourcesWrapper::Source::playlist({{"playlistgrouppath", selectedMediaSet_}});
        break;
    }
    return selection;
}

void MusicTab::convert()
{
    chooseSaveFolder(formatCombo_->currentText());
}

void MusicTab::chooseSaveFolder(const QString& formatKey)
{
    if (currentSelection().isEmpty()) {
        QMessageBox::information(this, tr("Nothing Selected"),
                                 tr("Select music in the library, a playlist or a media set first."));
        return;
    }
    const MusicSourcesWrapper::FolderChoice choice = MusicSourcesWrapper::folderChoiceFor(formatKey);
    openFolderChooser(this, tr("Convert to %1").arg(formatKey), MusicSourcesWrapper::chooseFolderMessage(formatKey),
                      choice.openIn, choice.newFolderName,
                      [this, formatKey](const QString& folder) { convertInto(formatKey, folder); });
}

void MusicTab::newPlaylist()
{
    const QString path = compilation_->newPlaylist();
    // A failure is in the job list; the new playlist's name is ready for typing.
    if (!path.isEmpty())
        playlistPanel_->selectAndRename(path);
}

void MusicTab::exportM3U()
{
    const QString playlist = compilation_->currentPlaylist();
    if (playlist.isEmpty()) {
        QMessageBox::information(this, tr("Export M3U"), tr("Select a playlist first."));
        return;
    }
    exporting_ = playlist;
    compilation_->exportM3U();
}

void MusicTab::showExported(const QStringList& files)
{
    const QString made = files.value(0);
    QString text = tr("The M3U playlist \u201c%1\u201d is in \u201c%2\u201d.")
                       .arg(QFileInfo(made).fileName(), QFileInfo(made).path());
    if (files.size() > 1)
        text += ' ' + tr("A copy is in \u201c%1\u201d.").arg(QFileInfo(files.at(1)).path());
    auto* box = new QMessageBox(QMessageBox::Information, tr("Export M3U"), text, QMessageBox::Ok, this);
    box->setObjectName(QStringLiteral("m3uExported"));
    box->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto* openFolder = box->addButton(tr("Open Folder"), QMessageBox::ActionRole);
    openFolder->setToolTip(tr("Show the folder in the file manager"));
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowModality(Qt::WindowModal);
    connect(box, &QMessageBox::finished, this, [this, box, openFolder, folder = QFileInfo(files.last()).path()] {
        if (box->clickedButton() == openFolder && !Desktop::openUrl(QUrl::fromLocalFile(folder).toString()))
            QMessageBox::warning(this, tr("Open Folder"),
                                 tr("No program could show \u201c%1\u201d. Is a file manager installed?").arg(folder));
    });
    box->open();
}

void MusicTab::showBatchSummary(const MusicSourcesWrapper::BatchSummary& summary)
{
    emit statusMessage(summary.text());
    if (summary.problems.isEmpty())
        return;
    // Failed jobs stay in the job list too; this says it once for the whole batch.
    auto* box = new QMessageBox(QMessageBox::Warning, tr("Some Files Were Not Converted"), summary.text(),
                                QMessageBox::Ok, this);
    box->setObjectName(QStringLiteral("batchProblems"));
    box->setInformativeText(summary.problems.mid(0, 5).join('\n'));
    if (summary.problems.size() > 5)
        box->setDetailedText(summary.problems.join('\n'));
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowModality(Qt::WindowModal);
    box->open();
}

void MusicTab::convertInto(const QString& formatKey, const QString& folder)
{
    music_.chooseSaveFolderDidEnd(true, folder, formatKey, currentSelection());
}

void MusicTab::burn()
{
    static const QHash<QString, const char*> requests = {
        {"Burn Audio CD", VLBurnAudioCDWithArrayNotification},
        {"Burn Music CD/DVD", VLBurnOpticalMediaWithDictionaryNotification},
        {"Burn MP3 CD/DVD", VLBurnOpticalMediaWithDictionaryNotification},
        {"Burn DVD-Audio", VLBurnAudioDVDWithArrayNotification}};
    const QString kind = burnCombo_->currentText();
    if (!MusicSourcesWrapper::isServed(requests.value(kind))) {
        QMessageBox::information(this, kind, tr("Burning discs is not available yet."));
        return;
    }
    music_.burnCDDispatcher(kind, currentSelection());
}

void MusicTab::connectBurners(AppControllers& controllers)
{
    // Each sheet is window-modal and answers the burner that asked for it.
    auto openSheet = [this](QDialog* sheet, std::function<void(bool accepted)> answer) {
        sheet->setAttribute(Qt::WA_DeleteOnClose);
        sheet->setWindowModality(Qt::WindowModal);
        connect(sheet, &QDialog::finished, this, [answer](int result) { answer(result == QDialog::Accepted); });
        sheet->open();
    };
    AudioCDWrapper& audioCD = controllers.audioCD();
    OpticalMediaWrapper& optical = controllers.opticalMedia();
    eraser& erasing = controllers.discEraser();
    BurnDrives& drives = controllers.burnDrives();
    connect(&audioCD, &AudioCDWrapper::setupRequested, this, [this, openSheet, &audioCD, &drives](const QString& description) {
        auto* sheet = new BurnSetupDialog(drives, description, QStringLiteral("cue"), this);
        openSheet(sheet, [&audioCD, sheet](bool accepted) { audioCD.handleSetupSheet(accepted, sheet->setup()); });
    });
    AudioDVDWrapper& audioDVD = controllers.audioDVD();
    connect(&audioDVD, &AudioDVDWrapper::setupRequested, this, [this, openSheet, &audioDVD, &drives](const QString& description) {
        auto* sheet = new BurnSetupDialog(drives, description, QStringLiteral("iso"), this);
        openSheet(sheet, [&audioDVD, sheet](bool accepted) { audioDVD.handleSetupSheet(accepted, sheet->setup()); });
    });
    connect(&optical, &OpticalMediaWrapper::sizeWarningRequested, this,
            [this, &optical](const QString& title, const QString& text) {
                auto* sheet = new QMessageBox(QMessageBox::Question, title, title, QMessageBox::Yes | QMessageBox::No, this);
                sheet->setInformativeText(text);
                sheet->setObjectName(QStringLiteral("burnSizeWarning"));
                sheet->setAttribute(Qt::WA_DeleteOnClose);
                sheet->setWindowModality(Qt::WindowModal);
                connect(sheet, &QMessageBox::finished, this,
                        [&optical](int button) { optical.handleNotFullSheet(button == QMessageBox::Yes); });
                sheet->open();
            });
    connect(&optical, &OpticalMediaWrapper::setupRequested, this, [this, openSheet, &optical, &drives](const QString& description) {
        auto* sheet = new BurnSetupDialog(drives, description, QStringLiteral("iso"), this);
        openSheet(sheet, [&optical, sheet](bool accepted) { optical.handleSetupSheet(accepted, sheet->setup()); });
    });
    connect(&erasing, &eraser::setupRequested, this, [this, openSheet, &erasing, &drives] {
        auto* sheet = new EraseDialog(drives, this);
        openSheet(sheet, [&erasing, sheet](bool accepted) {
            erasing.handleSetupSheet(accepted, sheet->drive(), sheet->full());
        });
    });
    // How a burn or an erase ended goes to the status line; a failure also stays in the job list.
    connect(&audioCD, &AudioCDWrapper::burnEnded, this, &MusicTab::statusMessage);
    connect(&optical, &OpticalMediaWrapper::burnEnded, this, &MusicTab::statusMessage);
    connect(&audioDVD, &AudioDVDWrapper::burnEnded, this, &MusicTab::statusMessage);
    connect(&erasing, &eraser::eraseEnded, this, &MusicTab::statusMessage);
}

void MusicTab::copyToFlash()
{
    if (!MusicSourcesWrapper::isServed(VLV20CopyToFlashSetupNotification)) {
        QMessageBox::information(this, tr("Copy to Flash Player"), tr("Copying to a flash player is not available yet."));
        return;
    }
    music_.copyToFlash(currentSelection());
}

void MusicTab::showProgressSheet()
{
    if (progressSheet_)
        return;
    progressSheet_ = makeProgressSheet(
        this, tr("Stop handing files over; conversions already started can be cancelled in the job list"),
        [this] { music_.terminateSave(); });
    progressSheet_->show();
}

void MusicTab::showProgress(const QVariantMap& progress)
{
    if (progress.contains("operation"))
        operation_ = progress.value("operation").toString();
    if (progress.contains("status"))
        status_ = progress.value("status").toString();
    if (progress.contains("savefilename"))
        saveFileName_ = progress.value("savefilename").toString();
    if (progressSheet_) {
        progressSheet_->setWindowTitle(operation_);
        progressSheet_->setLabelText(QStringLiteral("<b>%1</b><br>%2<br>%3")
                                         .arg(operation_.toHtmlEscaped(), status_.toHtmlEscaped(),
                                              saveFileName_.toHtmlEscaped()));
    }
}

void MusicTab::endProgressSheet()
{
    if (!progressSheet_)
        return;
    progressSheet_->close();
    progressSheet_->deleteLater();
    progressSheet_ = nullptr;
}

void MusicTab::refreshOtherSources()
{
    const QSignalBlocker blocker(otherSources_);
    const bool dropZoneSelected = focus_ == Focus::DropZone;
    otherSources_->clear();
    auto* dropZone = new QListWidgetItem(
        QIcon::fromTheme(QStringLiteral("folder-download"), QIcon::fromTheme(QStringLiteral("folder"))),
        QStringLiteral("%1 (%2)").arg(kDropZoneRow).arg(music_.dropZone().size()), otherSources_);
    dropZone->setToolTip(tr("Files dropped on the library column"));
    const QVariantMap disc = music_.audioCD();
    if (!disc.isEmpty())
        new QListWidgetItem(QIcon::fromTheme(QStringLiteral("media-optical")),
                            tr("Audio CD: %1").arg(disc.value("freedbtitle").toString()), otherSources_);
    if (dropZoneSelected)
        otherSources_->item(0)->setSelected(true);
}

void MusicTab::updateCompilationFigures()
{
    sizeLabel_->setText(tr("%1 MB").arg(compilation_->totalMegabytes()));
    sizeLabel_->setStyleSheet(QStringLiteral("color: %1").arg(colourFor(compilation_->sizeColor())));
    missingLabel_->setText(QString::number(compilation_->missingFiles()));
    missingLabel_->setStyleSheet(QStringLiteral("color: %1").arg(colourFor(compilation_->missingColor())));
}

void MusicTab::showSearchSheet(bool shown)
{
    if (!shown) {
        if (searchSheet_) {
            searchSheet_->close();
            searchSheet_->deleteLater();
            searchSheet_ = nullptr;
        }
        return;
    }
    if (searchSheet_)
        return;
    searchSheet_ = new QProgressDialog(MP3DataSource::searchSheetMessage, MP3DataSource::searchSheetButton, 0, 0, this);
    searchSheet_->setWindowTitle(MP3DataSource::searchSheetTitle);
    searchSheet_->setWindowModality(Qt::WindowModal);
    searchSheet_->setMinimumDuration(0);
    connect(searchSheet_, &QProgressDialog::canceled, compilation_, &MP3DataSource::cancelSearch);
    searchSheet_->show();
}
