#include "tags/Mp4Tags.h"

#include "core/StringUtils.h"
#include "platform/ChildProcess.h"
#include "platform/ResourceLocator.h"
#include "platform/SafeFile.h"
#include "tags/AudioPayload.h"
#include "tags/ID3Tables.h"
#include "tags/ImageCoding.h"
#include "tags/Mp4AtomTree.h"

#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QtDebug>

#include <cctype>
#include <memory>

namespace mp4 {
namespace {

struct ItemKey {
    const char* item;  // Latin-1 bytes
    const char* key;
};
constexpr ItemKey kItemKeys[] = {
    {"\xA9nam", "title"}, {"\xA9" "ART", "artist"}, {"\xA9" "alb", "album"}, {"gnre", "genre"},
    {"\xA9gen", "genre"}, {"\xA9" "day", "year"},   {"trkn", "track"},
};

// Item names compare without regard to case, as iTunes writes them either way.
const char* keyForItem(std::string_view item)
{
    for (const ItemKey& entry : kItemKeys) {
        bool same = true;
        for (size_t i = 0; i < 4 && same; ++i)
            same = std::tolower(uint8_t(item[i])) == std::tolower(uint8_t(entry.item[i]));
        if (same)
            return entry.key;
    }
    return nullptr;
}

bool isTextClass(uint32_t dataClass)
{
    return dataClass == 0 || dataClass == 1 || dataClass == 21;
}

QByteArray payloadOf(const AtomTree& tree, const AtomRecord& data)
{
    if (data.length < 16)
        return {};
    return tree.readAt(uint64_t(data.start) + 16, data.length - 16);
}

} // namespace

QVariantMap commentsFromTree(const AtomTree& tree)
{
    QVariantMap record;
    if (const std::optional<MovieDetails> movie = tree.movieDetails())
        record.insert(QStringLiteral("duration"), QString::number(movie->seconds()));

    const AtomRecord* ilst = tree.findAtom("moov.udta.meta.ilst");
    if (!ilst)
        return record;
    const std::vector<AtomRecord>& atoms = tree.atoms();
    for (size_t i = size_t(ilst->number) + 1; i < atoms.size(); ++i) {
        const AtomRecord& data = atoms[i];
        if (!data.isType("data") || !isTextClass(data.dataClass()))
            continue;
        const int parent = tree.findParentAtom(data.number, data.level);
        if (parent < 0)
            continue;
        const std::string_view item = atoms[size_t(parent)].type();
        if (item == "covr" || item == "----")
            continue;
        const char* key = keyForItem(item);
        if (!key)
            continue;
        const QString text = dataAtomText(item, data.dataClass(), payloadOf(tree, data));
        if (!text.isEmpty())
            record.insert(QLatin1String(key), text);
    }
    return record;
}

QList<QByteArray> coverPayloads(const AtomTree& tree)
{
    QList<QByteArray> payloads;
    const std::vector<AtomRecord>& atoms = tree.atoms();
    for (const AtomRecord& data : atoms) {
        if (!data.isType("data") || isTextClass(data.dataClass()))
            continue;
        const int parent = tree.findParentAtom(data.number, data.level);
        if (parent >= 0 && atoms[size_t(parent)].isType("covr"))
            payloads << payloadOf(tree, data);
    }
    return payloads;
}

QStringList atomicParsleyArguments(const QString& path, const QVariantMap& tags, const QStringList* pictureFiles)
{
    // AtomicParsley takes no "--": a name that begins with a hyphen must not read as an option.
    QStringList arguments{path.startsWith(QLatin1Char('-')) ? QStringLiteral("./") + path : path,
                          QStringLiteral("--overWrite")};
    for (const char* key : {"album", "artist", "title", "genre", "year", "track"}) {
        const QString name = QLatin1String(key);
        if (tags.contains(name))
            arguments << QStringLiteral("--") + name << tags.value(name).toString();
    }
    if (pictureFiles) {
        arguments << QStringLiteral("--freefree") << QStringLiteral("--artwork") << QStringLiteral("REMOVE_ALL");
        for (const QString& file : *pictureFiles)
            arguments << QStringLiteral("--artwork") << file;
    }
    return arguments;
}

} // namespace mp4

std::optional<QVariantMap> getAACComments(const QString& path)
{
    mp4::AtomTree tree;
    if (!tree.scan(path)) {
        qWarning().noquote() << path + QStringLiteral(": ") + tree.errorText().trimmed();
        return QVariantMap();
    }
    for (const QString& warning : tree.warnings())
        qWarning().noquote() << path + QStringLiteral(": ") + warning.trimmed();
    return mp4::commentsFromTree(tree);
}

QVariantList getAACAlbumArt(const QString& path)
{
    QVariantList artwork;
    mp4::AtomTree tree;
    if (!tree.scan(path))
        return artwork;
    for (const QByteArray& payload : mp4::coverPayloads(tree)) {
        const QImage image = QImage::fromData(payload);
        if (image.isNull())
            continue;
        // The first picture is the front cover.
        artwork << ImageCoding::artworkRecord(decodeImageType(artwork.isEmpty() ? 3 : 0), QString(),
                                              ImageCoding::mimeTypeOfBytes(payload), image);
    }
    return artwork;
}

namespace {

QString quoted(const QString& path)
{
    return QLatin1Char('"') + path + QLatin1Char('"');
}

// AtomicParsley rewrites the whole file: a disk that manages 2 MB a second
// still gives it room to finish, and a tool stuck on a full disk is stopped.
int atomicParsleyTimeLimitMs(qint64 bytes)
{
    return int(5000 + qBound<qint64>(0, bytes / 2000, qint64(3600) * 1000));
}

// The file of each picture: its "cachepath", or the "Image" encoded into
// `folder` when no such file exists (pictures read back from a file).
bool pictureFiles(const QVariantList& images, const QString& folder, QStringList* files)
{
    for (const QVariant& entry : images) {
        const QVariantMap picture = entry.toMap();
        const QString cachePath = picture.value(QStringLiteral("cachepath")).toString();
        if (!cachePath.isEmpty() && QFile::exists(cachePath)) {
            *files << cachePath;
            continue;
        }
        const QImage image = picture.value(QStringLiteral("Image")).value<QImage>();
        if (image.isNull())
            continue;
        const bool jpeg = picture.value(QStringLiteral("Mime Type")).toString().section('/', -1).compare(
                              QLatin1String("jpg"), Qt::CaseInsensitive)
                       == 0;
        const QString file = folder + QStringLiteral("/picture-%1.%2").arg(files->size()).arg(jpeg ? "jpg" : "png");
        if (!image.save(file, jpeg ? "JPG" : "PNG"))
            return false;
        *files << file;
    }
    return true;
}

// AtomicParsley stores the track as numbers: "03" and "3/0" read back as "3".
bool sameTrack(const QString& written, const QString& read)
{
    return intValue(written.section(QLatin1Char('/'), 0, 0)) == intValue(read.section(QLatin1Char('/'), 0, 0)) &&
           intValue(written.section(QLatin1Char('/'), 1, 1)) == intValue(read.section(QLatin1Char('/'), 1, 1));
}

// Why the file AtomicParsley made is not what was asked for: "" when its
// samples are the old ones and the values and the number of pictures read back.
QString checkWritten(const QString& path, const QString& target, const QString& made, const QVariantMap& tags,
                     const QStringList* pictures)
{
    if (!AudioPayload::difference(AudioPayload::Format::Mp4, target, made).isEmpty())
        return quoted(path) + QStringLiteral(": the audio would have changed; the file was left as it was.");
    const QString unreadable = QStringLiteral("The new version of ") + quoted(path) +
                               QStringLiteral(" did not read back as written; the file was left as it was.");
    mp4::AtomTree tree;
    if (!tree.scan(made))
        return unreadable;
    const QVariantMap record = mp4::commentsFromTree(tree);
    for (const char* key : {"album", "artist", "title", "genre", "year", "track"}) {
        const QString name = QLatin1String(key);
        if (!tags.contains(name))
            continue;
        const QString written = tags.value(name).toString();
        const QString read = record.value(name).toString();
        const bool same = name == QLatin1String("track")   ? sameTrack(written, read)
                          : name == QLatin1String("genre") ? written.compare(read, Qt::CaseInsensitive) == 0
                                                           : written == read;
        if (!same)
            return unreadable;
    }
    if (pictures && mp4::coverPayloads(tree).size() != pictures->size())
        return unreadable;
    return {};
}

} // namespace

bool writeAACTags(const QString& path, const QVariantMap& tags, const QVariantList* images, QString* error)
{
    auto fail = [&](const QString& text) {
        if (error)
            *error = text;
        return false;
    };
    if (const QString refused = SafeFile::refusalToReplace(path); !refused.isEmpty())
        return fail(refused);
    const QString tool = ResourceLocator::pathForTool(QStringLiteral("atomicparsley"));
    if (tool.isEmpty())
        return fail(QStringLiteral("AtomicParsley is not installed; the tags of ") + quoted(path) +
                    QStringLiteral(" cannot be written."));
    const QString target = SafeFile::resolvedTarget(path);
    if (const QString why = AudioPayload::unreadable(AudioPayload::Format::Mp4, target); !why.isEmpty())
        return fail(quoted(path) + QStringLiteral(": its audio cannot be told from its tags (") + why +
                    QStringLiteral("); the file was left as it was."));

    // AtomicParsley edits a copy inside a private folder beside the file, where
    // its own temporary files stay; the folder goes with everything left in it.
    SafeFile::WorkFolder work(target);
    if (!work.isValid())
        return fail(work.errorString());
    QStringList files;
    if (images && !pictureFiles(*images, work.folder(), &files))
        return fail(QStringLiteral("Cannot write the pictures for ") + quoted(path) +
                    QStringLiteral("; the file was left as it was."));
    if (!work.copyTarget())
        return fail(work.errorString());
    const QString copy = work.fileFor();
    ChildProcess atomicParsley(tool, mp4::atomicParsleyArguments(copy, tags, images ? &files : nullptr));
    const int limitMs = atomicParsleyTimeLimitMs(QFileInfo(copy).size());
    atomicParsley.setTimeLimit(limitMs);
    if (!atomicParsley.start())
        return fail(QStringLiteral("AtomicParsley could not be started for ") + quoted(path) + QLatin1Char('.'));
    const int status = atomicParsley.waitForExit();
    if (atomicParsley.timedOut())
        return fail(QStringLiteral("AtomicParsley did not finish with ") + quoted(path) +
                    QStringLiteral(" within %1 seconds and was stopped; the file was left as it was.")
                        .arg((limitMs + 999) / 1000));
    if (status != 0)
        return fail(QStringLiteral("AtomicParsley failed on ") + quoted(path) +
                    (status < 0 ? QStringLiteral(" (it was stopped by a signal)")
                                : QStringLiteral(" (exit status %1)").arg(status)) +
                    QStringLiteral("; the file was left as it was."));
    const bool placed = work.place(
        copy, [&](const QString& made) { return checkWritten(path, target, made, tags, images ? &files : nullptr); });
    return placed || fail(work.errorString());
}

bool updateAACTags(const QString& path, const QVariantMap& tags, const QVariantList& images, QString* error)
{
    return writeAACTags(path, tags, &images, error);
}

bool updateAACTags(const QString& path, const QVariantMap& tags)
{
    return writeAACTags(path, tags, nullptr, nullptr);
}
