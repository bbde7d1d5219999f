#pragma once
#include <QByteArray>
#include <QString>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

#include <optional>

// MP4/AAC files (M4A, M4B, M4R, M4P, AAC): the track record, the artwork
// records, and writing both back.

// "title", "artist", "album", "genre", "year", "track" from the iTunes items
// and "duration" from the movie header. A file that is not MPEG-4 gives a
// record without tag keys (the scanner's complaint goes to the log).
std::optional<QVariantMap> getAACComments(const QString& path);
// The "covr" pictures: "Cover (front)" for the first, "Other" for the rest.
QVariantList getAACAlbumArt(const QString& path);
// Runs AtomicParsley on a copy of the file: the record's values, then the
// pictures, replacing every picture the file had (an empty list removes them
// all; null keeps them). Pictures come from their "cachepath" file, or are
// encoded from "Image" when that file is missing. The copy replaces the file
// only when the tool ended well within its time limit, the values read back
// and every track's samples are the old ones; otherwise false, with the reason
// in *error, and the file is as it was.
bool writeAACTags(const QString& path, const QVariantMap& tags, const QVariantList* images, QString* error);
bool updateAACTags(const QString& path, const QVariantMap& tags, const QVariantList& images,
                   QString* error = nullptr);
// The same without touching the pictures.
bool updateAACTags(const QString& path, const QVariantMap& tags);

namespace mp4 {
class AtomTree;

// The pieces behind the entry points, over an atom tree already scanned.
QVariantMap commentsFromTree(const AtomTree& tree);
// The payloads of the "covr" picture atoms, in file order.
QList<QByteArray> coverPayloads(const AtomTree& tree);
// The AtomicParsley arguments for a record and the picture files (nullptr: keep the pictures).
QStringList atomicParsleyArguments(const QString& path, const QVariantMap& tags, const QStringList* pictureFiles);
} // namespace mp4
