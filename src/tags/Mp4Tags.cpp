#include "tags/Mp4Tags.h"

#include "platform/ResourceLocator.h"
#include "tags/Mp4AtomTree.h"

#include <QFile>
#include <QImage>
#include <QProcess>
#include <QTemporaryDir>
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

QString mimeTypeOfPicture(const QByteArray& bytes)
{
    if (bytes.startsWith(QByteArrayLiteral("\x89PNG\r\n\x1A\n")))
        return QStringLiteral("image/png");
    if (bytes.startsWith(QByteArrayLiteral("\xFF\xD8\xFF\xE0")) || bytes.startsWith(QByteArrayLiteral("\xFF\xD8\xFF\xE1")))
        return QStringLiteral("image/jpg");
    return QStringLiteral("image/unknown");
}

QStringList atomicParsleyArguments(const QString& path, const QVariantMap& tags, const QStringList* pictureFiles)
{
    QStringList arguments{path, QStringLiteral("--overWrite")};
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
        artwork << QVariantMap{
            {QStringLiteral("Image"), image},
            {QStringLiteral("Mime Type"), mp4::mimeTypeOfPicture(payload)},
            {QStringLiteral("Picture Type"), artwork.isEmpty() ? QStringLiteral("Cover (front)") : QStringLiteral("Other")},
            {QStringLiteral("Description"), QString()},
        };
    }
    return artwork;
}

namespace {

bool runAtomicParsley(const QStringList& arguments)
{
    const QString tool = ResourceLocator::pathForTool(QStringLiteral("atomicparsley"));
    if (tool.isEmpty()) {
        qWarning("AtomicParsley is not installed; MP4 tags cannot be written");
        return false;
    }
    QProcess process;
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start(tool, arguments);
    if (!process.waitForStarted(-1))
        return false;
    process.waitForFinished(-1);
    return process.exitStatus() == QProcess::NormalExit;
}

// The file of each picture: its "cachepath", or the "Image" encoded into
// `scratch` when no such file exists (pictures read back from a file).
QStringList pictureFiles(const QVariantList& images, std::unique_ptr<QTemporaryDir>& scratch)
{
    QStringList files;
    for (const QVariant& entry : images) {
        const QVariantMap picture = entry.toMap();
        const QString cachePath = picture.value(QStringLiteral("cachepath")).toString();
        if (!cachePath.isEmpty() && QFile::exists(cachePath)) {
            files << cachePath;
            continue;
        }
        const QImage image = picture.value(QStringLiteral("Image")).value<QImage>();
        if (image.isNull())
            continue;
        if (!scratch)
            scratch = std::make_unique<QTemporaryDir>();
        if (!scratch->isValid())
            continue;
        const bool jpeg = picture.value(QStringLiteral("Mime Type")).toString().section('/', -1).compare(
                              QLatin1String("jpg"), Qt::CaseInsensitive)
                       == 0;
        const QString file = scratch->filePath(QStringLiteral("picture-%1.%2").arg(files.size()).arg(jpeg ? "jpg" : "png"));
        if (image.save(file, jpeg ? "JPG" : "PNG"))
            files << file;
    }
    return files;
}

} // namespace

bool updateAACTags(const QString& path, const QVariantMap& tags, const QVariantList& images)
{
    std::unique_ptr<QTemporaryDir> scratch;
    const QStringList files = pictureFiles(images, scratch);
    return runAtomicParsley(mp4::atomicParsleyArguments(path, tags, &files));
}

bool updateAACTags(const QString& path, const QVariantMap& tags)
{
    return runAtomicParsley(mp4::atomicParsleyArguments(path, tags, nullptr));
}
