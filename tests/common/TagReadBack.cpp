#include "common/TagReadBack.h"

#include "common/TestSupport.h"

#include <QFileInfo>
#include <QMap>

namespace tagreadback {

namespace {
QString suffixOf(const QString& path)
{
    return QFileInfo(path).suffix().toLower();
}
} // namespace

QString toolTags(const QString& path)
{
    QByteArray output;
    const QString suffix = suffixOf(path);
    int status = -1;
    if (suffix == QLatin1String("mp3"))
        status = testsupport::run("ffprobe", {"-v", "error", "-show_entries", "format_tags:stream=codec_type",
                                              "-of", "default=nw=1", path},
                                  &output);
    else if (suffix == QLatin1String("ogg"))
        status = testsupport::run("vorbiscomment", {"-l", path}, &output);
    else
        status = testsupport::run("AtomicParsley", {path, "-t"}, &output);
    // AtomicParsley starts its listing with a byte-order mark.
    return status == 0 ? QString::fromUtf8(output).remove(QChar(0xFEFF)) : QString();
}

bool toolShows(const QString& path, const QString& key, const QString& value)
{
    static const QMap<QString, QString> atoms = {{"title", "\u00a9nam"}, {"artist", "\u00a9ART"},
                                                 {"album", "\u00a9alb"}, {"year", "\u00a9day"},
                                                 {"genre", "\u00a9gen"}, {"track", "trkn"}};
    const QString listing = toolTags(path);
    const QString suffix = suffixOf(path);
    for (const QString& line : listing.split(QLatin1Char('\n'))) {
        if (suffix == QLatin1String("mp3") || suffix == QLatin1String("ogg")) {
            QString name = line.section(QLatin1Char('='), 0, 0);
            name.remove(QStringLiteral("TAG:"));
            const bool sameKey = name.compare(key, Qt::CaseInsensitive) == 0
                              || (key == QLatin1String("year") && name.compare("date", Qt::CaseInsensitive) == 0)
                              || (key == QLatin1String("track")
                                  && name.compare("tracknumber", Qt::CaseInsensitive) == 0);
            if (sameKey && line.section(QLatin1Char('='), 1) == value)
                return true;
        } else if ((line.startsWith(QStringLiteral("Atom \"%1\" contains: ").arg(atoms.value(key)))
                    || (key == QLatin1String("genre") && line.startsWith(QStringLiteral("Atom \"gnre\""))))
                   && line.section(QStringLiteral(" contains: "), 1).startsWith(value)) {
            return true;
        }
    }
    return false;
}

bool toolShowsPicture(const QString& path)
{
    const QString listing = toolTags(path);
    const QString suffix = suffixOf(path);
    if (suffix == QLatin1String("mp3"))
        return listing.contains(QStringLiteral("codec_type=video"));
    if (suffix == QLatin1String("ogg"))
        return listing.contains(QStringLiteral("METADATA_BLOCK_PICTURE=")) || listing.contains("COVERART=");
    return listing.contains(QStringLiteral("Atom \"covr\""));
}

QByteArray audioMd5(const QString& path)
{
    QByteArray output;
    if (testsupport::run("ffmpeg", {"-v", "error", "-i", path, "-map", "0:a", "-c", "copy", "-f", "md5", "-"},
                         &output)
        != 0)
        return {};
    return output.trimmed();
}

} // namespace tagreadback
