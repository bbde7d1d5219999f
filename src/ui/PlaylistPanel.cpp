#include "ui/PlaylistPanel.h"

#include "core/Defaults.h"
#include "playlists/HPlayListDataSource.h"
#include "playlists/MediaDataSource.h"
#include "playlists/PlayListDataSource.h"
#include "playlists/PlaylistFiles.h"

#include <QAbstractTableModel>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QIcon>
#include <QItemSelectionModel>
#include <QLabel>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalBlocker>
#include <QTableView>
#include <QVBoxLayout>

namespace {

constexpr char kSelectedPlaylistKey[] = "mSelectedPlaylistStored";
constexpr char kSelectedMediaSetKey[] = "mSelectedMediaSetStored";

QIcon playlistIcon()
{
    // Not every theme has a playlist icon; a plain document stands in.
    return QIcon::fromTheme(QStringLiteral("audio-x-mpegurl"), QIcon::fromTheme(QStringLiteral("text-x-generic")));
}

// A rename lists the files again, which resets the table: not while its
// editor is still handing the new name over.
template <typename Rename>
void renameLater(QObject* model, Rename rename)
{
    QMetaObject::invokeMethod(model, rename, Qt::QueuedConnection);
}

// Column 0: the tick box of the selected media set; column 1: the name.
class PlaylistTableModel : public QAbstractTableModel {
public:
    explicit PlaylistTableModel(PlayListDataSource& source, QObject* parent)
        : QAbstractTableModel(parent), source_(source)
    {
        connect(&source_, &PlayListDataSource::reloaded, this, [this] {
            beginResetModel();
            endResetModel();
        });
    }
    int rowCount(const QModelIndex& parent = {}) const override { return parent.isValid() ? 0 : source_.rowCount(); }
    int columnCount(const QModelIndex& parent = {}) const override { return parent.isValid() ? 0 : 2; }
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override
    {
        if (orientation != Qt::Horizontal)
            return {};
        if (role == Qt::DisplayRole)
            return section == 0 ? tr("In Set") : tr("Playlist");
        if (role == Qt::ToolTipRole && section == 0)
            return tr("Ticked playlists belong to the media set selected below");
        return {};
    }
    Qt::ItemFlags flags(const QModelIndex& index) const override
    {
        const Qt::ItemFlags base = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
        return index.column() == 0 ? base | Qt::ItemIsUserCheckable : base | Qt::ItemIsEditable;
    }
    QVariant data(const QModelIndex& index, int role) const override
    {
        if (index.column() == 0)
            return role == Qt::CheckStateRole ? QVariant(source_.isCheckedAt(index.row()) ? Qt::Checked : Qt::Unchecked)
                                              : QVariant();
        switch (role) {
        case Qt::DisplayRole:
        case Qt::EditRole:
            return source_.nameAt(index.row());
        case Qt::ToolTipRole:
            return source_.pathAt(index.row());
        case Qt::DecorationRole:
            return playlistIcon();
        case Qt::ForegroundRole:
            return source_.isFromITunesAt(index.row()) ? QVariant(QColor(Qt::darkGray)) : QVariant();
        default:
            return {};
        }
    }
    bool setData(const QModelIndex& index, const QVariant& value, int role) override
    {
        if (index.column() == 0 && role == Qt::CheckStateRole)
            source_.toggleCheckedAt(index.row());
        else if (index.column() == 1 && role == Qt::EditRole && !value.toString().isEmpty())
            renameLater(this, [this, row = index.row(), name = value.toString()] { source_.setNameAt(row, name); });
        else
            return false;
        return true;
    }

private:
    PlayListDataSource& source_;
};

class MediaTableModel : public QAbstractTableModel {
public:
    explicit MediaTableModel(MediaDataSource& source, QObject* parent) : QAbstractTableModel(parent), source_(source)
    {
        connect(&source_, &MediaDataSource::reloaded, this, [this] {
            beginResetModel();
            endResetModel();
        });
    }
    int rowCount(const QModelIndex& parent = {}) const override { return parent.isValid() ? 0 : source_.rowCount(); }
    int columnCount(const QModelIndex& parent = {}) const override { return parent.isValid() ? 0 : 1; }
    QVariant headerData(int, Qt::Orientation orientation, int role) const override
    {
        return orientation == Qt::Horizontal && role == Qt::DisplayRole ? tr("Media Set") : QVariant();
    }
    Qt::ItemFlags flags(const QModelIndex&) const override
    {
        return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsEditable;
    }
    QVariant data(const QModelIndex& index, int role) const override
    {
        if (role == Qt::DisplayRole || role == Qt::EditRole)
            return source_.nameAt(index.row());
        if (role == Qt::ToolTipRole)
            return source_.pathAt(index.row());
        if (role == Qt::DecorationRole)
            return QIcon::fromTheme(QStringLiteral("media-optical"));
        return {};
    }
    bool setData(const QModelIndex& index, const QVariant& value, int role) override
    {
        if (role != Qt::EditRole || value.toString().isEmpty())
            return false;
        renameLater(this, [this, row = index.row(), name = value.toString()] { source_.setNameAt(row, name); });
        return true;
    }

private:
    MediaDataSource& source_;
};

class HiddenTableModel : public QAbstractTableModel {
public:
    explicit HiddenTableModel(HPlayListDataSource& source, QObject* parent)
        : QAbstractTableModel(parent), source_(source)
    {
        connect(&source_, &HPlayListDataSource::changed, this, [this] {
            beginResetModel();
            endResetModel();
        });
    }
    int rowCount(const QModelIndex& parent = {}) const override { return parent.isValid() ? 0 : source_.rowCount(); }
    int columnCount(const QModelIndex& parent = {}) const override { return parent.isValid() ? 0 : 1; }
    QVariant headerData(int, Qt::Orientation orientation, int role) const override
    {
        return orientation == Qt::Horizontal && role == Qt::DisplayRole ? tr("Hidden playlist") : QVariant();
    }
    Qt::ItemFlags flags(const QModelIndex&) const override
    {
        return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsEditable;
    }
    QVariant data(const QModelIndex& index, int role) const override
    {
        return role == Qt::DisplayRole || role == Qt::EditRole ? QVariant(source_.nameAt(index.row())) : QVariant();
    }
    bool setData(const QModelIndex& index, const QVariant& value, int role) override
    {
        if (role != Qt::EditRole)
            return false;
        source_.setNameAt(index.row(), value.toString());
        return true;
    }

private:
    HPlayListDataSource& source_;
};

QTableView* makeTable(QAbstractItemModel* model, QWidget* parent)
{
    auto* table = new QTableView(parent);
    table->setModel(model);
    table->setSelectionBehavior(QAbstractItemView::SelectRows);
    table->setSelectionMode(QAbstractItemView::SingleSelection);
    table->setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed);
    table->verticalHeader()->hide();
    table->horizontalHeader()->setStretchLastSection(true);
    table->setShowGrid(false);
    return table;
}

void selectRowQuietly(QTableView* table, int row)
{
    QSignalBlocker blocker(table->selectionModel());
    table->clearSelection();
    if (row >= 0)
        table->selectRow(row);
    table->viewport()->update();
}

int selectedRowOf(const QTableView* table)
{
    const QModelIndexList rows = table->selectionModel()->selectedRows();
    return rows.isEmpty() ? -1 : rows.first().row();
}

} // namespace

PlaylistPanel::PlaylistPanel(PlayListDataSource& playlists, MediaDataSource& media, HPlayListDataSource& hidden,
                             QWidget* parent)
    : QWidget(parent), playlists_(playlists), media_(media), hidden_(hidden)
{
    playlistTable_ = makeTable(new PlaylistTableModel(playlists_, this), this);
    playlistTable_->setObjectName(QStringLiteral("playlistTable"));
    playlistTable_->horizontalHeader()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
    mediaTable_ = makeTable(new MediaTableModel(media_, this), this);
    mediaTable_->setObjectName(QStringLiteral("mediaSetTable"));
    sizeLabel_ = new QLabel(this);
    sizeLabel_->setToolTip(tr("The size of the music of the selected media set"));

    auto button = [this](const QString& text, const QString& toolTip, const char* name) {
        auto* made = new QPushButton(text, this);
        made->setToolTip(toolTip);
        made->setObjectName(QLatin1String(name));
        return made;
    };
    auto* newPlaylist = button(tr("New"), tr("Make a new, empty playlist (Ctrl+N)"), "newPlaylist");
    auto* renamePlaylist = button(tr("Rename"), tr("Give the selected playlist another name (F2)"), "renamePlaylist");
    auto* deletePlaylist = button(tr("Delete"), tr("Delete the selected playlist"), "deletePlaylist");
    auto* exportPlaylist =
        button(tr("Export M3U…"), tr("Write the selected playlist as an M3U file (Ctrl+E)"), "exportPlaylist");
    auto* hidePlaylist = button(tr("Hide"), tr("Hide every playlist of the selected playlist's name"), "hidePlaylist");
    auto* hiddenList = button(tr("Hidden…"), tr("Show and edit the names of hidden playlists"), "hiddenPlaylists");
    auto* playlistToFlash =
        button(tr("To Flash…"), tr("Copy the selected playlist's music to a flash player"), "playlistToFlash");
    auto* addMedia = button(tr("New…"), tr("Make a new media set"), "newMediaSet");
    auto* deleteMedia = button(tr("Delete"), tr("Delete the selected media set"), "deleteMediaSet");
    auto* playMedia = button(tr("Play"), tr("Play every playlist of the selected media set"), "playMediaSet");
    auto* mediaToFlash =
        button(tr("To Flash…"), tr("Copy the selected media set's music to a flash player"), "mediaSetToFlash");

    auto* playlistButtons = new QHBoxLayout;
    for (QPushButton* each : {newPlaylist, renamePlaylist, deletePlaylist, exportPlaylist})
        playlistButtons->addWidget(each);
    playlistButtons->addStretch();
    auto* morePlaylistButtons = new QHBoxLayout;
    for (QPushButton* each : {hidePlaylist, hiddenList, playlistToFlash})
        morePlaylistButtons->addWidget(each);
    morePlaylistButtons->addStretch();
    auto* mediaButtons = new QHBoxLayout;
    for (QPushButton* each : {addMedia, deleteMedia, playMedia, mediaToFlash})
        mediaButtons->addWidget(each);
    mediaButtons->addStretch();
    mediaButtons->addWidget(new QLabel(tr("Size:"), this));
    mediaButtons->addWidget(sizeLabel_);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(playlistTable_, 3);
    layout->addLayout(playlistButtons);
    layout->addLayout(morePlaylistButtons);
    layout->addWidget(mediaTable_, 2);
    layout->addLayout(mediaButtons);

    connect(playlistTable_->selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] {
        playlists_.selectRow(selectedRowOf(playlistTable_));
        Defaults::standard().setObject(kSelectedPlaylistKey, playlists_.pathAt(playlists_.selectedRow()));
    });
    connect(mediaTable_->selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] {
        media_.selectRow(selectedRowOf(mediaTable_));
        Defaults::standard().setObject(kSelectedMediaSetKey, media_.pathAt(media_.selectedRow()));
    });
    connect(&playlists_, &PlayListDataSource::reloaded, this, &PlaylistPanel::syncPlaylistSelection);
    connect(&media_, &MediaDataSource::reloaded, this, &PlaylistPanel::syncMediaSelection);
    connect(&playlists_, &PlayListDataSource::scrollToRowRequested, this,
            [this](int row) { playlistTable_->scrollTo(playlistTable_->model()->index(row, 1)); });
    connect(&media_, &MediaDataSource::scrollToRowRequested, this,
            [this](int row) { mediaTable_->scrollTo(mediaTable_->model()->index(row, 0)); });
    connect(&media_, &MediaDataSource::sizeChanged, sizeLabel_, &QLabel::setText);
    connect(&playlists_, &PlayListDataSource::alert, this, &PlaylistPanel::showAlert);
    connect(&media_, &MediaDataSource::alert, this, &PlaylistPanel::showAlert);

    connect(newPlaylist, &QPushButton::clicked, this, &PlaylistPanel::newPlaylistRequested);
    connect(renamePlaylist, &QPushButton::clicked, this, &PlaylistPanel::renamePlaylist);
    connect(deletePlaylist, &QPushButton::clicked, this, &PlaylistPanel::confirmDeletePlaylist);
    connect(exportPlaylist, &QPushButton::clicked, this, &PlaylistPanel::exportRequested);
    connect(hidePlaylist, &QPushButton::clicked, &playlists_, &PlayListDataSource::hidePlaylist);
    connect(hiddenList, &QPushButton::clicked, this, &PlaylistPanel::showHiddenPlaylists);
    connect(playlistToFlash, &QPushButton::clicked, &playlists_, &PlayListDataSource::copyPlayListToFlash);
    connect(addMedia, &QPushButton::clicked, this, &PlaylistPanel::addMedia);
    connect(deleteMedia, &QPushButton::clicked, &media_, &MediaDataSource::deleteMedia);
    connect(playMedia, &QPushButton::clicked, &media_, &MediaDataSource::playMedia);
    connect(mediaToFlash, &QPushButton::clicked, &media_, &MediaDataSource::copyMediaToFlash);
    connectCopySheet(&playlists_, "Copying the playlist", &PlaylistPanel::cancelPlaylistCopy);
    connectCopySheet(&media_, "Copying the media set", &PlaylistPanel::cancelMediaCopy);

    syncPlaylistSelection();
    syncMediaSelection();
    restoreSelections();
}

void PlaylistPanel::restoreSelections()
{
    Defaults& defaults = Defaults::standard();
    const int mediaRow = [&] {
        const QString stored = defaults.stringForKey(kSelectedMediaSetKey);
        for (int row = 0; !stored.isEmpty() && row < media_.rowCount(); ++row)
            if (media_.pathAt(row) == stored)
                return row;
        return -1;
    }();
    // The media set first: the playlists' ticks belong to it.
    if (mediaRow >= 0)
        mediaTable_->selectRow(mediaRow);
    const int playlistRow = int(playlists_.playlistList().indexOf(defaults.stringForKey(kSelectedPlaylistKey)));
    if (playlistRow >= 0)
        playlistTable_->selectRow(playlistRow);
}

void PlaylistPanel::selectAndRename(const QString& path)
{
    const int row = int(playlists_.playlistList().indexOf(path));
    if (row < 0)
        return;
    playlistTable_->selectRow(row);
    renamePlaylist();
}

void PlaylistPanel::renamePlaylist()
{
    const int row = selectedRowOf(playlistTable_);
    if (row < 0)
        return;
    const QModelIndex name = playlistTable_->model()->index(row, 1);
    playlistTable_->setCurrentIndex(name);
    playlistTable_->edit(name);
}

void PlaylistPanel::confirmDeletePlaylist()
{
    const int row = selectedRowOf(playlistTable_);
    if (row < 0)
        return;
    const QString path = playlists_.pathAt(row);
    auto* box = new QMessageBox(QMessageBox::Question, tr("Delete Playlist"),
                                tr("Delete the playlist \u201c%1\u201d?").arg(playlists_.nameAt(row)),
                                QMessageBox::NoButton, window());
    box->setObjectName(QStringLiteral("confirmDeletePlaylist"));
    box->setInformativeText(tr("Its file is removed. The music it lists stays where it is."));
    auto* remove = box->addButton(tr("Delete"), QMessageBox::DestructiveRole);
    box->addButton(QMessageBox::Cancel);
    box->setDefaultButton(QMessageBox::Cancel);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowModality(Qt::WindowModal);
    connect(box, &QMessageBox::finished, this, [this, box, remove, path] {
        // The list may have changed while the question was open.
        if (box->clickedButton() == remove && playlists_.pathAt(playlists_.selectedRow()) == path)
            playlists_.deletePlaylist();
    });
    box->open();
}

void PlaylistPanel::syncPlaylistSelection()
{
    selectRowQuietly(playlistTable_, playlists_.selectedRow());
}

void PlaylistPanel::syncMediaSelection()
{
    selectRowQuietly(mediaTable_, media_.selectedRow());
}

void PlaylistPanel::addMedia()
{
    auto* dialog = new QFileDialog(window(), tr("New Media Set"), PlaylistFiles::mediaFolder());
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setOption(QFileDialog::DontUseNativeDialog);
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    dialog->setWindowModality(Qt::WindowModal);
    dialog->selectFile(QString::fromLatin1(MediaDataSource::kAddMediaDefaultName));
    if (auto* grid = qobject_cast<QGridLayout*>(dialog->layout())) {
        auto* message = new QLabel(QString::fromLatin1(MediaDataSource::kAddMediaMessage), dialog);
        message->setAlignment(Qt::AlignCenter);
        grid->addWidget(message, grid->rowCount(), 0, 1, grid->columnCount());
    }
    connect(dialog, &QFileDialog::fileSelected, this, [this](const QString& path) { media_.addMedia(path); });
    dialog->open();
}

void PlaylistPanel::showHiddenPlaylists()
{
    auto* dialog = new QDialog(window());
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowTitle(tr("Hidden Playlists"));
    dialog->setWindowModality(Qt::WindowModal);
    auto* table = makeTable(new HiddenTableModel(hidden_, dialog), dialog);
    auto* add = new QPushButton(tr("Add"), dialog);
    add->setToolTip(tr("Add a name to hide: every playlist of that name is left out of the list"));
    auto* remove = new QPushButton(tr("Remove"), dialog);
    remove->setToolTip(tr("Show the playlists of the selected name again"));
    auto* close = new QDialogButtonBox(QDialogButtonBox::Close, dialog);
    auto* buttons = new QHBoxLayout;
    buttons->addWidget(add);
    buttons->addWidget(remove);
    buttons->addStretch();
    buttons->addWidget(close);
    auto* layout = new QVBoxLayout(dialog);
    layout->addWidget(table);
    layout->addLayout(buttons);
    connect(table->selectionModel(), &QItemSelectionModel::selectionChanged, dialog,
            [this, table] { hidden_.selectRow(selectedRowOf(table)); });
    connect(&hidden_, &HPlayListDataSource::changed, table, [this, table] { selectRowQuietly(table, hidden_.selectedRow()); });
    connect(add, &QPushButton::clicked, dialog, [this, table] {
        hidden_.addPlaylist();
        table->edit(table->model()->index(hidden_.selectedRow(), 0));
    });
    connect(remove, &QPushButton::clicked, &hidden_, &HPlayListDataSource::deletePlaylist);
    connect(close, &QDialogButtonBox::rejected, dialog, &QDialog::close);
    dialog->resize(320, 300);
    dialog->open();
}

void PlaylistPanel::showAlert(const QString& title, const QString& message)
{
    auto* box = new QMessageBox(QMessageBox::Information, title, message, QMessageBox::Ok, window());
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowModality(Qt::WindowModal);
    box->open();
}

void PlaylistPanel::cancelPlaylistCopy()
{
    playlists_.cancelWriteToFlash();
}

void PlaylistPanel::cancelMediaCopy()
{
    media_.cancelWriteToFlash();
}

// The copy sheet: the file being copied, a busy bar and Cancel.
void PlaylistPanel::connectCopySheet(QObject* source, const char* title, void (PlaylistPanel::*cancel)())
{
    auto* sheet = new QDialog(this);
    sheet->setWindowTitle(tr(title));
    sheet->setWindowModality(Qt::WindowModal);
    auto* file = new QLabel(sheet);
    auto* bar = new QProgressBar(sheet);
    bar->setRange(0, 0);
    auto* cancelButton = new QPushButton(tr("Cancel"), sheet);
    cancelButton->setToolTip(tr("Stop copying after the file in hand"));
    auto* layout = new QVBoxLayout(sheet);
    layout->addWidget(file);
    layout->addWidget(bar);
    layout->addWidget(cancelButton, 0, Qt::AlignRight);
    connect(cancelButton, &QPushButton::clicked, this, [this, cancel, cancelButton] {
        cancelButton->setEnabled(false);
        (this->*cancel)();
    });

    auto started = [sheet, file, cancelButton] {
        file->clear();
        cancelButton->setEnabled(true);
        sheet->open();
    };
    auto copying = [file](const QString& name) { file->setText(name); };
    if (auto* playlists = qobject_cast<PlayListDataSource*>(source)) {
        connect(playlists, &PlayListDataSource::copyStarted, sheet, started);
        connect(playlists, &PlayListDataSource::copyingFile, sheet, copying);
        connect(playlists, &PlayListDataSource::copyFinished, sheet, &QDialog::accept);
    } else if (auto* media = qobject_cast<MediaDataSource*>(source)) {
        connect(media, &MediaDataSource::copyStarted, sheet, started);
        connect(media, &MediaDataSource::copyingFile, sheet, copying);
        connect(media, &MediaDataSource::copyFinished, sheet, &QDialog::accept);
    }
}
