#include "tags/TagAPI.h"

#include "platform/SafeFile.h"
#include "tags/AudioPayload.h"
#include "tags/ID3Tables.h"
#include "tags/ImageCoding.h"

#include <QFile>
#include <QImage>
#include <QVariantMap>

#include <taglib/attachedpictureframe.h>
#include <taglib/id3v1tag.h>
#include <taglib/id3v2framefactory.h>
#include <taglib/id3v2tag.h>
#include <taglib/mpegfile.h>
#include <taglib/textidentificationframe.h>
#include <taglib/tfilestream.h>

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {
QString toQString(const TagLib::String& value)
{
    return QString::fromUtf8(value.toCString(true));
}

TagLib::String toTagString(const QString& value)
{
    return TagLib::String(value.toStdString(), TagLib::String::UTF8);
}

QString nonEmpty(const TagLib::String& value)
{
    return value.isEmpty() ? QString() : toQString(value);
}

QString quoted(const QString& path)
{
    return QLatin1Char('"') + path + QLatin1Char('"');
}

QString reason(int error)
{
    if (error == ENOSPC || error == EFBIG || error == EDQUOT)
        return QStringLiteral("the disk is full");
    return QString::fromLocal8Bit(std::strerror(error));
}

// A TagLib stream over an open file descriptor. TagLib's own file stream drops
// write errors; this one keeps the first, so a full disk fails the save.
class DescriptorStream : public TagLib::IOStream {
public:
    DescriptorStream(int fd, QByteArray name) : fd_(fd), name_(std::move(name)) {}

    int error() const { return error_; }

    TagLib::FileName name() const override { return name_.constData(); }
    bool readOnly() const override { return false; }
    bool isOpen() const override { return fd_ >= 0; }
    long tell() const override { return long(position_); }
    void seek(long offset, Position from) override
    {
        const qint64 base = from == Beginning ? 0 : from == Current ? position_ : qint64(length());
        position_ = qMax<qint64>(0, base + offset);
    }
    long length() override
    {
        struct stat info {};
        if (::fstat(fd_, &info) == 0)
            return long(info.st_size);
        remember(errno);
        return 0;
    }
    void truncate(long length) override
    {
        if (::ftruncate(fd_, off_t(length)) != 0)
            remember(errno);
    }

    TagLib::ByteVector readBlock(unsigned long length) override
    {
        // A damaged size field may ask for more than the file holds.
        length = static_cast<unsigned long>(qBound<qint64>(0, qint64(this->length()) - position_, qint64(length)));
        TagLib::ByteVector block(static_cast<unsigned int>(length), '\0');
        qint64 got = 0;
        while (got < qint64(length)) {
            const ssize_t read = ::pread(fd_, block.data() + got, size_t(qint64(length) - got), off_t(position_ + got));
            if (read < 0 && errno == EINTR)
                continue;
            if (read < 0)
                remember(errno);
            if (read <= 0)
                break;
            got += read;
        }
        block.resize(static_cast<unsigned int>(got));
        position_ += got;
        return block;
    }

    void writeBlock(const TagLib::ByteVector& data) override
    {
        writeAt(position_, data.data(), data.size());
        position_ += data.size();
    }

    // Writes data over `replace` bytes at `start`, moving what follows them.
    void insert(const TagLib::ByteVector& data, unsigned long start, unsigned long replace) override
    {
        const qint64 end = length();
        const qint64 tail = qint64(start) + qint64(replace);
        if (qint64(data.size()) != qint64(replace) && tail < end)
            move(tail, qint64(start) + data.size(), end - tail);
        if (qint64(data.size()) < qint64(replace))
            truncate(long(end - (qint64(replace) - data.size())));
        writeAt(qint64(start), data.data(), data.size());
        position_ = qint64(start) + data.size();
    }

    void removeBlock(unsigned long start, unsigned long length) override
    {
        const qint64 end = this->length();
        const qint64 tail = qint64(start) + qint64(length);
        if (tail >= end) {
            truncate(long(qMin<qint64>(qint64(start), end)));
            return;
        }
        move(tail, qint64(start), end - tail);
        truncate(long(end - qint64(length)));
    }

private:
    void remember(int error)
    {
        if (!error_)
            error_ = error;
    }

    void writeAt(qint64 offset, const char* bytes, qint64 count)
    {
        while (count > 0) {
            const ssize_t put = ::pwrite(fd_, bytes, size_t(count), off_t(offset));
            if (put < 0 && errno == EINTR)
                continue;
            if (put <= 0) {
                remember(put < 0 ? errno : EIO);
                return;
            }
            bytes += put;
            offset += put;
            count -= put;
        }
    }

    // Moves `count` bytes from `from` to `to`, a block at a time, from the far
    // end first when they move up so nothing is overwritten before it is read.
    void move(qint64 from, qint64 to, qint64 count)
    {
        constexpr qint64 kBlock = 1 << 20;
        std::vector<char> buffer(size_t(qMin(count, kBlock)));
        for (qint64 done = 0; done < count && !error_;) {
            const qint64 take = qMin(kBlock, count - done);
            const qint64 at = to > from ? count - done - take : done;
            for (qint64 got = 0; got < take;) {
                const ssize_t read = ::pread(fd_, buffer.data() + got, size_t(take - got), off_t(from + at + got));
                if (read < 0 && errno == EINTR)
                    continue;
                if (read <= 0) {
                    remember(read < 0 ? errno : EIO);
                    return;
                }
                got += read;
            }
            writeAt(to + at, buffer.data(), take);
            done += take;
        }
    }

    int fd_;
    QByteArray name_;
    qint64 position_ = 0;
    int error_ = 0;
};

// Moves every frame of one ID3v2 tag into another, whose own frames go. The
// frames are listed in plain vectors: a copy of a tag's own list would share
// it and delete the frames when it goes.
void moveFrames(TagLib::ID3v2::Tag* from, TagLib::ID3v2::Tag* to)
{
    const std::vector<TagLib::ID3v2::Frame*> dropped(to->frameList().begin(), to->frameList().end());
    for (TagLib::ID3v2::Frame* frame : dropped)
        to->removeFrame(frame, true);
    const std::vector<TagLib::ID3v2::Frame*> moving(from->frameList().begin(), from->frameList().end());
    for (TagLib::ID3v2::Frame* frame : moving) {
        from->removeFrame(frame, false);
        to->addFrame(frame);
    }
}

// The text of the first ID3v2 frame with this id, "" when there is none.
TagLib::String frameText(const TagLib::ID3v2::Tag* tag, const char* id)
{
    if (!tag)
        return {};
    const TagLib::ID3v2::FrameList& frames = tag->frameList(id);
    return frames.isEmpty() ? TagLib::String() : frames.front()->toString();
}
} // namespace

TagAPI::TagAPI(const QStringList* genreList)
{
    if (genreList) {
        genres_ = *genreList;
    } else {
        for (const char* name : ID3_v1_genre_description)
            genres_.append(QString::fromLatin1(name));
    }
}

TagAPI::~TagAPI() = default;

TagAPI& TagAPI::forThisThread()
{
    thread_local TagAPI instance;
    return instance;
}

bool TagAPI::examineFile(const QString& path)
{
    releaseFile();
    auto stream = std::make_unique<TagLib::FileStream>(QFile::encodeName(path).constData(), true);
    if (!stream->isOpen())
        return false;
    auto file = std::make_unique<TagLib::MPEG::File>(stream.get(), TagLib::ID3v2::FrameFactory::instance(), true,
                                                     TagLib::AudioProperties::Average);
    if (!file->isOpen())
        return false;
    path_ = path;
    stream_ = std::move(stream);
    file_ = std::move(file);
    return true;
}

void TagAPI::releaseFile()
{
    file_.reset();
    stream_.reset();
    path_.clear();
}

QString TagAPI::getTitle() const
{
    return file_ && file_->tag() ? nonEmpty(file_->tag()->title()) : QString();
}

QString TagAPI::getArtist() const
{
    return file_ && file_->tag() ? nonEmpty(file_->tag()->artist()) : QString();
}

QString TagAPI::getAlbum() const
{
    return file_ && file_->tag() ? nonEmpty(file_->tag()->album()) : QString();
}

int TagAPI::getTrack() const
{
    return file_ && file_->tag() ? int(file_->tag()->track()) : 0;
}

int TagAPI::getYear() const
{
    return file_ && file_->tag() ? int(file_->tag()->year()) : 0;
}

QString TagAPI::resolveGenre(const QString& name) const
{
    // "(17)" and "17" are references into the genre list.
    QString number = name.trimmed();
    if (number.startsWith(QLatin1Char('(')) && number.endsWith(QLatin1Char(')')))
        number = number.mid(1, number.size() - 2);
    bool isNumber = false;
    const int index = number.toInt(&isNumber);
    if (isNumber && index >= 0 && index < genres_.size())
        return genres_.at(index);
    return name;
}

QStringList TagAPI::getGenreNames() const
{
    QStringList names;
    if (!file_)
        return names;
    if (const TagLib::ID3v2::Tag* tag = file_->ID3v2Tag(); tag && !tag->frameList("TCON").isEmpty()) {
        const auto* frame = dynamic_cast<const TagLib::ID3v2::TextIdentificationFrame*>(tag->frameList("TCON").front());
        if (frame) {
            for (const TagLib::String& field : frame->fieldList()) {
                if (!field.isEmpty())
                    names.append(resolveGenre(toQString(field)));
            }
        }
        return names;
    }
    if (const TagLib::ID3v1::Tag* tag = file_->ID3v1Tag()) {
        const unsigned number = tag->genreNumber();
        if (number < unsigned(genres_.size()))
            names.append(genres_.at(int(number)));
    }
    return names;
}

int TagAPI::getDuration() const
{
    return file_ && file_->audioProperties() ? file_->audioProperties()->lengthInSeconds() : 0;
}

int TagAPI::getTotalNumberTracks() const
{
    if (!file_)
        return 0;
    const QString track = toQString(frameText(file_->ID3v2Tag(), "TRCK"));
    const int slash = track.indexOf(QLatin1Char('/'));
    return slash < 0 ? 0 : track.mid(slash + 1).trimmed().toInt();
}

QVariantList TagAPI::getImage() const
{
    QVariantList pictures;
    const TagLib::ID3v2::Tag* tag = file_ ? file_->ID3v2Tag() : nullptr;
    if (!tag)
        return pictures;
    for (const TagLib::ID3v2::Frame* frame : tag->frameList("APIC")) {
        const auto* picture = dynamic_cast<const TagLib::ID3v2::AttachedPictureFrame*>(frame);
        if (!picture)
            continue;
        const TagLib::ByteVector& data = picture->picture();
        QImage image;
        if (!image.loadFromData(reinterpret_cast<const uchar*>(data.data()), int(data.size())))
            continue;
        pictures.append(ImageCoding::artworkRecord(decodeImageType(int(picture->type())),
                                                   toQString(picture->description()),
                                                   toQString(picture->mimeType()), image));
    }
    return pictures;
}

void TagAPI::setTitle(const QString& value)
{
    if (!file_)
        return;
    file_->ID3v2Tag(true)->setTitle(toTagString(value));
    if (file_->hasID3v1Tag())
        file_->ID3v1Tag()->setTitle(toTagString(value));
}

void TagAPI::setArtist(const QString& value)
{
    if (!file_)
        return;
    file_->ID3v2Tag(true)->setArtist(toTagString(value));
    if (file_->hasID3v1Tag())
        file_->ID3v1Tag()->setArtist(toTagString(value));
}

void TagAPI::setAlbum(const QString& value)
{
    if (!file_)
        return;
    file_->ID3v2Tag(true)->setAlbum(toTagString(value));
    if (file_->hasID3v1Tag())
        file_->ID3v1Tag()->setAlbum(toTagString(value));
}

void TagAPI::setGenreName(const QStringList& names)
{
    if (!file_)
        return;
    TagLib::ID3v2::Tag* tag = file_->ID3v2Tag(true);
    tag->removeFrames("TCON");
    TagLib::StringList fields;
    for (const QString& name : names)
        fields.append(toTagString(name));
    if (!fields.isEmpty()) {
        auto* frame = new TagLib::ID3v2::TextIdentificationFrame("TCON", TagLib::String::Latin1);
        frame->setText(fields);
        tag->addFrame(frame);
    }
    if (file_->hasID3v1Tag())
        file_->ID3v1Tag()->setGenre(names.isEmpty() ? TagLib::String() : toTagString(names.first()));
}

void TagAPI::setYear(int year)
{
    if (!file_)
        return;
    file_->ID3v2Tag(true)->setYear(unsigned(qMax(0, year)));
    if (file_->hasID3v1Tag())
        file_->ID3v1Tag()->setYear(unsigned(qMax(0, year)));
}

void TagAPI::setTrack(int track, int totalTracks)
{
    if (!file_)
        return;
    TagLib::ID3v2::Tag* tag = file_->ID3v2Tag(true);
    tag->removeFrames("TRCK");
    if (track > 0 || totalTracks > 0) {
        QString text = QString::number(qMax(0, track));
        if (totalTracks > 0)
            text += QLatin1Char('/') + QString::number(totalTracks);
        auto* frame = new TagLib::ID3v2::TextIdentificationFrame("TRCK", TagLib::String::Latin1);
        frame->setText(toTagString(text));
        tag->addFrame(frame);
    }
    if (file_->hasID3v1Tag())
        file_->ID3v1Tag()->setTrack(unsigned(qMax(0, track)));
}

void TagAPI::setImages(const QVariantList& artwork)
{
    if (!file_)
        return;
    TagLib::ID3v2::Tag* tag = file_->ID3v2Tag(true);
    tag->removeFrames("APIC");
    ImageCoding::Format format = ImageCoding::Format::Tiff;
    for (const QVariant& entry : artwork) {
        const QVariantMap record = entry.toMap();
        const QString mimeType = record.value(QStringLiteral("Mime Type")).toString();
        format = ImageCoding::formatForMimeType(mimeType, format);
        QByteArray bytes;
        QFile cached(record.value(QStringLiteral("cachepath")).toString());
        if (!cached.fileName().isEmpty() && cached.open(QIODevice::ReadOnly))
            bytes = cached.readAll();
        if (bytes.isEmpty())
            bytes = ImageCoding::encode(record.value(QStringLiteral("Image")).value<QImage>(), format);
        if (bytes.isEmpty())
            continue;
        auto* frame = new TagLib::ID3v2::AttachedPictureFrame;
        frame->setMimeType(toTagString(mimeType));
        frame->setDescription(toTagString(record.value(QStringLiteral("Description")).toString()));
        frame->setType(TagLib::ID3v2::AttachedPictureFrame::Type(
            encodeImageType(record.value(QStringLiteral("Picture Type")).toString())));
        frame->setPicture(TagLib::ByteVector(bytes.constData(), unsigned(bytes.size())));
        tag->addFrame(frame);
    }
}

TagAPI::Fields TagAPI::fields() const
{
    Fields fields {getTitle(), getArtist(), getAlbum(), getTrack(), getTotalNumberTracks(), getYear(),
                   getGenreNames(), {}};
    if (const TagLib::ID3v2::Tag* tag = file_ ? file_->ID3v2Tag() : nullptr) {
        for (const TagLib::ID3v2::Frame* frame : tag->frameList("APIC")) {
            if (const auto* picture = dynamic_cast<const TagLib::ID3v2::AttachedPictureFrame*>(frame))
                fields.pictures.append(QByteArray(picture->picture().data(), int(picture->picture().size())));
        }
    }
    return fields;
}

// Why the new file `made` is not what was meant: "" when its MPEG audio is
// byte for byte the old file's and its tags read back as expected.
QString TagAPI::checkWritten(const QString& made, const Fields& expected) const
{
    if (!AudioPayload::difference(AudioPayload::Format::Mpeg, path_, made).isEmpty())
        return quoted(path_) + QStringLiteral(": the audio would have changed; the file was left as it was.");
    TagAPI reader(&genres_);
    if (!reader.examineFile(made) || reader.fields() != expected)
        return QStringLiteral("The new version of ") + quoted(path_) +
               QStringLiteral(" did not read back as written; the file was left as it was.");
    return {};
}

bool TagAPI::updateFile(QString* error)
{
    auto fail = [&](const QString& text) {
        if (error)
            *error = text;
        return false;
    };
    if (!file_)
        return fail(QStringLiteral("No MP3 file is open to write tags into."));
    if (const QString refused = SafeFile::refusalToReplace(path_); !refused.isEmpty())
        return fail(refused);
    if (const QString why = AudioPayload::unreadable(AudioPayload::Format::Mpeg, path_); !why.isEmpty())
        return fail(quoted(path_) + QStringLiteral(": its audio cannot be told from its tags (") + why +
                    QStringLiteral("); the file was left as it was."));
    const Fields expected = fields();
    int tags = TagLib::MPEG::File::ID3v2;
    if (file_->hasID3v1Tag())
        tags |= TagLib::MPEG::File::ID3v1;

    SafeFile::Replacement copy(path_);
    if (!copy.createCopy())
        return fail(copy.errorString());
    int writeError = 0;
    bool saved = false;
    {
        // The copy takes the edited tags and TagLib saves them there; the
        // examined file gets its frames back afterwards.
        DescriptorStream stream(copy.fd(), QFile::encodeName(copy.path()));
        TagLib::MPEG::File written(&stream, TagLib::ID3v2::FrameFactory::instance(), false);
        moveFrames(file_->ID3v2Tag(true), written.ID3v2Tag(true));
        if (file_->hasID3v1Tag())
            TagLib::Tag::duplicate(file_->ID3v1Tag(), written.ID3v1Tag(true), true);
        saved = written.isOpen() && written.save(tags, TagLib::File::StripNone, TagLib::ID3v2::v3,
                                                 TagLib::File::DoNotDuplicate);
        moveFrames(written.ID3v2Tag(true), file_->ID3v2Tag(true));
        writeError = stream.error();
    }
    if (writeError || !saved)
        return fail(QStringLiteral("Cannot write ") + quoted(path_) + QStringLiteral(": ") +
                    reason(writeError ? writeError : EIO) + QStringLiteral("; the file was left as it was."));
    if (!copy.commit([&](const QString& made) { return checkWritten(made, expected); }))
        return fail(copy.errorString());
    return true;
}
