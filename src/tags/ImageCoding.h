#pragma once
#include <QByteArray>
#include <QImage>
#include <QString>
#include <QVariantMap>

// Encoding of artwork pictures ("Image" values are QImages).
namespace ImageCoding {

enum class Format { Tiff, Jpeg, Png };

// The encoding a "Mime Type" asks for: its last path component "jpg" or "png"
// (any case); anything else keeps `previous`.
Format formatForMimeType(const QString& mimeType, Format previous);
QByteArray encode(const QImage& image, Format format);
// "image/png", "image/jpg" or "image/unknown" by the first bytes of a picture.
QString mimeTypeOfBytes(const QByteArray& bytes);
// A new artwork record for a decoded picture.
QVariantMap artworkRecord(const QString& pictureType, const QString& description,
                          const QString& mimeType, const QImage& image);

} // namespace ImageCoding
