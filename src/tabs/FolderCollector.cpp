#include "tabs/FolderCollector.h"

#include "core/StringUtils.h"
#include "tags/TagFacade.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>

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
