#include "tags/TagAPI.h"

#include "tags/ID3Tables.h"
#include "tags/ImageCoding.h"

#include <QFile>
#include <QImage>
#include <QVariantMap>

#include <taglib/attachedpictureframe.h>
#include <taglib/id3v1tag.h>
#include <taglib/id3v2tag.h>
#include <taglib/mpegfile.h>
#include <taglib/textidentificationframe.h>

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
    file_.reset();
    auto file = std::make_unique<TagLib::MPEG::File>(QFile::encodeName(path).constData(), true,
                                                     TagLib::AudioProperties::Average);
    if (!file->isOpen())
        return false;
    file_ = std::move(file);
    return true;
}

void TagAPI::releaseFile()
{
    file_.reset();
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

bool TagAPI::updateFile()
{
    if (!file_ || file_->readOnly())
        return false;
    int tags = TagLib::MPEG::File::ID3v2;
    if (file_->hasID3v1Tag())
        tags |= TagLib::MPEG::File::ID3v1;
    return file_->save(tags, TagLib::File::StripNone, TagLib::ID3v2::v3, TagLib::File::DoNotDuplicate);
}
