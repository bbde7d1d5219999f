#include "core/FileSystemItem.h"

#include "core/Defaults.h"
#include "core/StringUtils.h"
#include "platform/AppPaths.h"

#include <QDirIterator>
#include <QFileInfo>

#include <algorithm>
#include <mutex>

namespace {

const QString kRootItemKey = QStringLiteral("rootItem");

std::mutex rootsMutex;
// The shared roots and the stored paths they were made from.
QList<FileSystemItem::Ptr>& sharedRoots()
{
    static QList<FileSystemItem::Ptr> roots;
    return roots;
}
QStringList& sharedRootPaths()
{
    static QStringList paths;
    return paths;
}

// The extension after the last dot, in lower case; a name that is nothing but
// a dot and a word (".mp3") has none.
QString lowerExtension(const QString& name)
{
    const qsizetype dot = name.lastIndexOf(QLatin1Char('.'));
    if (dot <= 0)
        return {};
    return name.mid(dot + 1).toLower();
}

// Changes the stored roots through edit(); nothing happens when the key holds
// something other than an array.
template <typename Edit>
void editStoredRoots(Edit edit)
{
    Defaults& defaults = Defaults::standard();
    FileSystemItem::rootPaths();  // a fresh installation starts from its two roots
    const QVariant stored = defaults.objectForKey(kRootItemKey);
    if (stored.typeId() != QMetaType::QVariantList)
        return;
    QVariantList roots = stored.toList();
    edit(roots);
    defaults.setObject(kRootItemKey, roots);
    defaults.synchronize();
}

} // namespace

FileSystemItem::FileSystemItem(const QString& path, FileSystemItem* parent, Kind kind)
    : relativePath_(path), parent_(parent), kind_(kind)
{
}

FileSystemItem::~FileSystemItem() = default;

QStringList FileSystemItem::rootPaths()
{
    Defaults& defaults = Defaults::standard();
    if (!defaults.hasKey(kRootItemKey)) {
        defaults.setObject(kRootItemKey, QVariantList{QStringLiteral("/"), AppPaths::musicFolder()});
        defaults.synchronize();
    }
    QStringList paths;
    for (const QVariant& value : defaults.arrayForKey(kRootItemKey)) {
        if (value.typeId() == QMetaType::QString)
            paths << AppPaths::expandTilde(value.toString());
    }
    return paths;
}

QList<FileSystemItem::Ptr> FileSystemItem::rootItem()
{
    const QStringList paths = rootPaths();
    std::lock_guard lock(rootsMutex);
    // Made again whenever the stored list changed (added or removed roots).
    if (paths != sharedRootPaths()) {
        sharedRoots().clear();
        for (const QString& path : paths)
            sharedRoots().append(std::make_shared<FileSystemItem>(path, nullptr));
        sharedRootPaths() = paths;
    }
    return sharedRoots();
}

void FileSystemItem::addToRootItem(const QString& path)
{
    editStoredRoots([&](QVariantList& roots) { roots.append(path); });
}

void FileSystemItem::removeFromRootItem(const QString& path)
{
    editStoredRoots([&](QVariantList& roots) {
        // A root shows its path with "~" expanded; removing it by that path works too.
        roots.removeIf([&](const QVariant& value) {
            return value.toString() == path || AppPaths::expandTilde(value.toString()) == path;
        });
    });
}

bool FileSystemItem::hasLibraryExtension(const QString& name)
{
    static const QStringList audio = {"mp3", "mp2", "wma", "flac", "ogg", "m4a", "mid", "midi",
                                      "kar", "m4b", "m4r", "aac", "m4p", "aif", "aiff", "wav"};
    const QString extension = lowerExtension(name);
    return !extension.isEmpty() && audio.contains(extension);
}

bool FileSystemItem::isLibraryEntry(const QString& name, bool isFolder)
{
    if (hasLibraryExtension(name))
        return true;
    return isFolder && !name.startsWith(QLatin1Char('.'));
}

std::vector<FileSystemItem::Entry> FileSystemItem::readEntries(const QString& folder, QStringList* unreadable)
{
    // The kernel's own file systems hold no music, and walking them is slow or hangs.
    static const QStringList pseudoFileSystems = {"proc", "sys", "dev", "run"};
    const bool isSystemRoot = folder == QLatin1String("/");
    std::vector<Entry> entries;
    // System brings in broken links and special files; the filter decides.
    QDirIterator it(folder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    while (it.hasNext()) {
        it.next();
        const QFileInfo info = it.fileInfo();
        const QString name = info.fileName();
        const bool folderEntry = info.isDir();
        if (isSystemRoot && pseudoFileSystems.contains(name))
            continue;
        if (isLibraryEntry(name, folderEntry))
            entries.push_back({name, folderEntry});
    }
    // The iterator passes over names that do not decode; they are read by bytes.
    if (unreadable)
        unreadable->append(unreadableEntries(folder, &FileSystemItem::isLibraryEntry));
    return entries;
}

const std::vector<std::unique_ptr<FileSystemItem>>* FileSystemItem::children()
{
    if (state_ == State::NotRead) {
        if (!isFolder()) {
            state_ = State::NotFolder;
        } else {
            adoptEntries(readEntries(fullPath()));
        }
    }
    return state_ == State::Read ? &children_ : nullptr;
}

void FileSystemItem::releaseChildren()
{
    children_.clear();
    state_ = State::NotRead;
    // What the item is may have changed as well.
    kind_ = Kind::Unknown;
}

FileSystemItem* FileSystemItem::childAtIndex(int index)
{
    const auto* list = children();
    if (!list || index < 0 || index >= int(list->size()))
        return nullptr;
    return (*list)[size_t(index)].get();
}

int FileSystemItem::numberOfChildren()
{
    const auto* list = children();
    return list ? int(list->size()) : -1;
}

bool FileSystemItem::isFolder()
{
    if (state_ == State::Read)
        return true;
    if (state_ == State::NotFolder)
        return false;
    if (kind_ == Kind::Unknown)
        kind_ = QFileInfo(fullPath()).isDir() ? Kind::Folder : Kind::File;
    return kind_ == Kind::Folder;
}

QString FileSystemItem::fullPath() const
{
    if (!parent_)
        return relativePath_;
    QString base = parent_->fullPath();
    if (!base.endsWith(QLatin1Char('/')))
        base += QLatin1Char('/');
    return base + relativePath_;
}

int FileSystemItem::indexInParent() const
{
    if (!parent_)
        return -1;
    const auto& siblings = parent_->children_;
    const auto it = std::find_if(siblings.begin(), siblings.end(),
                                 [this](const auto& sibling) { return sibling.get() == this; });
    return it == siblings.end() ? -1 : int(it - siblings.begin());
}

void FileSystemItem::adoptEntries(const std::vector<Entry>& entries)
{
    children_.clear();
    children_.reserve(entries.size());
    for (const Entry& entry : entries)
        children_.push_back(std::make_unique<FileSystemItem>(entry.name, this, entry.isFolder ? Kind::Folder : Kind::File));
    state_ = State::Read;
}

std::unique_ptr<FileSystemItem> FileSystemItem::takeChild(int index)
{
    auto child = std::move(children_[size_t(index)]);
    children_.erase(children_.begin() + index);
    return child;
}

void FileSystemItem::insertChild(int index, std::unique_ptr<FileSystemItem> child)
{
    child->parent_ = this;
    children_.insert(children_.begin() + index, std::move(child));
    state_ = State::Read;
}

void FileSystemItem::markNotFolder()
{
    children_.clear();
    state_ = State::NotFolder;
    kind_ = Kind::File;
}
