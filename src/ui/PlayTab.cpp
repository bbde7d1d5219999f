#include "ui/PlayTab.h"
#include "ui/FolderChooser.h"
#include "ui/SourceOutline.h"

#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "player/MqpWrapper.h"
#include "tabs/MusicSourcesWrapper.h"

#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QDialogButtonBox>
#include <QDragEnterEvent>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QImage>
#include <QLabel>
#include <QMimeData>
#include <QPixmap>
#include <QProgressDialog>
#include <QPushButton>
#include <QSlider>
#include <QSplitter>
#include <QStandardItemModel>
#include <QTableView>
#include <QToolButton>
#include <QTreeWidget>
#include <QVBoxLayout>

namespace {

constexpr int kRowRole = SourceOutline::kRowRole;

QString durationText(const QVariantMap& record)
{
    bool ok = false;
    const int seconds = record.value("duration").toString().toInt(&ok);
    return ok && seconds > 0 ? mqp_wrapper::timeText(seconds) : QString();
}

QIcon sourceIcon(PlaySourcesWrapper::SourceKind kind)
{
    switch (kind) {
    case PlaySourcesWrapper::SourceKind::Library:
        return QIcon::fromTheme(QStringLiteral("folder-music"), QIcon::fromTheme(QStringLiteral("folder")));
    case PlaySourcesWrapper::SourceKind::Playlist:
    case PlaySourcesWrapper::SourceKind::MediaSet:
        return QIcon::fromTheme(QStringLiteral("audio-x-generic"));
    case PlaySourcesWrapper::SourceKind::Disc:
        return QIcon::fromTheme(QStringLiteral("media-optical-audio"),
                                QIcon::fromTheme(QStringLiteral("media-optical")));
    case PlaySourcesWrapper::SourceKind::FlashPlayer:
        return QIcon::fromTheme(QStringLiteral("multimedia-player"),
                                QIcon::fromTheme(QStringLiteral("drive-removable-media")));
    case PlaySourcesWrapper::SourceKind::DropZone:
        return QIcon::fromTheme(QStringLiteral("document-open"));
    }
    return {};
}

}  // namespace

PlayTab::PlayTab(PlaySourcesWrapper& play, QWidget* parent)
    : QWidget(parent), play_(play), outline_(new FileDropTarget<QTreeWidget>(VLPSWFileDropNotification)),
      table_(new QTableView), songs_(new QStandardItemModel(this)),
      pauseButton_(makeToolButton("media-playback-pause", tr("Pause"), tr("Pause the song (not in its last moments)"))),
      volume_(new QSlider(Qt::Horizontal)), position_(new QSlider(Qt::Horizontal)),
      timeLabel_(new QLabel(QStringLiteral("00:00"))), nowPlayingLabel_(new QLabel), messageLabel_(new QLabel),
      loadingLabel_(new QLabel), formatCombo_(new QComboBox)
{
    // Sources.
    outline_->setHeaderHidden(true);
    outline_->setAcceptDrops(true);
    outline_->setToolTip(tr("Where the songs come from. Drop files or folders here to play them."));
    connect(outline_, &QTreeWidget::itemSelectionChanged, this, [this] {
        const QList<QTreeWidgetItem*> items = outline_->selectedItems();
        if (!items.isEmpty())
            play_.selectSource(items.first()->data(0, kRowRole).toInt());
    });
    auto* eject = makeToolButton("media-eject", tr("Eject"), tr("Eject the selected disc"));
    connect(eject, &QToolButton::clicked, &play_, &PlaySourcesWrapper::ejectSelectedCD);
    auto* sourcesPane = new QWidget;
    auto* sourcesLayout = new QVBoxLayout(sourcesPane);
    sourcesLayout->setContentsMargins(0, 0, 0, 0);
    sourcesLayout->addWidget(outline_, 1);
    auto* sourceButtons = new QHBoxLayout;
    sourceButtons->addWidget(eject);
    sourceButtons->addStretch();
    sourceButtons->addWidget(loadingLabel_);
    sourcesLayout->addLayout(sourceButtons);

    // The song table.
    table_->setModel(songs_);
    table_->setSelectionBehavior(QAbstractItemView::SelectRows);
    table_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    table_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    table_->verticalHeader()->hide();
    table_->verticalHeader()->setDefaultSectionSize(table_->fontMetrics().height() + 8);
    table_->setWordWrap(false);
    table_->horizontalHeader()->setStretchLastSection(false);
    table_->setToolTip(tr("Double-click a song to play it"));
    connect(table_, &QTableView::doubleClicked, this, [this](const QModelIndex& index) {
        play_.selectSong(index.row());
        play_.playSelectedSong();
    });
    rebuildSongTable();

    auto* splitter = new QSplitter;
    splitter->addWidget(sourcesPane);
    splitter->addWidget(table_);
    splitter->setStretchFactor(1, 1);

    // The player.
    auto* playButton = makeToolButton("media-playback-start", tr("Play"), tr("Play the selected song"));
    auto* stopButton = makeToolButton("media-playback-stop", tr("Stop"), tr("Stop playing"));
    auto* restartButton = makeToolButton("media-skip-backward", tr("Restart"), tr("Play the song from its start"));
    auto* nextButton = makeToolButton("media-skip-forward", tr("Next"), tr("Go on to the next song"));
    auto* infoButton =
        makeToolButton("dialog-information", tr("Information"), tr("What is known of the selected song"));
    connect(playButton, &QToolButton::clicked, &play_, &PlaySourcesWrapper::playSelectedSong);
    connect(stopButton, &QToolButton::clicked, &play_, &PlaySourcesWrapper::stopPlayingSong);
    connect(restartButton, &QToolButton::clicked, &play_, &PlaySourcesWrapper::restartSong);
    connect(nextButton, &QToolButton::clicked, &play_, &PlaySourcesWrapper::nextSong);
    connect(pauseButton_, &QToolButton::clicked, this, [this] {
        if (showsResume_)
            play_.resumePlaying();
        else
            play_.pausePlaying();
    });
    connect(infoButton, &QToolButton::clicked, this, [this] {
        const QList<int> rows = selectedRows();
        play_.showInformation(rows.isEmpty() ? play_.playingRow() : rows.first());
    });

    volume_->setRange(0, 100);
    volume_->setValue(play_.volume());
    volume_->setMaximumWidth(120);
    volume_->setToolTip(tr("Volume"));
    connect(volume_, &QSlider::valueChanged, &play_, &PlaySourcesWrapper::setVolume);
    position_->setRange(0, 100);
    position_->setToolTip(tr("Where the song is; drag to go elsewhere in it"));
    connect(position_, &QSlider::sliderReleased, this, [this] { play_.setTime(position_->value()); });

    // The four playback modes: at most one is on.
    const struct {
        PlaySourcesWrapper::Mode mode;
        const char* icon;
        QString text;
        QString tip;
    } modes[] = {
        {PlaySourcesWrapper::Repeat, "media-playlist-repeat", tr("Repeat"),
         tr("After the last song, start the list again")},
        {PlaySourcesWrapper::Shuffle, "media-playlist-shuffle", tr("Shuffle"),
         tr("Play the list in a new order, again and again")},
        {PlaySourcesWrapper::Stop, "process-stop", tr("Stop"), tr("After the last song, stop")},
        {PlaySourcesWrapper::Next, "go-next", tr("Next"), tr("After the last song, go on to the next source")},
    };
    auto* modesLayout = new QHBoxLayout;
    modesLayout->addWidget(new QLabel(tr("At the end:")));
    for (const auto& m : modes) {
        auto* button = makeToolButton(m.icon, m.text, m.tip);
        button->setCheckable(true);
        connect(button, &QToolButton::clicked, this,
                [this, mode = m.mode](bool checked) { play_.selectPlaybackMode(mode, checked); });
        modeButtons_ << button;
        modesLayout->addWidget(button);
    }
    showModes();

    auto* controls = new QHBoxLayout;
    for (QWidget* widget :
         {static_cast<QWidget*>(playButton), static_cast<QWidget*>(pauseButton_), static_cast<QWidget*>(stopButton),
          static_cast<QWidget*>(restartButton), static_cast<QWidget*>(nextButton)})
        controls->addWidget(widget);
    controls->addWidget(position_, 1);
    controls->addWidget(timeLabel_);
    auto* volumeIcon = new QLabel;
    volumeIcon->setPixmap(QIcon::fromTheme(QStringLiteral("audio-volume-high")).pixmap(16, 16));
    volumeIcon->setToolTip(tr("Volume"));
    controls->addWidget(volumeIcon);
    controls->addWidget(volume_);

    auto* actions = new QHBoxLayout;
    actions->addLayout(modesLayout);
    actions->addSpacing(20);
    actions->addWidget(infoButton);
    actions->addStretch();
    actions->addWidget(new QLabel(tr("Convert to")));
    formatCombo_->addItems(MusicSourcesWrapper::formatKeys());
    formatCombo_->setCurrentText(QStringLiteral("MP3"));
    formatCombo_->setToolTip(tr("The format the selected songs are converted to"));
    actions->addWidget(formatCombo_);
    auto* convert = new QPushButton(QIcon::fromTheme(QStringLiteral("document-save-as")), tr("Convert…"));
    convert->setToolTip(tr("Convert the selected songs (or all of them) into a folder you choose"));
    connect(convert, &QPushButton::clicked, this, &PlayTab::chooseSaveFolder);
    actions->addWidget(convert);

    messageLabel_->setWordWrap(true);
    messageLabel_->setStyleSheet(QStringLiteral("color: #a33;"));
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(splitter, 1);
    layout->addWidget(nowPlayingLabel_);
    layout->addLayout(controls);
    layout->addWidget(messageLabel_);
    layout->addLayout(actions);

    // What the tab's logic says.
    connect(&play_, &PlaySourcesWrapper::sourcesChanged, this, &PlayTab::rebuildOutline);
    connect(&play_, &PlaySourcesWrapper::sourceSelected, this, &PlayTab::showSourceSelected);
    connect(&play_, &PlaySourcesWrapper::songsChanged, this, &PlayTab::rebuildSongTable);
    connect(&play_, &PlaySourcesWrapper::songSelected, this, &PlayTab::showSongSelected);
    connect(&play_, &PlaySourcesWrapper::nowPlaying, this, &PlayTab::showPlaying);
    connect(&play_, &PlaySourcesWrapper::stateChanged, this, &PlayTab::showPlaying);
    connect(&play_, &PlaySourcesWrapper::progressChanged, this, &PlayTab::showProgress);
    connect(&play_, &PlaySourcesWrapper::modesChanged, this, &PlayTab::showModes);
    connect(&play_, &PlaySourcesWrapper::volumeChanged, this, [this](int volume) {
        const QSignalBlocker blocker(volume_);
        volume_->setValue(volume);
    });
    connect(&play_, &PlaySourcesWrapper::pauseButtonChanged, this, [this](bool showsResume) {
        showsResume_ = showsResume;
        pauseButton_->setText(showsResume ? tr("Resume") : tr("Pause"));
        pauseButton_->setIcon(QIcon::fromTheme(showsResume ? QStringLiteral("media-playback-start")
                                                           : QStringLiteral("media-playback-pause")));
        pauseButton_->setToolTip(showsResume ? tr("Go on playing") : tr("Pause the song (not in its last moments)"));
    });
    connect(&play_, &PlaySourcesWrapper::message, messageLabel_, &QLabel::setText);
    connect(&play_, &PlaySourcesWrapper::beep, this, [] { QApplication::beep(); });
    connect(&play_, &PlaySourcesWrapper::loadingChanged, this,
            [this](bool loading) { loadingLabel_->setText(loading ? tr("Reading the songs…") : QString()); });
    connect(&play_, &PlaySourcesWrapper::informationReady, this, &PlayTab::showInformation);
    play_.converter().setProgressHandler([this](const QVariantMap& progress) {
        QMetaObject::invokeMethod(this, [this, progress] { showSaveProgress(progress); });
    });
    connect(
        &play_.converter(), &MusicSourcesWrapper::progressSheetEnded, this,
        [this] {
            if (saveSheet_) {
                saveSheet_->close();
                saveSheet_->deleteLater();
                saveSheet_ = nullptr;
            }
        },
        Qt::QueuedConnection);

    rebuildOutline();
}

void PlayTab::rebuildOutline()
{
    QList<SourceOutline::Row> rows;
    for (const PlaySourcesWrapper::SourceRow& source : play_.sources())
        rows << SourceOutline::Row{source.title, source.path, sourceIcon(source.kind), source.level};
    SourceOutline::fill(outline_, rows, tr("Every song of %1"), play_.selectedSource());
}

void PlayTab::showSourceSelected(int row)
{
    SourceOutline::select(outline_, row);
}

void PlayTab::rebuildSongTable()
{
    songs_->clear();
    songs_->setHorizontalHeaderLabels({tr("Title"), tr("Artist"), tr("Album"), tr("Duration")});
    const QStringList songs = play_.songs();
    const QVariantList records = play_.records();
    for (int row = 0; row < songs.size(); ++row) {
        const QVariantMap record = records.value(row).toMap();
        const QString title = record.value("title").toString();
        QList<QStandardItem*> items{
            new QStandardItem(title.isEmpty() ? QFileInfo(songs[row]).completeBaseName() : title),
            new QStandardItem(record.value("artist").toString()), new QStandardItem(record.value("album").toString()),
            new QStandardItem(durationText(record))};
        items[0]->setToolTip(songs[row]);
        items[3]->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
        songs_->appendRow(items);
    }
    // The title takes the room left; a long artist or album is cut short, never wrapped.
    QHeaderView* header = table_->horizontalHeader();
    header->setSectionResizeMode(0, QHeaderView::Stretch);
    for (int column : {1, 2}) {
        header->setSectionResizeMode(column, QHeaderView::Interactive);
        header->resizeSection(column, 200);
    }
    header->setSectionResizeMode(3, QHeaderView::ResizeToContents);
    playingRow_ = -1;
    showPlaying();
}

void PlayTab::showSongSelected(int row)
{
    const QSignalBlocker blocker(table_->selectionModel());
    if (row < 0) {
        table_->clearSelection();
        return;
    }
    table_->selectRow(row);
    table_->scrollTo(songs_->index(row, 0));
}

void PlayTab::showPlaying()
{
    // The song playing is shown in bold.
    const int row = play_.state() == PlaySourcesWrapper::State::Stopped ? -1 : play_.playingRow();
    for (int r : {playingRow_, row}) {
        for (int column = 0; r >= 0 && r < songs_->rowCount() && column < songs_->columnCount(); ++column) {
            QStandardItem* item = songs_->item(r, column);
            QFont font = item->font();
            font.setBold(r == row);
            item->setFont(font);
        }
    }
    playingRow_ = row;
    if (row < 0) {
        nowPlayingLabel_->clear();
        position_->setValue(0);
        timeLabel_->setText(QStringLiteral("00:00"));
        return;
    }
    const QVariantMap record = play_.playingRecord();
    const QString title = record.value("title").toString();
    const QString artist = record.value("artist").toString();
    QString text = title.isEmpty() ? QFileInfo(play_.playingPath()).fileName() : title;
    if (!artist.isEmpty())
        text += QStringLiteral(" — ") + artist;
    if (play_.state() == PlaySourcesWrapper::State::Reading)
        text = tr("Reading %1 from the disc…").arg(text);
    nowPlayingLabel_->setText(text);
}

void PlayTab::showProgress(int value, const QString& text)
{
    if (!position_->isSliderDown())
        position_->setValue(value);
    timeLabel_->setText(text.isEmpty() ? QStringLiteral("00:00") : text);
}

void PlayTab::showModes()
{
    for (int i = 0; i < modeButtons_.size(); ++i)
        modeButtons_[i]->setChecked(play_.isModeOn(PlaySourcesWrapper::Mode(i)));
}

QList<int> PlayTab::selectedRows() const
{
    return sortedSelectedRows(table_);
}

void PlayTab::showInformation(const QVariantMap& information)
{
    auto* dialog = new QDialog(this);
    dialog->setWindowTitle(tr("Song Information"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    auto* form = new QFormLayout;
    const QImage art = information.value("artwork").value<QImage>();
    if (!art.isNull()) {
        auto* picture = new QLabel;
        picture->setPixmap(QPixmap::fromImage(art.scaled(160, 160, Qt::KeepAspectRatio, Qt::SmoothTransformation)));
        form->addRow(picture);
    }
    const struct {
        const char* key;
        QString label;
    } fields[] = {{"title", tr("Title")},     {"artist", tr("Artist")}, {"album", tr("Album")},
                  {"year", tr("Year")},       {"genre", tr("Genre")},   {"track", tr("Track")},
                  {"comment", tr("Comment")}, {"format", tr("Format")}, {"player", tr("Played by")},
                  {"path", tr("File")}};
    for (const auto& field : fields) {
        const QString value = information.value(field.key).toString();
        if (value.isEmpty())
            continue;
        auto* label = new QLabel(value);
        label->setTextInteractionFlags(Qt::TextSelectableByMouse);
        label->setWordWrap(true);
        form->addRow(field.label, label);
    }
    const QString duration = durationText(information);
    if (!duration.isEmpty())
        form->addRow(tr("Duration"), new QLabel(duration));
    form->addRow(tr("Size"), new QLabel(QLocale().formattedDataSize(information.value("size").toLongLong())));
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
    connect(buttons, &QDialogButtonBox::rejected, dialog, &QDialog::close);
    auto* layout = new QVBoxLayout(dialog);
    layout->addLayout(form);
    layout->addWidget(buttons);
    dialog->show();
}

void PlayTab::chooseSaveFolder()
{
    const QString formatKey = formatCombo_->currentText();
    const MusicSourcesWrapper::FolderChoice choice = MusicSourcesWrapper::folderChoiceFor(formatKey);
    openFolderChooser(this, tr("Export %1").arg(formatKey), MusicSourcesWrapper::chooseFolderMessage(formatKey),
                      choice.openIn, choice.newFolderName,
                      [this, formatKey](const QString& folder) { convertInto(formatKey, folder); });
}

void PlayTab::convertInto(const QString& formatKey, const QString& folder)
{
    if (!saveSheet_) {
        saveSheet_ = new QProgressDialog(this);
        saveSheet_->setWindowModality(Qt::WindowModal);
        saveSheet_->setRange(0, 0);
        saveSheet_->setMinimumDuration(0);
        saveSheet_->setAutoClose(false);
        saveSheet_->setAutoReset(false);
        connect(saveSheet_, &QProgressDialog::canceled, &play_.converter(), &MusicSourcesWrapper::terminateSave);
        saveSheet_->show();
    }
    play_.convertSongs(formatKey, folder, selectedRows());
}

void PlayTab::showSaveProgress(const QVariantMap& progress)
{
    if (!saveSheet_)
        return;
    if (progress.contains("operation"))
        saveSheet_->setWindowTitle(progress.value("operation").toString());
    if (progress.contains("status"))
        saveSheet_->setProperty("status", progress.value("status"));
    if (progress.contains("savefilename"))
        saveSheet_->setProperty("file", progress.value("savefilename"));
    saveSheet_->setLabelText(QStringLiteral("%1\n%2").arg(saveSheet_->property("status").toString(),
                                                          saveSheet_->property("file").toString()));
}
