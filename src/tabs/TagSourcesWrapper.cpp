#include "tabs/TagSourcesWrapper.h"

#include "platform/SafeFile.h"

#include "core/Defaults.h"
#include "core/FileSystemItem.h"
#include "core/Job.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "platform/AppPaths.h"
#include "platform/SafeFile.h"
#include "playlists/PlaylistFiles.h"
#include "tabs/FolderCollector.h"
#include "tags/ID3Tables.h"
#include "tags/Id3FrameLister.h"
#include "tags/ImageCoding.h"
#include "tags/TagFacade.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QImageWriter>
#include <QLocale>
#include <QSet>
#include <QTemporaryDir>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

namespace {

const QString kFoldersKey = QStringLiteral("mTagFoldersStored");
const QString kUnknownArtist = QStringLiteral("Unknown Artist");
const QString kUnknownAlbum = QStringLiteral("Unknown Album");
// The first rows show as soon as they are read; later ones come in larger batches.
constexpr int kFirstBatch = 32;
constexpr int kBatch = 256;
constexpr int kJpegQuality = 90;
// Files written at the same time by a save.
constexpr qsizetype kWriters = 8;

QString sourceTitle(const QString& path)
{
    const QString name = QFileInfo(QDir::cleanPath(path)).fileName();
    return name.isEmpty() ? path : name;
}

// A title of only blanks and control characters counts as none.
bool isBlank(const QString& text)
{
    return std::all_of(text.begin(), text.end(),
                       [](QChar c) { return c.isSpace() || c.category() == QChar::Other_Control; });
}

ImageCoding::Format pictureFormat(const QString& mimeType, ImageCoding::Format previous)
{
    // "image/jpeg" is how most taggers name what this system calls "image/jpg".
    if (mimeType.section(QLatin1Char('/'), -1).compare(QLatin1String("jpeg"), Qt::CaseInsensitive) == 0)
        return ImageCoding::Format::Jpeg;
    return ImageCoding::formatForMimeType(mimeType, previous);
}

QByteArray encodePicture(const QImage& image, ImageCoding::Format format)
{
    if (format != ImageCoding::Format::Jpeg)
        return ImageCoding::encode(image, format);
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, "JPEG");
    writer.setQuality(kJpegQuality);
    return !image.isNull() && writer.write(image) ? bytes : QByteArray();
}

// The encoded bytes a picture dropped on the well keeps, so a save does not encode it twice.
const QString kEncodedKey = QStringLiteral("Image Data");

}  // namespace

// Rows read by the find thread and not yet taken by the main thread.
struct TagSourcesWrapper::FoundRows {
    std::mutex mutex;
    QStringList songs;
    QVariantList tags;
    bool takePosted = false;
};

const QStringList& TagSourcesWrapper::taggableTypes()
{
    static const QStringList types = {"mp3", "ogg", "m4a", "m4p", "m4b", "m4r", "aac"};
    return types;
}

const QStringList& TagSourcesWrapper::columnIdentifiers()
{
    static const QStringList columns = {"title", "artist", "album", "year", "track", "genre"};
    return columns;
}

QStringList TagSourcesWrapper::pictureTypeNames()
{
    QStringList names;
    for (int type = 0; type < kPictureTypeCount; ++type)
        names << decodeImageType(type);
    return names;
}

bool TagSourcesWrapper::writeArtworkFiles(QVariantList& artwork, const QString& folder, QString* error)
{
    ImageCoding::Format format = ImageCoding::Format::Tiff;
    for (qsizetype n = 0; n < artwork.size(); ++n) {
        QVariantMap record = artwork.at(n).toMap();
        const QString mimeType = record.value(QStringLiteral("Mime Type")).toString();
        format = pictureFormat(mimeType, format);
        const QImage image = record.value(QStringLiteral("Image")).value<QImage>();
        if (image.isNull())
            continue;  // an added artwork that never got a picture
        const QByteArray kept = record.value(kEncodedKey).toByteArray();
        const QByteArray bytes = format == ImageCoding::Format::Jpeg && !kept.isEmpty() ? kept
                                                                                         : encodePicture(image, format);
        const QString path =
            QStringLiteral("%1/%2.%3").arg(folder).arg(n).arg(mimeType.section(QLatin1Char('/'), -1));
        QFile file(path);
        if (bytes.isEmpty() || !file.open(QIODevice::WriteOnly | QIODevice::NewOnly) || file.write(bytes) != bytes.size()
            || !file.flush()) {
            if (error)
                *error = QStringLiteral("%1: the picture could not be written (%2)").arg(path, file.errorString());
            return false;
        }
        record.insert(QStringLiteral("cachepath"), path);
        artwork[n] = record;
    }
    return true;
}

TagSourcesWrapper::TagSourcesWrapper(QObject* parent) : QObject(parent)
{
    for (const QVariant& folder : Defaults::standard().arrayForKey(kFoldersKey))
        folders_ << folder.toString();
    // Notices may come from any thread; the tab's state belongs to its own.
    NotificationCenter& center = NotificationCenter::defaultCenter();
    center.addObserver(this, VLPlaylistInfoNotification, [this](const Notification& n) {
        QMetaObject::invokeMethod(this, [this, list = n.object.toMap().value("playlistarray").toStringList()] {
            playlists_ = list;
            rebuildSources();
        });
    });
    center.addObserver(this, VLReloadLibraryNotification, [this](const Notification&) {
        QMetaObject::invokeMethod(this, [this] { rebuildSources(); });
    });
    rebuildSources();
}

TagSourcesWrapper::~TagSourcesWrapper()
{
    NotificationCenter::defaultCenter().removeObserver(this);
    if (finding_) {
        finding_->cancel();
        finding_->wait();
    }
    if (saving_)
        saving_->wait();
}

// ---------------------------------------------------------------- sources

void TagSourcesWrapper::setFlashPlayers(const QStringList& mountPoints)
{
    flashPlayers_ = mountPoints;
    rebuildSources();
}

void TagSourcesWrapper::addFolder(const QString& folder)
{
    const QString clean = QDir::cleanPath(folder);
    if (clean.isEmpty() || folders_.contains(clean))
        return;
    folders_ << clean;
    Defaults::standard().setObject(kFoldersKey, folders_);
    Defaults::standard().synchronize();
    rebuildSources();
}

void TagSourcesWrapper::removeFolder(const QString& folder)
{
    if (!folders_.removeAll(QDir::cleanPath(folder)))
        return;
    Defaults::standard().setObject(kFoldersKey, folders_);
    Defaults::standard().synchronize();
    rebuildSources();
}

void TagSourcesWrapper::rebuildSources()
{
    QList<SourceRow> rows;
    auto addKind = [&rows](SourceKind kind, const QString& title, const QStringList& paths, auto name) {
        rows << SourceRow{kind, 0, title, {}};
        for (const QString& path : paths)
            rows << SourceRow{kind, 1, name(path), path};
    };
    addKind(SourceKind::Library, tr("Library"), FileSystemItem::rootPaths(), sourceTitle);
    addKind(SourceKind::Playlist, tr("Playlists"), playlists_, PlaylistFiles::displayName);
    addKind(SourceKind::Folder, tr("Folders"), folders_, sourceTitle);
    addKind(SourceKind::FlashMedia, tr("Flash Media"), flashPlayers_, sourceTitle);

    const bool hadSelection = selectedSource_ >= 0 && selectedSource_ < sources_.size();
    const SourceRow selected = hadSelection ? sources_.at(selectedSource_) : SourceRow{};
    const SourceRow pending = sources_.value(pendingSource_);
    sources_ = rows;
    selectedSource_ = hadSelection ? int(sources_.indexOf(selected)) : -1;
    pendingSource_ = pendingSource_ >= 0 ? int(sources_.indexOf(pending)) : -1;
    emit sourcesChanged();
    emit sourceSelected(selectedSource_);
}

void TagSourcesWrapper::selectSource(int row)
{
    if (row < 0 || row >= sources_.size() || isBusy())
        return;
    if (dirty_) {
        pendingSource_ = row;
        emit unsavedEditsPending();
        return;
    }
    pendingSource_ = -1;
    selectedSource_ = row;
    emit sourceSelected(row);
    songs_.clear();
    tags_.clear();
    selectedRows_.clear();
    emit songsReset();
    showSelection();
    startFinding(sources_.at(row));
}

void TagSourcesWrapper::resolveUnsavedEdits(UnsavedChoice choice)
{
    switch (choice) {
    case UnsavedChoice::Cancel:
        pendingSource_ = -1;
        emit sourceSelected(selectedSource_);
        break;
    case UnsavedChoice::Discard: {
        setDirty(false);
        const int pending = std::exchange(pendingSource_, -1);
        if (pending >= 0)
            selectSource(pending);
        break;
    }
    case UnsavedChoice::Save:
        continuePendingAfterSave_ = true;
        if (!setTags() && !saving_)
            resolveUnsavedEdits(UnsavedChoice::Discard);  // nothing was selected, so nothing to write
        break;
    }
}

// ---------------------------------------------------------------- finding

void TagSourcesWrapper::startFinding(const SourceRow& source)
{
    QStringList pieces;
    for (const SourceRow& entry : sources_) {
        if (entry.kind == source.kind && entry.level == 1 && (source.level == 0 || entry == source))
            pieces << entry.path;
    }
    const bool playlists = source.kind == SourceKind::Playlist;
    const quint64 generation = ++findGeneration_;
    found_ = std::make_shared<FoundRows>();
    finding_ = Job::create(tr("Searching Folder"), [this, pieces, playlists, generation, found = found_](Job& job) {
        std::atomic<bool> cancel{false};
        const Job::CancelHook hook = job.onCancel([&cancel] { cancel = true; });
        QSet<QString> types(taggableTypes().begin(), taggableTypes().end());
        QStringList files;
        for (const QString& piece : pieces) {
            QStringList leaves{piece};
            if (playlists) {
                leaves.clear();
                if (const auto group = PlaylistFiles::readGroup(piece))
                    PlaylistFiles::gatherLeaves(*group, leaves);
            }
            for (const QString& leaf : std::as_const(leaves))
                files << audioFilesOf(leaf, &cancel, types);
        }
        for (qsizetype done = 0; done < files.size() && !cancel;) {
            const qsizetype count = std::min<qsizetype>(done == 0 ? kFirstBatch : kBatch, files.size() - done);
            QStringList songs = files.mid(done, count);
            QVariantList tags;
            for (const QString& song : std::as_const(songs))
                tags << getComments(song).value_or(QVariantMap());
            done += count;
            job.setProgress(100.0 * double(done) / double(files.size()),
                            tr("Read the tags of %1 of %2 files").arg(done).arg(files.size()));
            std::lock_guard lock(found->mutex);
            found->songs << songs;
            found->tags << tags;
            if (!std::exchange(found->takePosted, true))
                QMetaObject::invokeMethod(this, [this, generation] { takeRows(generation); }, Qt::QueuedConnection);
        }
        QMetaObject::invokeMethod(this, [this, generation] { findEnded(generation); }, Qt::QueuedConnection);
        return cancel ? JobResult::cancelled() : JobResult::succeeded();
    });
    finding_->setStatus(tr("For deep folders, this can take a VERY long time. Please wait."));
    emit busyChanged(true);
    emitProgress(tr("Searching Folder"), tr("For deep folders, this can take a VERY long time. Please wait."), {});
    finding_->start();
}

void TagSourcesWrapper::takeRows(quint64 generation)
{
    if (generation != findGeneration_ || !found_)
        return;
    QStringList songs;
    QVariantList tags;
    {
        std::lock_guard lock(found_->mutex);
        songs.swap(found_->songs);
        tags.swap(found_->tags);
        found_->takePosted = false;
    }
    if (songs.isEmpty())
        return;
    const int first = rowCount();
    songs_ << songs;
    tags_ << tags;
    emit rowsAppended(first, rowCount() - 1);
}

void TagSourcesWrapper::findEnded(quint64 generation)
{
    if (generation != findGeneration_ || !finding_)
        return;
    finding_->wait();
    takeRows(generation);
    finding_.reset();
    found_.reset();
    emitProgress(tr("Saving Files"), tr("This can take a bit of time, but not too much.  Please wait."), {});
    emit busyChanged(isBusy());
}

void TagSourcesWrapper::stop()
{
    if (finding_)
        finding_->cancel();
    if (saving_)
        saving_->cancel();
}

// ---------------------------------------------------------------- the table

QString TagSourcesWrapper::cellText(int row, const QString& column) const
{
    if (row < 0 || row >= rowCount())
        return {};
    const QVariantMap record = tags_.at(row).toMap();
    const bool isTitle = column == QLatin1String("title");
    const auto value = record.constFind(column);
    if (value == record.constEnd())
        return isTitle ? QFileInfo(songs_.at(row)).fileName() : QStringLiteral("--");
    const QString text = value->toString();
    return isTitle && isBlank(text) ? QFileInfo(songs_.at(row)).fileName() : text;
}

void TagSourcesWrapper::setCell(int row, const QString& column, const QString& text)
{
    if (row < 0 || row >= rowCount() || !columnIdentifiers().contains(column))
        return;
    QVariantMap record = tags_.at(row).toMap();
    if (record.value(column).toString() == text && (record.contains(column) || text.isEmpty()))
        return;
    record.insert(column, text);
    tags_[row] = record;
    ++edits_;
    setDirty(true);
    emit rowChanged(row);
    // The fields are written into the selected row on saving: they follow its cells.
    if (selectedRows_.size() == 1 && selectedRows_.first() == row) {
        if (column == QLatin1String("artist"))
            artistField_ = text;
        else if (column == QLatin1String("album"))
            albumField_ = text;
        emit selectionShown();
    }
}

void TagSourcesWrapper::selectRows(QList<int> rows)
{
    rows.erase(std::remove_if(rows.begin(), rows.end(), [this](int row) { return row < 0 || row >= rowCount(); }),
               rows.end());
    std::sort(rows.begin(), rows.end());
    rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
    if (rows == selectedRows_)
        return;
    waitForSave();
    if (dirty_ && !selectedRows_.isEmpty())
        setTags();
    // The new selection shows what was just written.
    const QList<int> saved = selectedRows_;
    if (std::any_of(rows.begin(), rows.end(), [&saved](int row) { return saved.contains(row); }))
        waitForSave();
    selectedRows_ = rows;
    if (rows.size() > 1 && !saved.isEmpty())
        return;  // the fields and the artwork stay those of the first file
    showSelection();
}

void TagSourcesWrapper::leaveTable()
{
    if (dirty_ && !selectedRows_.isEmpty())
        setTags();
}

void TagSourcesWrapper::setArtistField(const QString& text)
{
    if (text == artistField_ || selectedRows_.isEmpty())
        return;
    artistField_ = text;
    ++edits_;
    setDirty(true);
}

void TagSourcesWrapper::setAlbumField(const QString& text)
{
    if (text == albumField_ || selectedRows_.isEmpty())
        return;
    albumField_ = text;
    ++edits_;
    setDirty(true);
}

void TagSourcesWrapper::showSelection()
{
    artwork_.clear();
    artworkIndex_ = -1;
    artworkTouched_ = false;
    artistField_.clear();
    albumField_.clear();
    if (!selectedRows_.isEmpty()) {
        const int row = selectedRows_.first();
        const QVariantMap record = tags_.at(row).toMap();
        artistField_ = record.value("artist", kUnknownArtist).toString();
        albumField_ = record.value("album", kUnknownAlbum).toString();
        artwork_ = getAlbumArt(songs_.at(row));
        artworkIndex_ = artwork_.isEmpty() ? -1 : 0;
    }
    emit selectionShown();
    emit artworkChanged();
}

void TagSourcesWrapper::setDirty(bool dirty)
{
    if (dirty == dirty_)
        return;
    dirty_ = dirty;
    emit dirtyChanged(dirty);
}

// ---------------------------------------------------------------- artwork

QString TagSourcesWrapper::artworkLabel() const
{
    if (selectedRows_.isEmpty())
        return tr("No track selected");
    if (artwork_.isEmpty())
        return tr("No artwork");
    return tr("%1 of %2").arg(artworkIndex_ + 1).arg(artwork_.size());
}

QString TagSourcesWrapper::artworkSizeText() const
{
    const QVariantMap record = currentArtwork();
    const QImage image = record.value(QStringLiteral("Image")).value<QImage>();
    if (image.isNull())
        return {};
    QByteArray bytes = record.value(kEncodedKey).toByteArray();
    if (bytes.isEmpty())
        bytes = encodePicture(image, pictureFormat(record.value(QStringLiteral("Mime Type")).toString(),
                                                   ImageCoding::Format::Tiff));
    return tr("%1 × %2 pixels, %3 bytes")
        .arg(image.width())
        .arg(image.height())
        .arg(QLocale().toString(qint64(bytes.size())));
}

void TagSourcesWrapper::artworkEdited()
{
    artworkTouched_ = true;
    ++edits_;
    setDirty(true);
    emit artworkChanged();
}

void TagSourcesWrapper::nextArtwork()
{
    if (artwork_.isEmpty())
        return;
    artworkIndex_ = (artworkIndex_ + 1) % int(artwork_.size());
    emit artworkChanged();
}

void TagSourcesWrapper::prevArtwork()
{
    if (artwork_.isEmpty())
        return;
    artworkIndex_ = (artworkIndex_ + int(artwork_.size()) - 1) % int(artwork_.size());
    emit artworkChanged();
}

void TagSourcesWrapper::addArtwork()
{
    if (selectedRows_.isEmpty())
        return;
    artworkIndex_ += 1;
    artwork_.insert(artworkIndex_, ImageCoding::artworkRecord(QStringLiteral("Other"), {}, {}, {}));
    artworkEdited();
}

void TagSourcesWrapper::deleteArtwork()
{
    if (artworkIndex_ < 0)
        return;
    artwork_.removeAt(artworkIndex_);
    artworkIndex_ = std::min(artworkIndex_, int(artwork_.size()) - 1);
    artworkEdited();
}

void TagSourcesWrapper::setArtworkPictureType(const QString& name)
{
    if (artworkIndex_ < 0) {
        emit artworkChanged();
        return;
    }
    QVariantMap record = currentArtwork();
    record.insert(QStringLiteral("Picture Type"), name);
    artwork_[artworkIndex_] = record;
    artworkEdited();
}

bool TagSourcesWrapper::setArtworkImage(const QImage& image)
{
    const QByteArray jpeg = encodePicture(image, ImageCoding::Format::Jpeg);
    QImage decoded;
    if (selectedRows_.isEmpty() || jpeg.isEmpty() || !decoded.loadFromData(jpeg, "JPEG")) {
        emit artworkChanged();
        return false;
    }
    if (artwork_.isEmpty()) {
        artwork_ << ImageCoding::artworkRecord(QStringLiteral("Other"), {}, {}, {});
        artworkIndex_ = 0;
    }
    QVariantMap record = currentArtwork();
    record.insert(QStringLiteral("Image"), decoded);
    record.insert(QStringLiteral("Mime Type"), QStringLiteral("image/jpg"));
    record.insert(kEncodedKey, jpeg);
    record.remove(QStringLiteral("cachepath"));
    artwork_[artworkIndex_] = record;
    artworkEdited();
    return true;
}

// ---------------------------------------------------------------- saving

std::shared_ptr<Job> TagSourcesWrapper::setTags()
{
    if (selectedRows_.isEmpty() || saving_)
        return nullptr;
    struct Entry {
        QString path;
        QVariantMap record;
    };
    QList<Entry> entries;
    const QList<int> rows = selectedRows_;
    // The fields' stand-ins for a missing artist or album are not written as names.
    const bool writeArtist = artistField_ != kUnknownArtist;
    const bool writeAlbum = albumField_ != kUnknownAlbum;
    for (int row : rows) {
        QVariantMap record = tags_.at(row).toMap();
        if (writeArtist)
            record.insert(QStringLiteral("artist"), artistField_);
        if (writeAlbum)
            record.insert(QStringLiteral("album"), albumField_);
        tags_[row] = record;
        emit rowChanged(row);
        entries << Entry{songs_.at(row), record};
    }
    // Pictures are written when they changed, and the first file's to every file of a
    // multiple selection; otherwise (a first file without any too) each keeps its own.
    const bool withArtwork = artworkTouched_ || (rows.size() > 1 && !artwork_.isEmpty());
    const QVariantList artwork = artwork_;
    const QString operation = tr("Saving Files");
    const QString status = tr("This can take a bit of time, but not too much.  Please wait.");
    saveEdits_ = edits_;
    saving_ = Job::create(operation, [this, entries, withArtwork, artwork, operation, status](Job& job) {
        QStringList failures;
        QVariantList pictures = artwork;
        std::optional<QTemporaryDir> cache;  // this save's own folder for the pictures, gone at the end
        if (withArtwork && !pictures.isEmpty()) {
            QString error;
            const QString base = AppPaths::artworkCacheDir();
            if (AppPaths::makePrivateFolder(base))
                cache.emplace(base + QStringLiteral("/save-XXXXXX"));
            if (!cache || !cache->isValid())
                error = tr("%1: no folder for the pictures could be made").arg(base);
            else
                writeArtworkFiles(pictures, cache->path(), &error);
            if (!error.isEmpty()) {
                for (const auto& entry : entries)
                    failures << tr("%1: not written, %2").arg(entry.path, error);
            }
        }
        if (failures.isEmpty()) {
            // Several files are written at a time, and made durable together: one
            // flush of the disk for the batch instead of one per file.
            std::vector<QString> errors(size_t(entries.size()));
            std::atomic<qsizetype> next{0};
            std::atomic<qsizetype> written{0};
            SafeFile::Batch batch;
            auto writer = [&] {
                const SafeFile::Batch::Use inBatch(batch);
                for (qsizetype i = next++; i < entries.size(); i = next++) {
                    const QString& path = entries.at(i).path;
                    if (job.isCancelled()) {
                        errors[size_t(i)] = tr("%1: not written, the save was stopped").arg(path);
                        continue;
                    }
                    const TagWriteResult result =
                        writeTags(path, entries.at(i).record, withArtwork ? &pictures : nullptr);
                    errors[size_t(i)] = result.error;
                    const QString name = QFileInfo(path).fileName();
                    job.setProgress(100.0 * double(++written) / double(entries.size()), name);
                    QMetaObject::invokeMethod(
                        this, [this, operation, status, name] { emitProgress(operation, status, name); },
                        Qt::QueuedConnection);
                }
            };
            std::vector<std::thread> helpers;
            for (qsizetype n = 1; n < std::min<qsizetype>(kWriters, entries.size()); ++n)
                helpers.emplace_back(writer);
            writer();
            for (std::thread& helper : helpers)
                helper.join();
            const QHash<QString, QString> notReplaced = batch.finish();
            for (qsizetype i = 0; i < entries.size(); ++i) {
                const QString& error = errors[size_t(i)];
                if (!error.isEmpty())
                    failures << error;
                else if (const QString late = notReplaced.value(SafeFile::resolvedTarget(entries.at(i).path));
                         !late.isEmpty())
                    failures << late;
            }
        }
        const std::weak_ptr<Job> self = job.shared_from_this();
        QMetaObject::invokeMethod(
            this, [this, self, failures] {
                if (saving_ && saving_ == self.lock())
                    saveEnded(failures);
            },
            Qt::QueuedConnection);
        return failures.isEmpty() ? JobResult::succeeded() : JobResult::failed(failures.join(QLatin1Char('\n')));
    });
    emit busyChanged(true);
    emitProgress(operation, status, {});
    saving_->start();
    return saving_;
}

void TagSourcesWrapper::waitForSave()
{
    if (!saving_)
        return;
    saving_->wait();
    const JobResult result = saving_->result();
    saveEnded(result.ok() ? QStringList() : result.error.split(QLatin1Char('\n')));
}

void TagSourcesWrapper::saveEnded(const QStringList& failures)
{
    saving_->wait();
    saving_.reset();
    emit busyChanged(isBusy());
    if (failures.isEmpty() && edits_ == saveEdits_) {
        artworkTouched_ = false;
        setDirty(false);
    }
    emit saveFinished(failures);
    if (!std::exchange(continuePendingAfterSave_, false))
        return;
    const int pending = std::exchange(pendingSource_, -1);
    if (failures.isEmpty() && !dirty_ && pending >= 0)
        selectSource(pending);
    else
        emit sourceSelected(selectedSource_);
}

void TagSourcesWrapper::emitProgress(const QString& operation, const QString& status, const QString& fileName)
{
    emit progressChanged({{"operation", operation}, {"status", status}, {"savefilename", fileName}});
}

// ---------------------------------------------------------------- information

TagSourcesWrapper::Information TagSourcesWrapper::showInformation()
{
    if (selectedRows_.isEmpty() && rowCount() > 0)
        selectRows({0});
    Information information;
    if (selectedRows_.isEmpty())
        return information;
    information.path = songs_.at(selectedRows_.first());
    const QFileInfo file(information.path);
    if (file.suffix().compare(QLatin1String("mp3"), Qt::CaseInsensitive) == 0) {
        information.frames = QString::fromUtf8(id3infoOutput(information.path));
    } else {
        information.name = file.completeBaseName();
        information.extension = file.suffix().toUpper();
        information.folder = file.absolutePath();
    }
    return information;
}
