#include "tags/ImageCoding.h"

#include <QBuffer>
#include <QImageWriter>
#include <QVariantMap>

namespace ImageCoding {

Format formatForMimeType(const QString& mimeType, Format previous)
{
    const QString last = mimeType.section(QLatin1Char('/'), -1);
    if (last.compare(QLatin1String("jpg"), Qt::CaseInsensitive) == 0)
        return Format::Jpeg;
    if (last.compare(QLatin1String("png"), Qt::CaseInsensitive) == 0)
        return Format::Png;
    return previous;
}

QByteArray encode(const QImage& image, Format format)
{
    QByteArray bytes;
    if (image.isNull())
        return bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    const char* name = format == Format::Jpeg ? "JPEG" : format == Format::Png ? "PNG" : "TIFF";
    QImageWriter writer(&buffer, name);
    if (!writer.write(image))
        bytes.clear();
    return bytes;
}

QString mimeTypeOfBytes(const QByteArray& bytes)
{
    static const char png[] = "\x89PNG\r\n\x1a\n";
    if (bytes.startsWith(QByteArray(png, 8)))
        return QStringLiteral("image/png");
    if (bytes.startsWith(QByteArray("\xFF\xD8\xFF\xE0", 4)) || bytes.startsWith(QByteArray("\xFF\xD8\xFF\xE1", 4)))
        return QStringLiteral("image/jpg");
    return QStringLiteral("image/unknown");
}

QVariantMap artworkRecord(const QString& pictureType, const QString& description,
                          const QString& mimeType, const QImage& image)
{
    QVariantMap record;
    record.insert(QStringLiteral("Picture Type"), pictureType);
    record.insert(QStringLiteral("Description"), description);
    record.insert(QStringLiteral("Mime Type"), mimeType);
    record.insert(QStringLiteral("Image"), image);
    return record;
}

} // namespace ImageCoding
