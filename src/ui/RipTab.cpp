#include "ui/RipTab.h"

#include "tabs/AppControllers.h"
#include "tabs/RipSourcesWrapper.h"
#include "ui/ProgressSheet.h"
#include "ui/RipSettingsSheet.h"

#include <QCheckBox>
#include <QComboBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QProgressDialog>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

namespace {

enum Column { Tick, Number, Title, Artist, Duration };

QString minutes(qint64 sectors)
{
    const qint64 seconds = (sectors + 74) / 75;
    return QString::asprintf("%lld:%02lld", seconds / 60, seconds % 60);
}

}  // namespace

RipTab::RipTab(AppControllers& controllers, QWidget* parent)
    : QWidget(parent), rip_(controllers.ripSources()), disc_(new QComboBox), album_(new QComboBox),
      eject_(new QPushButton(tr("Eject"))), tracks_(new QTableWidget(0, 5)), format_(new QComboBox),
      preview_(new QLabel), cacheLabel_(new QLabel), background_(new QCheckBox(tr("Rip in background"))),
      log_(new QCheckBox(tr("Write a rip log"))), clip_(new QCheckBox(tr("Make a clip of each track")))
{
    // The disc, its FreeDB matches, eject.
    auto* discRow = new QHBoxLayout;
    discRow->addWidget(new QLabel(tr("Disc:")));
    discRow->addWidget(disc_, 2);
    discRow->addWidget(new QLabel(tr("Album:")));
    discRow->addWidget(album_, 2);
    discRow->addWidget(eject_);
    connect(disc_, &QComboBox::activated, this,
            [this](int index) { rip_.selectDisc(disc_->itemData(index).toString()); });
    connect(album_, &QComboBox::activated, this, [this](int index) { rip_.selectAlbum(index); });
    connect(eject_, &QPushButton::clicked, this, [this] { rip_.ejectSelectedCD(); });
    eject_->setToolTip(tr("Eject the selected disc"));

    // The tracks.
    tracks_->setHorizontalHeaderLabels({tr("Rip"), tr("#"), tr("Title"), tr("Artist"), tr("Duration")});
    tracks_->verticalHeader()->hide();
    tracks_->setSelectionBehavior(QAbstractItemView::SelectRows);
    tracks_->setSelectionMode(QAbstractItemView::SingleSelection);
    tracks_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    tracks_->horizontalHeader()->setSectionResizeMode(Title, QHeaderView::Stretch);
    tracks_->horizontalHeader()->setSectionResizeMode(Artist, QHeaderView::Stretch);
    connect(tracks_, &QTableWidget::itemChanged, this, [this](QTableWidgetItem* item) {
        if (!refreshing_ && item->column() == Tick)
            rip_.setTrackSelected(item->row(), item->checkState() == Qt::Checked);
    });
    connect(tracks_, &QTableWidget::currentCellChanged, this, [this](int row) {
        if (!refreshing_ && row >= 0)
            rip_.setCurrentTrack(row);
    });
    auto* allRow = new QHBoxLayout;
    auto* all = new QPushButton(tr("Select All"));
    auto* none = new QPushButton(tr("Select None"));
    connect(all, &QPushButton::clicked, this, [this] { rip_.selectAllTracks(true); });
    connect(none, &QPushButton::clicked, this, [this] { rip_.selectAllTracks(false); });
    all->setToolTip(tr("Tick every track of the disc"));
    none->setToolTip(tr("Untick every track of the disc"));
    allRow->addWidget(all);
    allRow->addWidget(none);
    allRow->addStretch();

    // The rip actions and the naming of the selected track.
    format_->addItems(RipSourcesWrapper::actionNames());
    format_->setCurrentText(QStringLiteral("MP3"));
    auto* ripSelected = new QPushButton(tr("Rip…"));
    auto* ripAll = new QPushButton(tr("Rip All Tracks…"));
    auto* settings = new QPushButton(tr("Settings…"));
    connect(ripSelected, &QPushButton::clicked, this, [this] { rip_.convertTo(format_->currentText(), false); });
    connect(ripAll, &QPushButton::clicked, this, [this] { rip_.convertTo(format_->currentText(), true); });
    connect(settings, &QPushButton::clicked, this, &RipTab::showSettings);
    ripSelected->setToolTip(tr("Rip the ticked tracks into the chosen format"));
    ripAll->setToolTip(tr("Rip every track of the disc into the chosen format"));
    settings->setToolTip(tr("Encoder settings and file names of the chosen format"));
    connect(format_, &QComboBox::currentTextChanged, this, &RipTab::refreshPreview);
    auto* actionRow = new QHBoxLayout;
    actionRow->addWidget(new QLabel(tr("Rip to")));
    for (QWidget* widget : std::initializer_list<QWidget*>{format_, settings, ripSelected, ripAll})
        actionRow->addWidget(widget);
    actionRow->addStretch();
    preview_->setTextInteractionFlags(Qt::TextSelectableByMouse);
    preview_->setWordWrap(true);

    // Where intermediates go, background rips, the log, the clip.
    auto* cache = new QPushButton(tr("Cache Folder…"));
    connect(cache, &QPushButton::clicked, this, &RipTab::chooseCacheFolder);
    cache->setToolTip(tr("The folder that holds the tracks read from the disc while they are encoded"));
    background_->setChecked(rip_.settings().inBackground);
    log_->setChecked(rip_.settings().writeLog);
    connect(background_, &QCheckBox::toggled, this, [this](bool on) { rip_.setRipInBackground(on); });
    connect(log_, &QCheckBox::toggled, this, [this](bool on) { rip_.setWriteLog(on); });
    auto* optionRow = new QHBoxLayout;
    for (QWidget* widget : std::initializer_list<QWidget*>{background_, log_, cache, cacheLabel_})
        optionRow->addWidget(widget);
    optionRow->addStretch();

    const QVariantMap clip = rip_.settings().clip;
    clip_->setChecked(clip.value(QStringLiteral("mRipClipStored")).toInt() == 1);
    connect(clip_, &QCheckBox::toggled, this,
            [this](bool on) { rip_.setClipValue(QStringLiteral("mRipClipStored"), on ? 1 : 0); });
    auto* clipRow = new QHBoxLayout;
    clipRow->addWidget(clip_);
    const std::pair<const char*, QString> clipKeys[] = {{"mRipClipStartStored", tr("Start (s):")},
                                                        {"mRipClipDurationStored", tr("Length (s):")},
                                                        {"mRipClipFadeInStored", tr("Fade in (s):")},
                                                        {"mRipClipFadeOutStored", tr("Fade out (s):")}};
    for (const auto& [key, label] : clipKeys) {
        auto* field = new QLineEdit(clip.value(QLatin1String(key), QStringLiteral("0")).toString());
        field->setMaximumWidth(60);
        connect(field, &QLineEdit::editingFinished, this, [this, field, key = QString::fromLatin1(key)] {
            rip_.setClipValue(key, QString::number(std::max(0.0, field->text().toDouble())));
        });
        clipRow->addWidget(new QLabel(label));
        clipRow->addWidget(field);
    }
    // The clip's encoder settings and the character changes of its names.
    auto* clipSettings = new QPushButton(tr("Clip Settings…"));
    clipSettings->setToolTip(tr("Encoder settings of the clip made while ripping"));
    connect(clipSettings, &QPushButton::clicked, this, [this] {
        auto* sheet = new RipSettingsSheet(rip_, QStringLiteral("CLP"), this);
        sheet->setWindowTitle(tr("Clip Settings"));
        sheet->setAttribute(Qt::WA_DeleteOnClose);
        sheet->open();
    });
    clipRow->addWidget(clipSettings);
    clipRow->addStretch();

    auto* layout = new QVBoxLayout(this);
    layout->addLayout(discRow);
    layout->addWidget(tracks_, 1);
    layout->addLayout(allRow);
    layout->addLayout(actionRow);
    layout->addWidget(preview_);
    layout->addLayout(optionRow);
    layout->addLayout(clipRow);
    ripControls_ = {disc_, album_, ripSelected, ripAll, settings, all, none, format_};

    // The rip reports through the main thread.
    rip_.setProgressHandler([this](const QVariantMap& progress) {
        QMetaObject::invokeMethod(this, [this, progress] { showProgress(progress); });
    });
    connect(&rip_, &RipSourcesWrapper::discsChanged, this, &RipTab::refreshDiscs, Qt::QueuedConnection);
    connect(&rip_, &RipSourcesWrapper::tracksChanged, this, &RipTab::refreshTracks, Qt::QueuedConnection);
    connect(&rip_, &RipSourcesWrapper::settingsChanged, this, &RipTab::refreshPreview);
    connect(&rip_, &RipSourcesWrapper::chooseFolderRequested, this, &RipTab::chooseSaveFolder);
    connect(&rip_, &RipSourcesWrapper::progressSheetShown, this, &RipTab::showProgressSheet, Qt::QueuedConnection);
    connect(&rip_, &RipSourcesWrapper::progressSheetEnded, this, &RipTab::endProgressSheet, Qt::QueuedConnection);
    connect(
        &rip_, &RipSourcesWrapper::controlsEnabled, this,
        [this](bool enabled) {
            for (QWidget* widget : std::as_const(ripControls_))
                widget->setEnabled(enabled);
        },
        Qt::QueuedConnection);
    refreshDiscs();
    refreshTracks();
}

RipTab::~RipTab()
{
    rip_.setProgressHandler({});
}

void RipTab::refreshDiscs()
{
    const QSignalBlocker discBlocker(disc_);
    const QSignalBlocker albumBlocker(album_);
    disc_->clear();
    for (const QVariant& entry : rip_.discs()) {
        const QVariantMap disc = entry.toMap();
        const QString cdpath = disc.value(QStringLiteral("cdpath")).toString();
        QString title = disc.value(QStringLiteral("freedbtitle")).toString();
        if (cdpath == rip_.playingDisc())
            title += tr(" (playing)");
        disc_->addItem(title, cdpath);
    }
    disc_->setCurrentIndex(disc_->findData(rip_.currentDisc()));
    album_->clear();
    album_->addItems(rip_.albumMenu());
    album_->setCurrentIndex(rip_.selectedAlbum());
    album_->setEnabled(rip_.albumMenuEnabled() && !rip_.isSaving());
    eject_->setEnabled(!rip_.currentDisc().isEmpty());
    cacheLabel_->setText(rip_.cacheFolder());
}

void RipTab::refreshTracks()
{
    refreshing_ = true;
    const QList<RipSourcesWrapper::Track> tracks = rip_.tracks();
    tracks_->setRowCount(int(tracks.size()));
    for (int row = 0; row < tracks.size(); ++row) {
        const RipSourcesWrapper::Track& track = tracks[row];
        const RipNaming::TrackNames names = track.names();
        auto* tick = new QTableWidgetItem;
        tick->setFlags(Qt::ItemIsEnabled | Qt::ItemIsUserCheckable | Qt::ItemIsSelectable);
        tick->setCheckState(track.selected ? Qt::Checked : Qt::Unchecked);
        tracks_->setItem(row, Tick, tick);
        tracks_->setItem(row, Number, new QTableWidgetItem(QString::number(names.track)));
        tracks_->setItem(row, Title, new QTableWidgetItem(names.title));
        tracks_->setItem(row, Artist, new QTableWidgetItem(names.artist));
        tracks_->setItem(row, Duration, new QTableWidgetItem(minutes(track.sectors)));
    }
    if (!tracks.isEmpty())
        tracks_->setCurrentCell(rip_.currentTrack(), Title);
    refreshing_ = false;
    refreshPreview();
}

void RipTab::refreshPreview()
{
    const QString format = format_->currentText();
    QStringList paths;
    if (format == QLatin1String("MULTI-RIP")) {
        for (const QString& each : rip_.settings().multiRip)
            paths << rip_.previewPath(each);
    } else if (format == QLatin1String("MP3 and M4A")) {
        paths << rip_.previewPath(QStringLiteral("MP3")) << rip_.previewPath(QStringLiteral("M4A"));
    } else {
        paths << rip_.previewPath(format);
    }
    paths.removeAll(QString());
    preview_->setText(paths.isEmpty() ? QString() : tr("Saved as: %1").arg(paths.join(QStringLiteral("\n"))));
}

void RipTab::showSettings()
{
    const QString format = format_->currentText();
    QDialog* sheet = nullptr;
    if (format == QLatin1String("MULTI-RIP"))
        sheet = new MultiRipSettingsSheet(rip_, this);
    else
        sheet =
            new RipSettingsSheet(rip_, format == QLatin1String("MP3 and M4A") ? QStringLiteral("MP3") : format, this);
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    connect(sheet, &QDialog::finished, this, &RipTab::refreshPreview);
    sheet->open();
}

void RipTab::chooseSaveFolder(const QString& type)
{
    bool any = false;
    for (const RipSourcesWrapper::Track& track : rip_.tracks())
        any = any || track.selected;
    if (!any) {
        QMessageBox::information(this, tr("Nothing Selected"), tr("Tick the tracks to rip first."));
        return;
    }
    auto* chooser = new QFileDialog(this, tr("Rip %1").arg(type), RipSourcesWrapper::startingFolderFor(type));
    chooser->setFileMode(QFileDialog::Directory);
    chooser->setOption(QFileDialog::ShowDirsOnly);
    chooser->setOption(QFileDialog::DontUseNativeDialog);  // so the explanation shows
    chooser->setLabelText(QFileDialog::LookIn, RipSourcesWrapper::chooseFolderMessage(type));
    chooser->setWindowModality(Qt::WindowModal);
    chooser->setAttribute(Qt::WA_DeleteOnClose);
    connect(chooser, &QFileDialog::finished, this, [this, chooser, type](int result) {
        const QStringList chosen = chooser->selectedFiles();
        rip_.chooseSaveFolderDidEnd(result == QDialog::Accepted && !chosen.isEmpty(), chosen.value(0), type);
    });
    chooser->open();
}

void RipTab::chooseCacheFolder()
{
    auto* chooser = new QFileDialog(this, tr("Cache Folder"), rip_.cacheFolder());
    chooser->setFileMode(QFileDialog::Directory);
    chooser->setOption(QFileDialog::ShowDirsOnly);
    chooser->setOption(QFileDialog::DontUseNativeDialog);
    chooser->setLabelText(QFileDialog::LookIn, tr("Please select a folder for the WAV files made while ripping."));
    chooser->setWindowModality(Qt::WindowModal);
    chooser->setAttribute(Qt::WA_DeleteOnClose);
    connect(chooser, &QFileDialog::finished, this, [this, chooser](int result) {
        const QStringList chosen = chooser->selectedFiles();
        rip_.chooseCacheFolderDidEnd(result == QDialog::Accepted && !chosen.isEmpty(), chosen.value(0));
        cacheLabel_->setText(rip_.cacheFolder());
    });
    chooser->open();
}

void RipTab::showProgressSheet()
{
    if (progressSheet_)
        return;
    progressSheet_ =
        makeProgressSheet(this, tr("Stop ripping; only whole files are kept"), [this] { rip_.terminateSave(); });
    progressSheet_->show();
    showProgress({});
}

void RipTab::showProgress(const QVariantMap& progress)
{
    if (progress.contains(QStringLiteral("operation")))
        operation_ = progress.value(QStringLiteral("operation")).toString();
    if (progress.contains(QStringLiteral("status")))
        status_ = progress.value(QStringLiteral("status")).toString();
    if (progress.contains(QStringLiteral("savefilename")))
        saveFileName_ = progress.value(QStringLiteral("savefilename")).toString();
    if (progressSheet_) {
        progressSheet_->setWindowTitle(operation_);
        progressSheet_->setLabelText(
            QStringLiteral("<b>%1</b><br>%2<br>%3")
                .arg(operation_.toHtmlEscaped(), status_.toHtmlEscaped(), saveFileName_.toHtmlEscaped()));
    }
}

void RipTab::endProgressSheet()
{
    if (!progressSheet_)
        return;
    progressSheet_->close();
    progressSheet_->deleteLater();
    progressSheet_ = nullptr;
}
