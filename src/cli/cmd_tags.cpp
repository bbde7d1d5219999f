// velmora-cli tags: print the track record and artwork of files, or write tags.
#include "cli/CliCommand.h"
#include "tags/TagFacade.h"

#include <QFileInfo>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <csignal>
#include <cstdio>

namespace {
const QStringList kWritableKeys = {"title", "artist", "album", "year", "track", "genre"};

void fail(const QString& message)
{
    std::fprintf(stderr, "velmora-cli tags: %s\n", qPrintable(message));
}

QString missingReason(const QString& path)
{
    const QFileInfo info(path);
    if (!info.exists())
        return QStringLiteral("%1: no such file").arg(path);
    if (info.isDir())
        return QStringLiteral("%1: is a folder").arg(path);
    return QString();
}

void printRecord(const QString& path, const QVariantMap& tags, const QVariantList& artwork, bool json)
{
    if (json) {
        QJsonObject tagObject;
        for (auto it = tags.constBegin(); it != tags.constEnd(); ++it)
            tagObject.insert(it.key(), it.value().toString());
        QJsonArray pictures;
        for (const QVariant& entry : artwork) {
            const QVariantMap picture = entry.toMap();
            const QImage image = picture.value(QStringLiteral("Image")).value<QImage>();
            pictures.append(QJsonObject{
                {"Picture Type", picture.value(QStringLiteral("Picture Type")).toString()},
                {"Description", picture.value(QStringLiteral("Description")).toString()},
                {"Mime Type", picture.value(QStringLiteral("Mime Type")).toString()},
                {"width", image.width()},
                {"height", image.height()},
            });
        }
        const QJsonObject line{{"path", path}, {"tags", tagObject}, {"artwork", pictures}};
        std::printf("%s\n", QJsonDocument(line).toJson(QJsonDocument::Compact).constData());
        return;
    }
    std::printf("%s\n", qPrintable(path));
    for (auto it = tags.constBegin(); it != tags.constEnd(); ++it)
        std::printf("  %s: %s\n", qPrintable(it.key()), qPrintable(it.value().toString()));
    for (const QVariant& entry : artwork) {
        const QVariantMap picture = entry.toMap();
        const QImage image = picture.value(QStringLiteral("Image")).value<QImage>();
        std::printf("  artwork: %s, \"%s\", %s, %dx%d\n",
                    qPrintable(picture.value(QStringLiteral("Picture Type")).toString()),
                    qPrintable(picture.value(QStringLiteral("Description")).toString()),
                    qPrintable(picture.value(QStringLiteral("Mime Type")).toString()), image.width(), image.height());
    }
}

// Pictures given with --artwork: the first is the front cover. JPEG and PNG
// files keep their bytes (MP3); anything else is stored as PNG.
bool loadArtwork(const QStringList& files, QVariantList* artwork)
{
    for (const QString& file : files) {
        QImage image;
        if (!image.load(file)) {
            fail(QStringLiteral("%1: not a picture").arg(file));
            return false;
        }
        const QString suffix = QFileInfo(file).suffix().toLower();
        const bool jpeg = suffix == QLatin1String("jpg") || suffix == QLatin1String("jpeg");
        QVariantMap record{
            {"Picture Type", artwork->isEmpty() ? QStringLiteral("Cover (front)") : QStringLiteral("Other")},
            {"Description", QString()},
            {"Mime Type", jpeg ? QStringLiteral("image/jpg") : QStringLiteral("image/png")},
            {"Image", image},
        };
        if (jpeg || suffix == QLatin1String("png"))
            record.insert(QStringLiteral("cachepath"), QFileInfo(file).absoluteFilePath());
        artwork->append(record);
    }
    return true;
}

int run(const QStringList& arguments)
{
    bool json = false;
    bool noArtwork = false;
    QVariantMap changes;
    QStringList artworkFiles;
    QStringList files;
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments.at(i);
        if (argument == QLatin1String("--json")) {
            json = true;
        } else if (argument == QLatin1String("--no-artwork")) {
            noArtwork = true;
        } else if (argument == QLatin1String("--set") || argument == QLatin1String("--artwork")) {
            if (i + 1 >= arguments.size()) {
                fail(QStringLiteral("%1 needs a value").arg(argument));
                return 2;
            }
            const QString value = arguments.at(++i);
            if (argument == QLatin1String("--artwork")) {
                artworkFiles.append(value);
                continue;
            }
            const qsizetype equals = value.indexOf(QLatin1Char('='));
            const QString key = value.left(equals);
            if (equals < 0 || !kWritableKeys.contains(key)) {
                fail(QStringLiteral("--set wants KEY=VALUE with KEY one of %1").arg(kWritableKeys.join(QStringLiteral(", "))));
                return 2;
            }
            changes.insert(key, value.mid(equals + 1));
        } else if (argument == QLatin1String("--")) {
            files += arguments.mid(i + 1);
            break;
        } else if (argument.startsWith(QLatin1String("--"))) {
            fail(QStringLiteral("unknown option %1").arg(argument));
            return 2;
        } else {
            files.append(argument);
        }
    }
    if (files.isEmpty()) {
        fail(QStringLiteral("no files given"));
        return 2;
    }
    const bool writing = !changes.isEmpty() || !artworkFiles.isEmpty() || noArtwork;
    if (writing && !artworkFiles.isEmpty() && noArtwork) {
        fail(QStringLiteral("--artwork and --no-artwork exclude each other"));
        return 2;
    }
    QVariantList artwork;
    if (!loadArtwork(artworkFiles, &artwork))
        return 2;
    // A file-size limit then fails a write with a message instead of ending the process.
    std::signal(SIGXFSZ, SIG_IGN);

    int status = 0;
    for (const QString& path : files) {
        const std::optional<QVariantMap> record = getComments(path);
        if (!record) {
            fail(missingReason(path));
            status = 1;
            continue;
        }
        if (!writing) {
            printRecord(path, *record, getAlbumArt(path), json);
            continue;
        }
        if (!canUpdateTags(path)) {
            fail(QStringLiteral("%1: tags of .%2 files cannot be written").arg(path, QFileInfo(path).suffix()));
            status = 1;
            continue;
        }
        QVariantMap tags = *record;
        for (auto it = changes.constBegin(); it != changes.constEnd(); ++it)
            tags.insert(it.key(), it.value());
        const bool keepPictures = artworkFiles.isEmpty() && !noArtwork;
        const TagWriteResult result = writeTags(path, tags, keepPictures ? nullptr : &artwork);
        if (!result.written) {
            fail(result.error);
            status = 1;
        }
    }
    return status;
}

CliRegistration reg({"tags",
                     "[--json] FILE... | --set KEY=VALUE [--set ...] [--artwork IMAGE ...] [--no-artwork] FILE...",
                     "Print the track record and artwork of files (one JSON object per line with --json), or "
                     "write tags (KEY: title, artist, album, year, track, genre) and pictures (the "
                     "first --artwork is the front cover; without --artwork or --no-artwork the pictures stay) into "
                     "MP3, Ogg and MP4/AAC files; WMA and other types are read only. Each file is written as a "
                     "new version beside it that replaces it only when its tags read back and its audio is "
                     "unchanged; exit status 0 means every file was written, 1 names each file that was not.",
                     run});
} // namespace
