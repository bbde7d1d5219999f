#include "playlists/PlaylistFiles.h"

#include "core/Job.h"
#include "core/PropertyList.h"
#include "platform/AppPaths.h"
#include "playlists/XmlPlistReader.h"

#include <QDirIterator>
#include <QFile>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace PlaylistFiles {

QString appFolder()
{
    return AppPaths::dataDir();
}

QString playlistFolder()
{
    return appFolder() + QStringLiteral("/Playlists");
}

QString iTunesFolder()
{
    return appFolder() + QStringLiteral("/iTunes");
}

QString mediaFolder()
{
    return appFolder() + QStringLiteral("/Media");
}

QString m3uFolder()
{
    return appFolder() + QStringLiteral("/M3U");
}

QVariantMap makeGroup(const QString& name, const QVariantList& entries)
{
    return QVariantMap{{QStringLiteral("Group"), name}, {QStringLiteral("Entries"), entries}};
}

bool isGroupRecord(const QVariant& value)
{
    if (value.typeId() != QMetaType::QVariantMap)
        return false;
    const QVariantMap group = value.toMap();
    const QVariant name = group.value(QStringLiteral("Group"));
    const QVariant entries = group.value(QStringLiteral("Entries"));
    if (name.typeId() != QMetaType::QString || entries.typeId() != QMetaType::QVariantList)
        return false;
    for (const QVariant& entry : entries.toList()) {
        if (entry.typeId() != QMetaType::QString && !isGroupRecord(entry))
            return false;
    }
    return true;
}

std::optional<QVariantMap> readGroup(const QString& path, QString* error)
{
    QString message;
    const auto value = XmlPlist::read(path, &message);
    if (value && isGroupRecord(*value))
        return value->toMap();
    if (value)
        message = QStringLiteral("the property list is not a playlist group");
    if (error)
        *error = message;
    return std::nullopt;
}

bool writeGroup(const QString& path, const QVariantMap& group, QString* error)
{
    QString message;
    if (PropertyList::write(path, group, &message))
        return true;
    reportFailure(QStringLiteral("Saving the playlist \u201c%1\u201d").arg(displayName(path)), message);
    if (error)
        *error = message;
    return false;
}

bool writeMediaSet(const QString& path, const QVariantMap& mediaSet, QString* error)
{
    QString message;
    if (PropertyList::write(path, mediaSet, &message))
        return true;
    reportFailure(QStringLiteral("Saving the media set \u201c%1\u201d").arg(displayName(path)), message);
    if (error)
        *error = message;
    return false;
}

bool moveWithoutReplacing(const QString& from, const QString& to, QString* error)
{
    const QByteArray source = QFile::encodeName(from);
    const QByteArray target = QFile::encodeName(to);
    int result = ::renameat2(AT_FDCWD, source.constData(), AT_FDCWD, target.constData(), RENAME_NOREPLACE);
    if (result != 0 && (errno == EINVAL || errno == ENOSYS)) {
        // A file system without the flag: a hard link fails just as well on a
        // name already taken, and the old name goes only once the new one exists.
        result = ::link(source.constData(), target.constData());
        if (result == 0)
            ::unlink(source.constData());
    }
    if (result == 0)
        return true;
    const int reason = errno;
    if (error) {
        *error = reason == EEXIST ? QStringLiteral("\u201c%1\u201d already exists; nothing was renamed.").arg(to)
                                  : QStringLiteral("\u201c%1\u201d could not be renamed: %2.")
                                        .arg(from, QString::fromLocal8Bit(std::strerror(reason)));
    }
    return false;
}

void reportFailure(const QString& title, const QString& error)
{
    std::fprintf(stderr, "Velmora: %s: %s\n", qPrintable(title), qPrintable(error));
    // A failure already waiting in the list is not listed again.
    for (const auto& job : JobList::shared().jobs()) {
        if (job->state() == Job::State::Finished && job->title() == title && job->result().error == error)
            return;
    }
    Job::create(title, [error](Job&) { return JobResult::failed(error); })->run();
}

void gatherLeaves(const QVariantMap& group, QStringList& leaves)
{
    for (const QVariant& entry : group.value(QStringLiteral("Entries")).toList()) {
        if (entry.typeId() == QMetaType::QString)
            leaves.append(entry.toString());
        else if (entry.typeId() == QMetaType::QVariantMap && entry.toMap().contains(QStringLiteral("Group")))
            gatherLeaves(entry.toMap(), leaves);
    }
}

QVariantMap readMediaSet(const QString& path)
{
    const auto value = XmlPlist::read(path);
    if (!value || value->typeId() != QMetaType::QVariantMap)
        return {};
    const QVariantMap set = value->toMap();
    const QVariant playlists = set.value(QStringLiteral("playlists"));
    if (playlists.isValid()) {
        if (playlists.typeId() != QMetaType::QVariantList)
            return {};
        for (const QVariant& item : playlists.toList())
            if (item.typeId() != QMetaType::QString)
                return {};
    }
    return set;
}

QStringList mediaSetPlaylists(const QVariantMap& mediaSet)
{
    QStringList paths;
    for (const QVariant& item : mediaSet.value(QStringLiteral("playlists")).toList())
        paths.append(item.toString());
    return paths;
}

QStringList walk(const QString& folder)
{
    QStringList entries;
    QDirIterator it(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    const qsizetype prefix = folder.size() + (folder.endsWith('/') ? 0 : 1);
    while (it.hasNext()) {
        const QString relative = it.next().mid(prefix);
        if (!relative.startsWith('.'))
            entries.append(relative);
    }
    return entries;
}

QString lastPathComponent(const QString& path)
{
    QString trimmed = path;
    while (trimmed.size() > 1 && trimmed.endsWith('/'))
        trimmed.chop(1);
    const qsizetype slash = trimmed.lastIndexOf('/');
    if (slash < 0 || trimmed == QLatin1String("/"))
        return trimmed;
    return trimmed.mid(slash + 1);
}

namespace {
// The index of the dot that starts the extension of the last component, or -1.
qsizetype extensionDot(const QString& path)
{
    const qsizetype slash = path.lastIndexOf('/');
    const qsizetype dot = path.lastIndexOf('.');
    if (dot <= slash + 1 || dot == path.size() - 1)
        return -1;
    return dot;
}
} // namespace

QString pathExtension(const QString& path)
{
    const qsizetype dot = extensionDot(path);
    return dot < 0 ? QString() : path.mid(dot + 1);
}

QString deletingPathExtension(const QString& path)
{
    const qsizetype dot = extensionDot(path);
    return dot < 0 ? path : path.left(dot);
}

QString replacingPathExtension(const QString& path, const QString& extension)
{
    return deletingPathExtension(path) + '.' + extension;
}

QString appendingPathComponent(const QString& base, const QString& component)
{
    QString tail = component;
    while (tail.size() > 1 && tail.endsWith('/'))
        tail.chop(1);
    if (base.isEmpty())
        return tail;
    while (tail.startsWith('/'))
        tail.remove(0, 1);
    QString head = base;
    while (head.size() > 1 && head.endsWith('/'))
        head.chop(1);
    if (tail.isEmpty())
        return head;
    return head == QLatin1String("/") ? head + tail : head + '/' + tail;
}

QString displayName(const QString& path)
{
    return deletingPathExtension(lastPathComponent(path));
}

} // namespace PlaylistFiles
