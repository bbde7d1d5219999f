#include "core/FileSystemItemListing.h"

#include "core/FileSystemItem.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <set>
#include <utility>

#include <sys/stat.h>

namespace FileSystemItemListing {

namespace {

enum class Stop { None, DepthLimit, AlreadyListed };

// Decides which folders are entered: within the depth limit and not walked before
// (folders are told apart by device and inode, which sees through symlinks).
class Walk {
public:
    explicit Walk(QStringList* unreadable) : unreadable_(unreadable) {}

    Stop enter(FileSystemItem& folder, int depth, int maxDepth)
    {
        if (maxDepth >= 0 && depth >= maxDepth)
            return Stop::DepthLimit;
        struct stat info;
        if (::stat(QFile::encodeName(folder.fullPath()).constData(), &info) != 0)
            return Stop::None;  // unreadable: its listing comes out empty
        if (!seen_.insert({info.st_dev, info.st_ino}).second)
            return Stop::AlreadyListed;
        return Stop::None;
    }

    // The children of a folder being entered, noting the names left out.
    const std::vector<std::unique_ptr<FileSystemItem>>* children(FileSystemItem& folder)
    {
        folder.adoptEntries(FileSystemItem::readEntries(folder.fullPath(), unreadable_));
        return folder.children();
    }

private:
    std::set<std::pair<dev_t, ino_t>> seen_;
    QStringList* unreadable_;
};

void appendIndent(QByteArray& out, int depth)
{
    out.append(qsizetype(depth) * 2, ' ');
}

void textChildren(FileSystemItem& folder, int depth, int maxDepth, Walk& walk, QByteArray& out);

// Ends a folder's line with why it is not entered, or lists what is in it.
void textFolder(FileSystemItem& folder, int depth, int maxDepth, Walk& walk, QByteArray& out)
{
    switch (walk.enter(folder, depth, maxDepth)) {
    case Stop::DepthLimit:
        out.append("  (depth limit)\n");
        break;
    case Stop::AlreadyListed:
        out.append("  (already listed)\n");
        break;
    case Stop::None:
        out.append('\n');
        textChildren(folder, depth, maxDepth, walk, out);
        // Free each folder once written: the output, not the tree, is kept.
        folder.releaseChildren();
        break;
    }
}

void textChildren(FileSystemItem& folder, int depth, int maxDepth, Walk& walk, QByteArray& out)
{
    const auto* children = walk.children(folder);
    if (!children)
        return;
    for (const auto& child : *children) {
        appendIndent(out, depth + 1);
        out.append(child->relativePath().toUtf8());
        if (!child->isFolder()) {
            out.append('\n');
            continue;
        }
        out.append('/');
        textFolder(*child, depth + 1, maxDepth, walk, out);
    }
}

QJsonArray jsonChildren(FileSystemItem& folder, int depth, int maxDepth, Walk& walk);

// Marks why a folder is not entered, or adds what is in it.
void jsonFolder(FileSystemItem& folder, int depth, int maxDepth, Walk& walk, QJsonObject& entry)
{
    switch (walk.enter(folder, depth, maxDepth)) {
    case Stop::DepthLimit:
        entry.insert("truncated", true);
        break;
    case Stop::AlreadyListed:
        entry.insert("alreadyListed", true);
        break;
    case Stop::None:
        entry.insert("children", jsonChildren(folder, depth, maxDepth, walk));
        folder.releaseChildren();
        break;
    }
}

QJsonArray jsonChildren(FileSystemItem& folder, int depth, int maxDepth, Walk& walk)
{
    QJsonArray array;
    const auto* children = walk.children(folder);
    if (!children)
        return array;
    for (const auto& child : *children) {
        QJsonObject entry{{"name", child->relativePath()},
                          {"path", child->fullPath()},
                          {"folder", child->isFolder()}};
        if (child->isFolder())
            jsonFolder(*child, depth + 1, maxDepth, walk, entry);
        array.append(entry);
    }
    return array;
}

} // namespace

QByteArray toText(const QList<Root>& roots, QStringList* unreadable)
{
    QByteArray out;
    Walk walk(unreadable);
    for (const Root& root : roots) {
        FileSystemItem item(root.path, nullptr);
        out.append(root.path.toUtf8());
        if (!QFileInfo::exists(root.path)) {
            out.append("  (missing)\n");
            continue;
        }
        if (!item.isFolder()) {
            out.append('\n');
            continue;
        }
        textFolder(item, 0, root.maxDepth, walk, out);
    }
    return out;
}

QByteArray toJson(const QList<Root>& roots, QStringList* unreadable)
{
    QJsonArray array;
    Walk walk(unreadable);
    for (const Root& root : roots) {
        FileSystemItem item(root.path, nullptr);
        const bool exists = QFileInfo::exists(root.path);
        QJsonObject entry{{"path", root.path}, {"exists", exists}, {"folder", exists && item.isFolder()}};
        if (exists && item.isFolder())
            jsonFolder(item, 0, root.maxDepth, walk, entry);
        array.append(entry);
    }
    return QJsonDocument(QJsonObject{{"roots", array}}).toJson(QJsonDocument::Indented);
}

} // namespace FileSystemItemListing
