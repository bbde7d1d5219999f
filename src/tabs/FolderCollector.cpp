#include "tabs/FolderCollector.h"

#include "core/FileSystemItem.h"
#include "core/StringUtils.h"
#include "tags/TagFacade.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QMap>

#include <algorithm>
#include <numeric>
#include <vector>

std::optional<QVariantMap> contentsOfFolder(const QString& path, const std::atomic<bool>* cancel,
                                            const std::function<void(const QString&)>& progress,
                                            const QSet<QString>& types, QStringList* unreadable)
{
    const QFileInfo root(path);
    if (!root.exists())
        return std::nullopt;
    QStringList leaves;
    QStringList destinations;
    QVariantList comments;
    auto collect = [&](const QFileInfo& file, const QString& destination) {
        leaves.append(file.filePath());
        destinations.append(destination);
        comments.append(getComments(file.filePath()).value_or(QVariantMap()));
    };
    if (!root.isDir()) {
        if (progress)
            progress(root.fileName());
        if (types.contains(root.suffix().toLower()))
            collect(root, QString());
    } else {
        const QDir base(root.absoluteFilePath());
        const QString folderName = QFileInfo(QDir::cleanPath(root.absoluteFilePath())).fileName();
        QDirIterator walk(root.absoluteFilePath(), QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden,
                          QDirIterator::Subdirectories);
        // The walk passes over names that do not decode; each folder it enters is
        // read again by bytes at the end to name them.
        QStringList walked{root.absoluteFilePath()};
        while (walk.hasNext()) {
            const QFileInfo entry(walk.next());
            if (unreadable && entry.isDir() && !entry.isSymLink())
                walked << entry.filePath();
            if (progress)
                progress(entry.fileName());
            if (entry.isFile() && types.contains(entry.suffix().toLower())) {
                const QString sub = base.relativeFilePath(entry.absolutePath());
                collect(entry, sub == QLatin1String(".") ? folderName : folderName + QLatin1Char('/') + sub);
            }
            if (cancel && cancel->load())
                break;
        }
        if (unreadable) {
            for (const QString& folder : std::as_const(walked))
                unreadable->append(unreadableEntries(folder, [&](const QString& name, bool isFolder) {
                    return isFolder || types.contains(QFileInfo(name).suffix().toLower());
                }));
        }
    }
    std::vector<qsizetype> order(size_t(leaves.size()));
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(),
                     [&](qsizetype a, qsizetype b) { return finderCompare(leaves.at(a), leaves.at(b)) < 0; });
    QVariantList sortedLeaves, sortedComments, sortedDestinations;
    for (qsizetype i : order) {
        sortedLeaves.append(leaves.at(i));
        sortedComments.append(comments.at(i));
        sortedDestinations.append(destinations.at(i));
    }
    return QVariantMap{{QStringLiteral("leafarray"), sortedLeaves},
                       {QStringLiteral("commentarray"), sortedComments},
                       {QStringLiteral("destinationarray"), sortedDestinations}};
}

std::optional<QVariantMap> contentsOfFolder(const QString& path, const std::atomic<bool>* cancel,
                                            const std::function<void(const QString&)>& progress)
{
    return contentsOfFolder(path, cancel, progress, defaultAudioTypes());
}

QStringList audioFilesOf(const QString& path, const std::atomic<bool>* cancel, const QSet<QString>& types)
{
    const QFileInfo root(path);
    if (!root.isDir())
        return root.isFile() && types.contains(root.suffix().toLower()) ? QStringList{root.filePath()} : QStringList();
    std::vector<std::pair<QCollatorSortKey, QString>> found;
    // The library's own reading of a folder: no pseudo file systems, no hidden folders.
    QStringList folders{QDir::cleanPath(root.absoluteFilePath())};
    QSet<QString> walked;  // by canonical path, so a link to a folder above ends the loop
    while (!folders.isEmpty() && !(cancel && cancel->load())) {
        const QString folder = folders.takeLast();
        if (walked.contains(QFileInfo(folder).canonicalFilePath()))
            continue;
        walked.insert(QFileInfo(folder).canonicalFilePath());
        const QString prefix = folder.endsWith(QLatin1Char('/')) ? folder : folder + QLatin1Char('/');
        for (const FileSystemItem::Entry& entry : FileSystemItem::readEntries(folder)) {
            const QString full = prefix + entry.name;
            if (entry.isFolder)
                folders << full;
            else if (types.contains(QFileInfo(entry.name).suffix().toLower()))
                found.emplace_back(finderSortKey(full), full);
        }
    }
    std::stable_sort(found.begin(), found.end(),
                     [](const auto& a, const auto& b) { return a.first.compare(b.first) < 0; });
    QStringList files;
    files.reserve(qsizetype(found.size()));
    for (const auto& entry : found)
        files << entry.second;
    return files;
}

namespace {
QString notLibraryType(const QString& suffix)
{
    return suffix.isEmpty() ? QStringLiteral("a name without an extension is not a library type")
                            : QStringLiteral(".%1 is not a library type").arg(suffix);
}
} // namespace

std::optional<QString> leftOutReason(const QString& file, const QSet<QString>& types)
{
    const QString suffix = QFileInfo(file).suffix().toLower();
    if (types.contains(suffix))
        return std::nullopt;
    return notLibraryType(suffix);
}

QStringList leftOutSummary(const QString& folder, const QSet<QString>& types)
{
    QMap<QString, int> counts;
    QDirIterator walk(folder, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (walk.hasNext()) {
        const QString suffix = QFileInfo(walk.next()).suffix().toLower();
        if (!types.contains(suffix))
            ++counts[suffix];
    }
    std::vector<std::pair<int, QString>> order;
    for (auto it = counts.constBegin(); it != counts.constEnd(); ++it)
        order.emplace_back(-it.value(), it.key());
    std::sort(order.begin(), order.end());
    QStringList lines;
    for (const auto& [negativeCount, suffix] : order)
        lines << QStringLiteral("skipped %1 %2: %3")
                     .arg(-negativeCount)
                     .arg(negativeCount == -1 ? QStringLiteral("file") : QStringLiteral("files"), notLibraryType(suffix));
    return lines;
}
