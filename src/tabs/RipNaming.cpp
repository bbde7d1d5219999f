#include "tabs/RipNaming.h"

#include "core/StringUtils.h"
#include "platform/FileNames.h"

#include <QFileInfo>
#include <QStringList>

namespace RipNaming {

namespace {

// A name for one path component: no slash (a colon, as the desktop shows it).
QString withoutSlashes(QString name)
{
    return name.replace(QLatin1Char('/'), QLatin1Char(':'));
}

QString nameOr(const QVariantMap& info, const char* key, const QString& missing)
{
    const QString value = info.value(QLatin1String(key)).toString();
    return value.isEmpty() ? missing : withoutSlashes(value);
}

QString twoDigits(int number)
{
    return QStringLiteral("%1").arg(number, 2, 10, QLatin1Char('0'));
}

// A folder name that stays one folder under its parent.
QString folderComponent(const QString& name)
{
    if (name.isEmpty() || name == QLatin1String(".") || name == QLatin1String(".."))
        return QString(std::max<qsizetype>(name.size(), 1), QLatin1Char('_'));
    return FileNames::fitName(name, {});
}

}  // namespace

TrackNames TrackNames::from(const QVariantMap& info, int number)
{
    TrackNames names;
    names.artist = nameOr(info, "artist", QStringLiteral("Artist Missing"));
    names.album = nameOr(info, "album", QStringLiteral("Album Missing"));
    names.title = nameOr(info, "title", QStringLiteral("Title Missing"));
    bool isNumber = false;
    const int fromInfo = info.value(QStringLiteral("track")).toString().toInt(&isNumber);
    names.track = isNumber && fromInfo > 0 ? fromInfo : number;
    return names;
}

QString customName(const QString& format, const TrackNames& names, const QString& extension)
{
    QString name = format;
    const QString track = twoDigits(names.track);
    for (const char* token : {"[Track]", "[track]", "[TRACK]"})
        name.replace(QLatin1String(token), track);
    const std::pair<const char*, QString> words[] = {
        {"Artist", names.artist}, {"Album", names.album}, {"Title", names.title}, {"Ext", extension}};
    for (const auto& [word, value] : words) {
        const QString title = QLatin1String(word);
        name.replace('[' + title + ']', value);
        name.replace('[' + title.toLower() + ']', value.toLower());
        name.replace('[' + title.toUpper() + ']', value.toUpper());
    }
    return name;
}

QString namedFile(const TrackNames& names, int format, const QString& customFormat, const QString& extension)
{
    const QString track = twoDigits(names.track);
    QString name;
    switch (format) {
    case 1:
        name = QStringLiteral("%1 - %2 - %3").arg(names.artist, track, names.title);
        break;
    case 2:
        name = QStringLiteral("%1 - %2 - %3 - %4").arg(names.album, names.artist, track, names.title);
        break;
    case 3:
        name = QStringLiteral("%1 - %2 - %3 - %4").arg(names.album, track, names.artist, names.title);
        break;
    case 4:
        name = QStringLiteral("%1-%2 - %3").arg(track, names.artist, names.title);
        break;
    case 5:
        name = names.title;
        break;
    case 6:
        return customName(customFormat, names, extension);
    default:
        name = QStringLiteral("%1 %2").arg(track, names.title);
        break;
    }
    return name + '.' + extension;
}

QString applyCharChanges(const QString& name, const QVariantList& changes)
{
    QString changed = name;
    for (const QVariant& entry : changes) {
        const QVariantMap change = entry.toMap();
        const QString replace = change.value(QStringLiteral("replace")).toString();
        if (!replace.isEmpty())
            changed.replace(replace, change.value(QStringLiteral("with")).toString());
    }
    return changed;
}

QString subPath(const TrackNames& names, const QVariantMap& settings)
{
    if (settings.value(QStringLiteral("mRipSubfoldersStored")).toInt() != 1)
        return {};
    return names.artist + '/' + names.album;
}

QString folderPart(const QString& subPath, const QString& type, const QVariantMap& settings)
{
    QString part = subPath;
    if (settings.value(QStringLiteral("mRipTypeFolderStored")).toInt() == 1)
        part = part.isEmpty() ? type : part + '/' + type;
    if (settings.value(QStringLiteral("mRipFolderCaseStored")).toInt() == 1)
        part = part.toLower();
    if (settings.value(QStringLiteral("mRipFolderSpacesStored")).toInt() == 1)
        part.remove(QLatin1Char(' '));
    if (part.isEmpty())
        return {};
    QStringList components = part.split(QLatin1Char('/'));
    for (QString& component : components)
        component = folderComponent(component);
    return components.join(QLatin1Char('/'));
}

QString uniqueFilename(const Target& target, UniqueNames::Mode mode)
{
    const QString part = folderPart(target.subPath, target.type, target.settings);
    const QString folder = part.isEmpty() ? target.saveFolder : target.saveFolder + '/' + part;
    if (mode == UniqueNames::Mode::Reserve)
        createDirectoriesAtPath(folder);

    // The named file's extension becomes the type, then the user's changes apply.
    QString stem = target.namedFile;
    if (const qsizetype dot = stem.lastIndexOf(QLatin1Char('.')); dot > 0)
        stem.truncate(dot);
    const QString changed = withoutSlashes(
        applyCharChanges(stem + '.' + target.type, target.settings.value(QStringLiteral("charchange")).toList()));
    const qsizetype dot = changed.lastIndexOf(QLatin1Char('.'));
    const QString fileName =
        dot > 0 ? FileNames::fitName(changed.left(dot), changed.mid(dot)) : FileNames::fitName(changed, {});
    return UniqueNames::claim(folder, fileName, QFileInfo(target.sourcePath).completeBaseName(), target.type,
                              target.replace, mode);
}

}  // namespace RipNaming
