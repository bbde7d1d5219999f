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
                                            const QSet<QString>& types)
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
        while (walk.hasNext()) {
            const QFileInfo entry(walk.next());
            if (progress)
                progress(entry.fileName());
            if (entry.isFile() && types.contains(entry.suffix().toLower())) {
                const QString sub = base.relativeFilePath(entry.absolutePath());
                collect(entry, sub == QLatin1String(".") ? folderName : folderName + QLatin1Char('/') + sub);
            }
            if (cancel && cancel->load())
                break;
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
