#include "playlists/ITunesLibrary.h"

#include "playlists/XmlPlistReader.h"

#include <QFile>

namespace {

bool readTracks(XmlPlist::Cursor& cursor, ITunesLibrary& library)
{
    if (cursor.elementName() != QLatin1String("dict"))
        return cursor.skipValue();
    QString trackId;
    while (cursor.nextKey(&trackId)) {
        if (cursor.elementName() != QLatin1String("dict")) {
            if (!cursor.skipValue())
                return false;
            continue;
        }
        bool isLocation = false;
        while (cursor.nextKeyMatches(QLatin1StringView("Location"), &isLocation)) {
            if (isLocation && cursor.elementName() == QLatin1String("string")) {
                library.locations.insert(trackId, cursor.readText());
            } else if (!cursor.skipValue()) {
                return false;
            }
        }
    }
    return !cursor.failed();
}

bool readPlaylists(XmlPlist::Cursor& cursor, ITunesLibrary& library)
{
    if (cursor.elementName() != QLatin1String("array"))
        return cursor.skipValue();
    while (cursor.nextElement()) {
        const auto value = cursor.readValue();
        if (!value)
            return false;
        if (value->typeId() != QMetaType::QVariantMap)
            continue;
        const QVariantMap playlist = value->toMap();
        QVariantMap kept;
        for (const char* key : {"Name", "Playlist Items"}) {
            const auto it = playlist.constFind(QLatin1String(key));
            if (it != playlist.constEnd())
                kept.insert(it.key(), it.value());
        }
        library.playlists.append(kept);
    }
    return !cursor.failed();
}

} // namespace

std::optional<ITunesLibrary> ITunesLibrary::read(const QString& path, QString* error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (error)
            *error = file.errorString();
        return std::nullopt;
    }
    // Mapped rather than read: the scanner walks the file's pages in place.
    QByteArray copy;
    qint64 length = file.size();
    const char* data = length > 0 ? reinterpret_cast<const char*>(file.map(0, length)) : nullptr;
    if (!data) {
        copy = file.readAll();
        data = copy.constData();
        length = copy.size();
    }
    return parse(data, length, error);
}

std::optional<ITunesLibrary> ITunesLibrary::parse(const char* data, qsizetype length, QString* error)
{
    XmlPlist::Cursor cursor(data, length);
    ITunesLibrary library;
    bool ok = cursor.enterRoot();
    if (ok && cursor.elementName() != QLatin1String("dict")) {
        if (error)
            *error = QStringLiteral("the library is not a dictionary");
        return std::nullopt;
    }
    QString key;
    while (ok && cursor.nextKey(&key)) {
        if (key == QLatin1String("Tracks"))
            ok = readTracks(cursor, library);
        else if (key == QLatin1String("Playlists"))
            ok = readPlaylists(cursor, library);
        else
            ok = cursor.skipValue();
    }
    if (!ok || !cursor.finish()) {
        if (error)
            *error = cursor.errorString();
        return std::nullopt;
    }
    return library;
}
