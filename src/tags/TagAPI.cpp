#include "tags/TagAPI.h"

#include "platform/SafeFile.h"
#include "tags/AudioPayload.h"
#include "tags/ID3Tables.h"
#include "tags/Id3TagRepair.h"
#include "tags/ImageCoding.h"

#include <QFile>
#include <QImage>
#include <QScopeGuard>
#include <QVariantMap>

#include <taglib/attachedpictureframe.h>
#include <taglib/id3v1tag.h>
#include <taglib/id3v2framefactory.h>
#include <taglib/id3v2tag.h>
#include <taglib/mpegfile.h>
#include <taglib/textidentificationframe.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
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

// What TagLib's read-only streams share: a position moved by seek() and
// tell(), and writes that do nothing (TagLib never writes through these).
class ReadOnlyStream : public TagLib::IOStream {
public:
    bool readOnly() const override { return true; }
    long tell() const override { return long(position_); }
    void seek(long offset, Position from) override
    {
        const qint64 base = from == Beginning ? 0 : from == Current ? position_ : qint64(length());
        position_ = qMax<qint64>(0, base + offset);
    }
    void writeBlock(const TagLib::ByteVector&) override {}
    void insert(const TagLib::ByteVector&, unsigned long, unsigned long) override {}
    void removeBlock(unsigned long, unsigned long) override {}
    void truncate(long) override {}

protected:
    qint64 position_ = 0;
};

// A file opened read only for TagLib, read a window at a time. TagLib asks
// for the length and seeks before nearly every small read; here the length is
// taken once and the reads at the head and the tail of a file (the tags) come
// from one or two windows, so a parse is a handful of system calls.
class WindowedFileStream : public ReadOnlyStream {
public:
    explicit WindowedFileStream(const QString& path)
        : name_(QFile::encodeName(path)), fd_(::open(name_.constData(), O_RDONLY | O_CLOEXEC))
    {
        struct stat info {};
        if (fd_ >= 0 && ::fstat(fd_, &info) == 0)
            length_ = qint64(info.st_size);
    }
    ~WindowedFileStream() override
    {
        if (fd_ >= 0)
            ::close(fd_);
    }
    WindowedFileStream(const WindowedFileStream&) = delete;
    WindowedFileStream& operator=(const WindowedFileStream&) = delete;

    TagLib::FileName name() const override { return name_.constData(); }
    bool isOpen() const override { return fd_ >= 0 && length_ >= 0; }
    long length() override { return long(qMax<qint64>(0, length_)); }

    TagLib::ByteVector readBlock(unsigned long length) override
    {
        const qint64 wanted = qMax<qint64>(0, qMin<qint64>(qint64(length), length_ - position_));
        if (wanted == 0)
            return {};
        const qint64 windowStart = position_ - windowOffset_;
        if (windowStart < 0 || windowStart + wanted > window_.size()) {
            if (wanted > kWindow)
                return readDirect(wanted);
            // A window that ends at the end of the file when it can, so that
            // the tail tags are read in one go.
            windowOffset_ = qMax<qint64>(0, qMin(position_, length_ - kWindow));
            window_.resize(qsizetype(qMin<qint64>(kWindow, length_ - windowOffset_)));
            const ssize_t got = preadAll(window_.data(), window_.size(), windowOffset_);
            window_.resize(qsizetype(qMax<ssize_t>(0, got)));
            if (position_ - windowOffset_ + wanted > window_.size())
                return readDirect(wanted);  // the file got shorter
        }
        TagLib::ByteVector block(window_.constData() + (position_ - windowOffset_), unsigned(wanted));
        position_ += wanted;
        return block;
    }

private:
    static constexpr qint64 kWindow = 64 * 1024;

    ssize_t preadAll(char* into, qint64 length, qint64 offset) const
    {
        qint64 done = 0;
        while (done < length) {
            const ssize_t got = ::pread(fd_, into + done, size_t(length - done), off_t(offset + done));
            if (got < 0 && errno == EINTR)
                continue;
            if (got <= 0)
                break;
            done += got;
        }
        return ssize_t(done);
    }

    TagLib::ByteVector readDirect(qint64 wanted)
    {
        TagLib::ByteVector block(unsigned(wanted), 0);
        block.resize(unsigned(preadAll(block.data(), wanted, position_)));
        position_ += block.size();
        return block;
    }

    const QByteArray name_;
    const int fd_;
    qint64 length_ = -1;
    QByteArray window_;
    qint64 windowOffset_ = 0;
};

// The file as TagLib sees it once a broken ID3v2 tag is mended: the new tag,
// then the file's bytes behind the old one. Read only.
class RepairedStream : public ReadOnlyStream {
public:
    RepairedStream(std::unique_ptr<TagLib::IOStream> file, const QByteArray& tag, qint64 replaces)
        : file_(std::move(file)), tag_(tag.constData(), unsigned(tag.size())), replaces_(replaces)
    {
    }

    TagLib::FileName name() const override { return file_->name(); }
    bool isOpen() const override { return file_->isOpen(); }
    long length() override { return long(qint64(tag_.size()) + qMax<qint64>(0, file_->length() - replaces_)); }

    TagLib::ByteVector readBlock(unsigned long length) override
    {
        const qint64 head = tag_.size();
        TagLib::ByteVector block;
        if (position_ < head)
            block = tag_.mid(unsigned(position_), unsigned(qMin<qint64>(qint64(length), head - position_)));
        if (block.size() < length && position_ + block.size() >= head) {
            file_->seek(long(position_ + block.size() - head + replaces_));
            block.append(file_->readBlock(length - block.size()));
        }
        position_ += block.size();
        return block;
    }

private:
    std::unique_ptr<TagLib::IOStream> file_;
    TagLib::ByteVector tag_;
    qint64 replaces_;
};

// The bytes a leading ID3v2 tag takes as TagLib counts them (a header whose
// size is not syncsafe stands for an empty tag); 0 without one.
qint64 leadingTagSpan(const char* header, qint64 length)
{
    if (length < 10 || std::memcmp(header, "ID3", 3) != 0)
        return 0;
    qint64 size = 0;
    for (int i = 6; i < 10; ++i) {
        if (quint8(header[i]) & 0x80)
            return 10;
        size = (size << 7) | quint8(header[i]);
    }
    return 10 + size + ((quint8(header[5]) & 0x10) ? 10 : 0);
}

// Copies `length` bytes of `in` from `offset` to the end of `out` (in the
// kernel where it can); errno tells why when it cannot.
bool copyRange(int in, qint64 offset, qint64 length, int out)
{
    off_t from = off_t(offset);
    while (length > 0) {
        const ssize_t copied = ::copy_file_range(in, &from, out, nullptr, size_t(qMin<qint64>(length, 1 << 30)), 0);
        if (copied > 0) {
            length -= copied;
            continue;
        }
        if (copied < 0 && errno == EINTR)
            continue;
        if (copied == 0) {
            errno = EIO;  // the file got shorter
            return false;
        }
        if (errno != EXDEV && errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP)
            return false;
        std::vector<char> buffer(size_t(qMin<qint64>(length, 1 << 20)));
        while (length > 0) {
            const ssize_t got = ::pread(in, buffer.data(), size_t(qMin<qint64>(length, qint64(buffer.size()))), from);
            if (got < 0 && errno == EINTR)
                continue;
            if (got <= 0) {
                errno = got < 0 ? errno : EIO;
                return false;
            }
            for (ssize_t done = 0; done < got;) {
                const ssize_t put = ::write(out, buffer.data() + done, size_t(got - done));
                if (put < 0 && errno == EINTR)
                    continue;
                if (put <= 0) {
                    errno = put < 0 ? errno : EIO;
                    return false;
                }
                done += put;
            }
            from += got;
            length -= got;
        }
    }
    return true;
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

bool TagAPI::examineFile(const QString& path, Length length)
{
    releaseFile();
    std::unique_ptr<TagLib::IOStream> stream = std::make_unique<WindowedFileStream>(path);
    if (!stream->isOpen())
        return false;
    // A tag with frames TagLib would stop at is read in a mended copy.
    TagLib::IOStream* plain = stream.get();
    const auto read = [plain](qint64 offset, qint64 length) {
        plain->seek(long(offset));
        const TagLib::ByteVector block = plain->readBlock(static_cast<unsigned long>(length));
        return QByteArray(block.data(), qsizetype(block.size()));
    };
    if (const auto repaired = Id3TagRepair::repairLeadingTag(read, plain->length()))
        stream = std::make_unique<RepairedStream>(std::move(stream), repaired->tag, repaired->replaces);
    auto file = std::make_unique<TagLib::MPEG::File>(stream.get(), TagLib::ID3v2::FrameFactory::instance(),
                                                     length == Length::Read, TagLib::AudioProperties::Average);
    if (!file->isOpen())
        return false;
    path_ = path;
    tagVersion_ = file->hasID3v2Tag() ? int(file->ID3v2Tag()->header()->majorVersion()) : 0;
    stream_ = std::move(stream);
    file_ = std::move(file);
    return true;
}

void TagAPI::releaseFile()
{
    file_.reset();
    stream_.reset();
    path_.clear();
    tagVersion_ = 0;
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
    if (!file_)
        return 0;
    // ID3v2.4 tags made by ID3v2.3 writers keep the year in TYER, which TagLib
    // reads as the year of ID3v2.3 tags only.
    if (const TagLib::ID3v2::Tag* tag = file_->ID3v2Tag(); tag && tag->year() == 0) {
        const int year = frameText(tag, "TYER").substr(0, 4).toInt();
        if (year > 0)
            return year;
    }
    return file_->tag() ? int(file_->tag()->year()) : 0;
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
    // The year lives in one frame: a TYER beside it would read as a second year.
    TagLib::ID3v2::Tag* tag = file_->ID3v2Tag(true);
    tag->removeFrames("TYER");
    tag->setYear(unsigned(qMax(0, year)));
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
    if (!AudioPayload::difference(AudioPayload::Format::Mpeg, path_, made).isEmpty()) {
        // Only now is it worth asking whether the old file's audio could be found at all.
        if (const QString why = AudioPayload::unreadable(AudioPayload::Format::Mpeg, path_); !why.isEmpty())
            return quoted(path_) + QStringLiteral(": its audio cannot be told from its tags (") + why +
                   QStringLiteral("); the file was left as it was.");
        return quoted(path_) + QStringLiteral(": the audio would have changed; the file was left as it was.");
    }
    TagAPI reader(&genres_);
    if (!reader.examineFile(made, Length::Skip) || reader.fields() != expected)
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
    // The new file is made first: making it refuses a file that is not to be replaced.
    SafeFile::Replacement copy(path_);
    if (!copy.create())
        return fail(copy.errorString());
    const Fields expected = fields();

    // The new file: the new ID3v2 tag (TagLib leaves out one with nothing in
    // it), the old file's bytes between its ID3v2 and ID3v1 tags (the audio,
    // and an APE tag if there is one), and the new ID3v1 tag.
    TagLib::ID3v2::Tag* tag = file_->ID3v2Tag(true);
    const TagLib::ByteVector id3v2 =
        tag->isEmpty() ? TagLib::ByteVector() : tag->render(tagVersion_ == 4 ? TagLib::ID3v2::v4 : TagLib::ID3v2::v3);
    const bool hadId3v1 = file_->hasID3v1Tag();
    const TagLib::ByteVector id3v1 =
        hadId3v1 && !file_->ID3v1Tag()->isEmpty() ? file_->ID3v1Tag()->render() : TagLib::ByteVector();
    const auto cannotWrite = [&](int why) {
        return fail(QStringLiteral("Cannot write ") + quoted(path_) + QStringLiteral(": ") + reason(why) +
                    QStringLiteral("; the file was left as it was."));
    };
    const int in = ::open(QFile::encodeName(path_).constData(), O_RDONLY | O_CLOEXEC);
    if (in < 0)
        return fail(quoted(path_) + QStringLiteral(" cannot be read: ") + reason(errno) + QLatin1Char('.'));
    const auto closeInput = qScopeGuard([in] { ::close(in); });
    struct stat info {};
    char header[10];
    const qint64 headerLength = ::fstat(in, &info) == 0 ? ::pread(in, header, sizeof header, 0) : -1;
    if (headerLength < 0)
        return fail(quoted(path_) + QStringLiteral(" cannot be read: ") + reason(errno) + QLatin1Char('.'));
    const qint64 audioStart = qMin<qint64>(leadingTagSpan(header, headerLength), info.st_size);
    const qint64 audioEnd = qMax(audioStart, hadId3v1 ? qint64(info.st_size) - 128 : qint64(info.st_size));

    if (!copy.write(QByteArray::fromRawData(id3v2.data(), qsizetype(id3v2.size()))))
        return fail(copy.errorString());
    if (!copyRange(in, audioStart, audioEnd - audioStart, copy.fd()))
        return cannotWrite(errno);
    if (!id3v1.isEmpty() && !copy.write(QByteArray::fromRawData(id3v1.data(), qsizetype(id3v1.size()))))
        return fail(copy.errorString());
    if (!copy.commit([&](const QString& made) { return checkWritten(made, expected); }))
        return fail(copy.errorString());
    return true;
}
