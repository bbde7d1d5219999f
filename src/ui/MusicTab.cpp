#include "ui/MusicTab.h"

#include "tabs/AppControllers.h"
#include "tabs/CompilationModel.h"
#include "core/LibraryModel.h"
#include "tabs/MP3DataSource.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "core/TaskManager.h"
#include "playlists/M3uManager.h"
#include "ui/PlaylistPanel.h"

#include <QComboBox>
#include <QDragEnterEvent>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QMimeData>
#include <QProgressDialog>
#include <QPushButton>
#include <QSplitter>
#include <QTimer>
#include <QTreeView>
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

QString colourFor(MP3DataSource::FigureColor colour)
{
    return colour == MP3DataSource::FigureColor::Blue ? QStringLiteral("blue") : QStringLiteral("red");
}

} // namespace

MusicTab::MusicTab(AppControllers& controllers, QWidget* parent)
    : QWidget(parent),
      music_(controllers.musicSources()),
      compilation_(new MP3DataSource(this)),
      outline_(new SourcesOutline),
      otherSources_(new QListWidget),
      compilationView_(new QTreeView),
      sizeLabel_(new QLabel),
      missingLabel_(new QLabel),
      inFlightLabel_(new QLabel),
      m3uStatusLabel_(new QLabel),
      formatCombo_(new QComboBox),
      burnCombo_(new QComboBox),
      inFlightTimer_(new QTimer(this))
{
    // Sources: the library, then the drop zone and a mounted disc.
    auto* library = new LibraryModel(outline_);
    outline_->setModel(library);
    outline_->setHeaderHidden(true);
    outline_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    outline_->setDragEnabled(true);
    outline_->setAcceptDrops(true);
    outline_->setDropIndicatorShown(true);
    connect(outline_, &QTreeView::expanded, library, &LibraryModel::refresh);
    connect(outline_->selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] {
        if (outline_->selectionModel()->hasSelection()) {
            focus_ = Focus::Library;
            otherSources_->clearSelection();
        }
    });
    otherSources_->setMaximumHeight(70);
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
    auto* playlistPanel = new PlaylistPanel(controllers.playlists(), controllers.media(), controllers.hiddenPlaylists());
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

    // The compilation tree.
    compilationView_->setModel(compilation_->model());
    compilationView_->setSelectionModel(compilation_->selectionModel());
    compilationView_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    compilationView_->setDragDropMode(QAbstractItemView::DragDrop);
    compilationView_->setDefaultDropAction(Qt::MoveAction);
    compilationView_->setDropIndicatorShown(true);
    compilationView_->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    auto* compilationButtons = new QHBoxLayout;
    auto addButton = [&](QBoxLayout* layout, const QString& text, auto action) {
        auto* button = new QPushButton(text);
        layout->addWidget(button);
        connect(button, &QPushButton::clicked, this, action);
        return button;
    };
    addButton(compilationButtons, tr("Add Group"), [this] { compilation_->addGroup(); });
    addButton(compilationButtons, tr("Add Leaf"), [this] { compilation_->addLeaf(); });
    addButton(compilationButtons, tr("Delete"), [this] { compilation_->deleteSelections(); });
    addButton(compilationButtons, tr("Sort"), [this] { compilation_->sortData(); });
    compilationButtons->addStretch();
    compilationButtons->addWidget(new QLabel(tr("Size:")));
    compilationButtons->addWidget(sizeLabel_);
    compilationButtons->addWidget(new QLabel(tr("Missing:")));
    compilationButtons->addWidget(missingLabel_);
    connect(compilation_, &MP3DataSource::sizeChanged, this, &MusicTab::updateCompilationFigures);
    connect(compilation_, &MP3DataSource::searchSheetChanged, this, &MusicTab::showSearchSheet);
    auto* compilationPane = new QWidget;
    auto* compilationLayout = new QVBoxLayout(compilationPane);
    compilationLayout->setContentsMargins(0, 0, 0, 0);
    compilationLayout->addWidget(new QLabel(tr("Compilation")));
    compilationLayout->addWidget(compilationView_, 1);
    compilationLayout->addLayout(compilationButtons);

    auto* right = new QSplitter(Qt::Vertical);
    right->addWidget(playlistPanel);
    right->addWidget(compilationPane);
    auto* splitter = new QSplitter;
    splitter->addWidget(sourcesPane);
    splitter->addWidget(right);
    splitter->setStretchFactor(1, 1);

    // Actions.
    auto* actions = new QHBoxLayout;
    actions->addWidget(new QLabel(tr("Convert to")));
    formatCombo_->addItems(MusicSourcesWrapper::formatKeys());
    formatCombo_->setCurrentText(QStringLiteral("MP3"));
    actions->addWidget(formatCombo_);
    addButton(actions, tr("Convert…"), [this] { chooseSaveFolder(formatCombo_->currentText()); });
    actions->addSpacing(20);
    burnCombo_->addItems(MusicSourcesWrapper::burnKinds());
    connect(burnCombo_, &QComboBox::textActivated, this, &MusicSourcesWrapper::burnCDSetFormat);
    actions->addWidget(burnCombo_);
    addButton(actions, tr("Burn"), [this] { burn(); });
    addButton(actions, tr("Copy to Flash Player"), [this] { copyToFlash(); });
    actions->addStretch();
    actions->addWidget(m3uStatusLabel_);
    actions->addWidget(inFlightLabel_);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(splitter, 1);
    layout->addLayout(actions);

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
    connect(inFlightTimer_, &QTimer::timeout, this, &MusicTab::updateWorkInFlight);
    inFlightTimer_->start(500);

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

void MusicTab::chooseSaveFolder(const QString& formatKey)
{
    if (currentSelection().isEmpty()) {
        QMessageBox::information(this, tr("Nothing Selected"), tr("Select music in the sources first."));
        return;
    }
    auto* chooser = new QFileDialog(this, tr("Export %1").arg(formatKey), MusicSourcesWrapper::startingFolderFor(formatKey));
    chooser->setFileMode(QFileDialog::Directory);
    chooser->setOption(QFileDialog::ShowDirsOnly);
    chooser->setOption(QFileDialog::DontUseNativeDialog);  // so the explanation shows
    chooser->setLabelText(QFileDialog::LookIn, MusicSourcesWrapper::chooseFolderMessage(formatKey));
    chooser->setWindowModality(Qt::WindowModal);
    chooser->setAttribute(Qt::WA_DeleteOnClose);
    connect(chooser, &QFileDialog::finished, this, [this, chooser, formatKey](int result) {
        const QStringList chosen = chooser->selectedFiles();
        if (result == QDialog::Accepted && !chosen.isEmpty())
            convertInto(formatKey, chosen.first());
    });
    chooser->open();
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
    progressSheet_ = new QProgressDialog(this);
    progressSheet_->setWindowModality(Qt::WindowModal);
    progressSheet_->setRange(0, 0);
    progressSheet_->setMinimumDuration(0);
    progressSheet_->setAutoClose(false);
    progressSheet_->setAutoReset(false);
    auto* cancel = new QPushButton(tr("Cancel"));
    progressSheet_->setCancelButton(cancel);
    disconnect(progressSheet_, &QProgressDialog::canceled, progressSheet_, nullptr);
    connect(cancel, &QPushButton::clicked, this, [this, cancel] {
        music_.terminateSave();
        cancel->setEnabled(false);
    });
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
    otherSources_->addItem(QStringLiteral("%1 (%2)").arg(kDropZoneRow).arg(music_.dropZone().size()));
    const QVariantMap disc = music_.audioCD();
    if (!disc.isEmpty())
        otherSources_->addItem(tr("Audio CD: %1").arg(disc.value("freedbtitle").toString()));
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

void MusicTab::updateWorkInFlight()
{
    const int running = taskManager::sharedInstance().count();
    inFlightLabel_->setText(running > 0 ? tr("Encoding: %1 running").arg(running) : QString());
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
