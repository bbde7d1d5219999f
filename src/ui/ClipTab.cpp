#include "ui/ClipTab.h"
#include "ui/FolderChooser.h"
#include "ui/SourceOutline.h"

#include "core/Defaults.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "player/MqpWrapper.h"
#include "tabs/MusicSourcesWrapper.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDragEnterEvent>
#include <QFileInfo>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMessageBox>
#include <QMimeData>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
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
constexpr int kFirstClipColumn = 2;  // title, duration, then the five parameters
constexpr double kEdgeGrabPixels = 6;
constexpr int kMaxGainDb = 30;  // the slider's reach; the table takes more
const QString kFormatKey = QStringLiteral("mClipFormatStored");

double number(const QVariantMap& parameters, const char* key)
{
    return parameters.value(QLatin1String(key)).toString().toDouble();
}

}  // namespace

// ---------------------------------------------------------------- the waveform

WaveformView::WaveformView(QWidget* parent) : QWidget(parent)
{
    setMouseTracking(true);
    setMinimumHeight(80);
    setToolTip(tr("The selected song. Drag the edges of the shaded clip to set its start and length."));
    placeholder_ = tr("Select a song to see its waveform");
}

void WaveformView::setPeaks(const WaveformPeaks& peaks)
{
    peaks_ = peaks;
    update();
}

void WaveformView::setPlaceholder(const QString& text)
{
    placeholder_ = text;
    update();
}

void WaveformView::setClip(const QVariantMap& parameters, double songSeconds)
{
    seconds_ = songSeconds;
    start_ = number(parameters, ClipSourcesWrapper::kStart);
    length_ = number(parameters, ClipSourcesWrapper::kLength);
    fadeIn_ = number(parameters, ClipSourcesWrapper::kFadeIn);
    fadeOut_ = number(parameters, ClipSourcesWrapper::kFadeOut);
    update();
}

double WaveformView::xFor(double seconds) const
{
    return seconds_ > 0 ? seconds / seconds_ * width() : 0;
}

double WaveformView::secondsAt(double x) const
{
    return width() > 0 ? std::clamp(x / width(), 0.0, 1.0) * seconds_ : 0;
}

WaveformView::Edge WaveformView::edgeAt(double x) const
{
    if (seconds_ <= 0)
        return Edge::None;
    if (std::abs(x - xFor(start_ + length_)) <= kEdgeGrabPixels)
        return Edge::End;
    if (std::abs(x - xFor(start_)) <= kEdgeGrabPixels)
        return Edge::Start;
    return Edge::None;
}

void WaveformView::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    const QPalette& colors = palette();
    painter.fillRect(rect(), colors.color(QPalette::Base));
    const double middle = height() / 2.0;
    const double half = height() / 2.0 - 2;
    const int columns = peaks_.columns();
    if (columns == 0) {
        painter.setPen(colors.color(QPalette::PlaceholderText));
        painter.drawText(rect(), Qt::AlignCenter, placeholder_);
        return;
    }
    // The clip's stretch first, the audio over it.
    const double left = xFor(start_), right = xFor(start_ + length_);
    QColor shade = colors.color(QPalette::Highlight);
    shade.setAlpha(60);
    painter.fillRect(QRectF(left, 0, right - left, height()), shade);

    // A sketch from the MP3's frames stays faint until the decoded peaks replace it.
    painter.setPen(colors.color(peaks_.estimated ? QPalette::PlaceholderText : QPalette::Text));
    const double step = double(width()) / columns;
    for (int column = 0; column < peaks_.columnsDone && column < columns; ++column) {
        const double x = (column + 0.5) * step;
        painter.drawLine(QPointF(x, middle - peaks_.maximum[column] * half),
                         QPointF(x, middle - peaks_.minimum[column] * half));
    }

    // The fades: the loudness rises from nothing and falls back to it.
    QPen envelope(colors.color(QPalette::Highlight), 2);
    painter.setPen(envelope);
    QPainterPath path(QPointF(left, height() - 1));
    path.lineTo(xFor(start_ + fadeIn_), 1);
    path.lineTo(xFor(start_ + length_ - fadeOut_), 1);
    path.lineTo(right, height() - 1);
    painter.drawPath(path);
    // The edges, to be dragged.
    painter.setPen(QPen(colors.color(QPalette::Highlight).darker(130), 3));
    painter.drawLine(QPointF(left, 0), QPointF(left, height()));
    painter.drawLine(QPointF(right, 0), QPointF(right, height()));
}

void WaveformView::mousePressEvent(QMouseEvent* event)
{
    dragging_ = edgeAt(event->position().x());
}

void WaveformView::mouseMoveEvent(QMouseEvent* event)
{
    const double x = event->position().x();
    if (dragging_ == Edge::None) {
        setCursor(edgeAt(x) == Edge::None ? Qt::ArrowCursor : Qt::SizeHorCursor);
        return;
    }
    const double at = secondsAt(x);
    const double end = start_ + length_;
    // The start edge keeps the clip's end where it is; the end edge keeps its start.
    if (dragging_ == Edge::Start)
        emit clipDragged(std::min(at, end), end - std::min(at, end));
    else
        emit clipDragged(start_, std::max(0.0, at - start_));
}

void WaveformView::mouseReleaseEvent(QMouseEvent*)
{
    dragging_ = Edge::None;
}

// ---------------------------------------------------------------- the tab

ClipTab::ClipTab(ClipSourcesWrapper& clip, QWidget* parent)
    : QWidget(parent), clip_(clip), outline_(new FileDropTarget<QTreeWidget>(VLCSWFileDropNotification)),
      table_(new FileDropTarget<QTableView>(VLCSWFileDropNotification)), songs_(new QStandardItemModel(this)),
      waveform_(new WaveformView), includeTags_(new QCheckBox(tr("Include tags"))), formatCombo_(new QComboBox),
      statusLabel_(new QLabel)
{
    PlaySourcesWrapper& browser = clip_.browser();
    // Sources.
    outline_->setHeaderHidden(true);
    outline_->setAcceptDrops(true);
    outline_->setToolTip(tr("Where the songs come from. Drop files or folders here to make clips of them."));
    connect(outline_, &QTreeWidget::itemSelectionChanged, this, [this] {
        const QList<QTreeWidgetItem*> items = outline_->selectedItems();
        if (!items.isEmpty() && !clip_.selectSource(items.first()->data(0, kRowRole).toInt()))
            statusLabel_->setText(tr("Still reading the songs of the last source; try again in a moment."));
    });
    auto* eject = makeToolButton("media-eject", tr("Eject"), tr("Eject the selected disc or flash player"));
    connect(eject, &QToolButton::clicked, this, [this] {
        if (const auto alert = clip_.ejectSelectedMedium())
            showAlert(alert->title, alert->message);
    });
    auto* sourcesPane = new QWidget;
    auto* sourcesLayout = new QVBoxLayout(sourcesPane);
    sourcesLayout->setContentsMargins(0, 0, 0, 0);
    sourcesLayout->addWidget(outline_, 1);
    sourcesLayout->addWidget(eject, 0, Qt::AlignLeft);

    // The song table: the clip's five values are edited in place.
    table_->setModel(songs_);
    table_->setAcceptDrops(true);
    table_->setSelectionBehavior(QAbstractItemView::SelectRows);
    table_->setSelectionMode(QAbstractItemView::ExtendedSelection);
    table_->setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed);
    table_->verticalHeader()->hide();
    table_->setWordWrap(false);
    table_->setToolTip(tr("Double-click a start, length, fade or volume to type it (seconds; volume in dB)"));
    connect(songs_, &QStandardItemModel::itemChanged, this, [this](QStandardItem* item) {
        const int key = item->column() - kFirstClipColumn;
        if (updating_ || key < 0)
            return;
        clip_.setClipValue(item->row(), ClipSourcesWrapper::parameterKeys().value(key), item->text().toDouble());
    });
    rebuildSongTable();

    // The waveform and the sliders of the selected song's clip.
    connect(waveform_, &WaveformView::clipDragged, this, [this](double start, double length) {
        const int row = currentRow();
        clip_.setClipValue(row, ClipSourcesWrapper::kStart, start);
        clip_.setClipValue(row, ClipSourcesWrapper::kLength, length);
    });
    auto* slidersLayout = new QGridLayout;
    const struct {
        const char* key;
        QString label;
        QString tip;
    } sliders[] = {
        {ClipSourcesWrapper::kStart, tr("Start"), tr("Where the clip begins in the song")},
        {ClipSourcesWrapper::kLength, tr("Length"), tr("How long the clip lasts")},
        {ClipSourcesWrapper::kFadeIn, tr("Fade in"), tr("How long the clip takes to rise from silence")},
        {ClipSourcesWrapper::kFadeOut, tr("Fade out"), tr("How long the clip takes to fall to silence at its end")},
        {ClipSourcesWrapper::kVolume, tr("Volume"), tr("Louder or quieter than the song, in dB")},
    };
    int line = 0;
    for (const auto& entry : sliders) {
        const QString key = QLatin1String(entry.key);
        auto* slider = new QSlider(Qt::Horizontal);
        slider->setToolTip(entry.tip);
        auto* value = new QLabel;
        value->setMinimumWidth(value->fontMetrics().horizontalAdvance(QStringLiteral("00:00.0 ")));
        // Times move in tenths of a second, the volume in whole dB.
        const bool isVolume = key == QLatin1String(ClipSourcesWrapper::kVolume);
        if (isVolume)
            slider->setRange(-kMaxGainDb, kMaxGainDb);
        connect(slider, &QSlider::valueChanged, this, [this, key, isVolume](int position) {
            if (!updating_)
                clip_.setClipValue(currentRow(), key, isVolume ? position : position / 10.0);
        });
        slidersLayout->addWidget(new QLabel(entry.label), line / 3, (line % 3) * 3);
        slidersLayout->addWidget(slider, line / 3, (line % 3) * 3 + 1);
        slidersLayout->addWidget(value, line / 3, (line % 3) * 3 + 2);
        sliders_.insert(key, slider);
        sliderValues_.insert(key, value);
        ++line;
    }

    auto* right = new QWidget;
    auto* rightLayout = new QVBoxLayout(right);
    rightLayout->setContentsMargins(0, 0, 0, 0);
    rightLayout->addWidget(table_, 1);
    rightLayout->addWidget(waveform_);
    rightLayout->addLayout(slidersLayout);
    auto* splitter = new QSplitter;
    splitter->setObjectName(QStringLiteral("clipSplitter"));
    splitter->addWidget(sourcesPane);
    splitter->addWidget(right);
    splitter->setStretchFactor(1, 1);

    // Playing.
    auto* playSong =
        makeToolButton("media-playback-start", tr("Play Song"), tr("Play the selected song from its start"));
    auto* playClip =
        makeToolButton("media-seek-forward", tr("Play Clip"), tr("Play only the clip of the selected song"));
    auto* pause = makeToolButton("media-playback-pause", tr("Pause"), tr("Pause or go on playing"));
    auto* stop = makeToolButton("media-playback-stop", tr("Stop"), tr("Stop playing"));
    connect(playSong, &QToolButton::clicked, this, [this] { clip_.playThisSong(std::max(currentRow(), 0)); });
    connect(playClip, &QToolButton::clicked, this, [this] { clip_.playClip(std::max(currentRow(), 0)); });
    connect(pause, &QToolButton::clicked, &clip_, &ClipSourcesWrapper::pausePlaying);
    connect(stop, &QToolButton::clicked, &clip_, &ClipSourcesWrapper::stopPlayingSong);
    const struct {
        PlaySourcesWrapper::Mode mode;
        const char* icon;
        QString text;
        QString tip;
    } modes[] = {
        {PlaySourcesWrapper::Repeat, "media-playlist-repeat", tr("Repeat"), tr("After the last song, start again")},
        {PlaySourcesWrapper::Shuffle, "media-playlist-shuffle", tr("Shuffle"), tr("Play the list in a new order")},
        {PlaySourcesWrapper::Stop, "process-stop", tr("Stop"), tr("After the last song, stop")},
        {PlaySourcesWrapper::Next, "go-next", tr("Next"), tr("After the last song, go on to the next source")},
    };
    auto* controls = new QHBoxLayout;
    for (QToolButton* button : {playSong, playClip, pause, stop})
        controls->addWidget(button);
    controls->addSpacing(16);
    controls->addWidget(new QLabel(tr("At the end:")));
    for (const auto& m : modes) {
        auto* button = makeToolButton(m.icon, m.text, m.tip);
        button->setCheckable(true);
        button->setChecked(browser.isModeOn(m.mode));
        connect(button, &QToolButton::clicked, this,
                [this, mode = m.mode](bool checked) { clip_.browser().selectPlaybackMode(mode, checked); });
        modeButtons_ << button;
        controls->addWidget(button);
    }
    controls->addStretch();

    // Saving.
    includeTags_->setChecked(clip_.includeTags());
    includeTags_->setToolTip(tr("Copy each song's title, artist and other tags into its clip"));
    connect(includeTags_, &QCheckBox::toggled, &clip_, &ClipSourcesWrapper::toggleIncludeTags);
    formatCombo_->addItems(ClipSourcesWrapper::formatKeys());
    const QString format = Defaults::standard().stringForKey(kFormatKey);
    formatCombo_->setCurrentText(format.isEmpty() ? QStringLiteral("M4R") : format);
    connect(formatCombo_, &QComboBox::currentTextChanged, this, [](const QString& chosen) {
        Defaults::standard().setObject(kFormatKey, chosen);
        Defaults::standard().synchronize();
    });
    formatCombo_->setToolTip(tr("The format of the clips; M4R makes ringtones"));
    auto* save = new QPushButton(QIcon::fromTheme(QStringLiteral("document-save-as")), tr("Save Clips…"));
    save->setToolTip(tr("Save the clips of the selected songs (or of all of them) into a folder you choose"));
    connect(save, &QPushButton::clicked, this, [this] { clip_.convertTo(formatCombo_->currentText()); });
    auto* actions = new QHBoxLayout;
    actions->addWidget(statusLabel_, 1);
    actions->addWidget(includeTags_);
    actions->addWidget(new QLabel(tr("Save as")));
    actions->addWidget(formatCombo_);
    actions->addWidget(save);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(splitter, 1);
    layout->addLayout(controls);
    layout->addLayout(actions);

    connect(&browser, &PlaySourcesWrapper::sourcesChanged, this, &ClipTab::rebuildOutline);
    connect(&browser, &PlaySourcesWrapper::sourceSelected, this, &ClipTab::showSourceSelected);
    connect(&browser, &PlaySourcesWrapper::modesChanged, this, [this] {
        for (int i = 0; i < modeButtons_.size(); ++i)
            modeButtons_[i]->setChecked(clip_.browser().isModeOn(PlaySourcesWrapper::Mode(i)));
    });
    connect(&browser, &PlaySourcesWrapper::loadingChanged, this, [this](bool loading) {
        statusLabel_->setText(loading ? tr("Searching Folder. For deep folders, this can take a VERY long "
                                           "time. Please wait.")
                                      : QString());
    });
    connect(&browser, &PlaySourcesWrapper::songSelected, this, [this](int row) {
        if (row >= 0 && row != currentRow())
            table_->selectRow(row);
    });
    connect(&clip_, &ClipSourcesWrapper::songsChanged, this, &ClipTab::rebuildSongTable);
    connect(&clip_, &ClipSourcesWrapper::parametersChanged, this, &ClipTab::showParameters);
    connect(&clip_, &ClipSourcesWrapper::waveformChanged, this, [this] { waveform_->setPeaks(clip_.waveform()); });
    connect(&clip_, &ClipSourcesWrapper::message, statusLabel_, &QLabel::setText);
    connect(&clip_, &ClipSourcesWrapper::chooseFolderRequested, this, &ClipTab::chooseSaveFolder);
    connect(&clip_, &ClipSourcesWrapper::saveFinished, this,
            [this](const QStringList& made, const QStringList& failures) {
                statusLabel_->setText(failures.isEmpty()
                                          ? tr("%n clip(s) saved.", nullptr, int(made.size()))
                                          : tr("%n clip(s) saved; %1 could not be made: %2", nullptr, int(made.size()))
                                                .arg(failures.size())
                                                .arg(failures.first()));
            });
    rebuildOutline();
}

void ClipTab::rebuildOutline()
{
    QList<SourceOutline::Row> rows;
    for (const PlaySourcesWrapper::SourceRow& source : clip_.browser().sources())
        rows << SourceOutline::Row{
            source.title, source.path,
            QIcon::fromTheme(source.level == 0 ? QStringLiteral("folder") : QStringLiteral("audio-x-generic")),
            source.level};
    SourceOutline::fill(outline_, rows, tr("Every song of %1"), clip_.browser().selectedSource());
}

void ClipTab::showSourceSelected(int row)
{
    SourceOutline::select(outline_, row);
}

void ClipTab::rebuildSongTable()
{
    updating_ = true;
    songs_->clear();
    songs_->setHorizontalHeaderLabels({tr("Title"), tr("Duration"), tr("Start (s)"), tr("Length (s)"),
                                       tr("Fade In (s)"), tr("Fade Out (s)"), tr("Volume (dB)")});
    const QStringList songs = clip_.browser().songs();
    const QVariantList records = clip_.browser().records();
    for (int row = 0; row < songs.size(); ++row) {
        const QVariantMap record = records.value(row).toMap();
        const QString title = record.value("title").toString();
        const int seconds = record.value("duration").toString().toInt();
        QList<QStandardItem*> items{
            new QStandardItem(title.isEmpty() ? QFileInfo(songs[row]).completeBaseName() : title),
            new QStandardItem(seconds > 0 ? mqp_wrapper::timeText(seconds) : QString())};
        items[0]->setToolTip(songs[row]);
        items[0]->setEditable(false);
        items[1]->setEditable(false);
        for (int key = 0; key < ClipSourcesWrapper::parameterKeys().size(); ++key)
            items << new QStandardItem;
        songs_->appendRow(items);
    }
    updating_ = false;
    for (int row = 0; row < songs.size(); ++row)
        showParameters(row);
    QHeaderView* header = table_->horizontalHeader();
    header->setSectionResizeMode(0, QHeaderView::Stretch);
    for (int column = 1; column < songs_->columnCount(); ++column)
        header->setSectionResizeMode(column, QHeaderView::ResizeToContents);
    connect(table_->selectionModel(), &QItemSelectionModel::selectionChanged, this, &ClipTab::selectionChanged,
            Qt::UniqueConnection);
    selectionChanged();
}

void ClipTab::showParameters(int row)
{
    if (row < 0 || row >= songs_->rowCount())
        return;
    updating_ = true;
    const QVariantMap parameters = clip_.clipParameters(row);
    const QStringList& keys = ClipSourcesWrapper::parameterKeys();
    for (int key = 0; key < keys.size(); ++key) {
        QStandardItem* item = songs_->item(row, kFirstClipColumn + key);
        item->setText(parameters.value(keys[key]).toString());
        item->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
    }
    if (row == currentRow()) {
        const double seconds = clip_.songSeconds(row);
        for (const QString& key : keys) {
            const double value = parameters.value(key).toString().toDouble();
            QSlider* slider = sliders_.value(key);
            const bool isVolume = key == QLatin1String(ClipSourcesWrapper::kVolume);
            if (!isVolume)
                slider->setRange(0, int(std::ceil(std::max(seconds, value) * 10)));
            slider->setValue(int(std::lround(isVolume ? value : value * 10)));
            sliderValues_.value(key)->setText(isVolume ? tr("%1 dB").arg(value)
                                                       : QString::number(value, 'f', 1) + tr(" s"));
        }
        waveform_->setClip(parameters, seconds);
    }
    updating_ = false;
}

int ClipTab::currentRow() const
{
    const QModelIndex current = table_->selectionModel() ? table_->selectionModel()->currentIndex() : QModelIndex();
    const QList<int> rows = selectedRows();
    if (current.isValid() && rows.contains(current.row()))
        return current.row();
    return rows.isEmpty() ? -1 : rows.first();
}

QList<int> ClipTab::selectedRows() const
{
    return sortedSelectedRows(table_);
}

void ClipTab::selectionChanged()
{
    const int row = currentRow();
    for (QSlider* slider : std::as_const(sliders_))
        slider->setEnabled(row >= 0);
    const QString song = clip_.browser().songs().value(row);
    waveform_->setPlaceholder(row < 0 ? tr("Select a song to see its waveform")
                              : song.endsWith(QLatin1String(".cdda"), Qt::CaseInsensitive)
                                  ? tr("A track of a disc shows no waveform; play it to hear the clip")
                                  : tr("Reading the song…"));
    if (row < 0) {
        waveform_->setClip({}, 0);
        clip_.showWaveform(-1, 0);
        return;
    }
    clip_.browser().selectSong(row);
    showParameters(row);
    if (clip_.waveformRow() != row)
        clip_.showWaveform(row, std::max(waveform_->width(), 200));
}

void ClipTab::chooseSaveFolder(const QString& type)
{
    const MusicSourcesWrapper::FolderChoice choice = MusicSourcesWrapper::folderChoiceFor(type);
    openFolderChooser(this, tr("Save %1 Clips").arg(type), MusicSourcesWrapper::chooseFolderMessage(type),
                      choice.openIn, choice.newFolderName,
                      [this, type](const QString& folder) { saveInto(type, folder); });
}

void ClipTab::saveInto(const QString& type, const QString& folder)
{
    statusLabel_->setText(tr("Saving Files. This can take a bit of time, but not too much.  Please wait."));
    clip_.chooseSaveFolderDidEnd(true, folder, type, selectedRows());
}

void ClipTab::showAlert(const QString& title, const QString& message)
{
    auto* box = new QMessageBox(QMessageBox::Warning, title, message, QMessageBox::Ok, this);
    box->setWindowModality(Qt::WindowModal);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->open();
}
