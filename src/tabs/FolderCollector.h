#pragma once
#include <QSet>
#include <QString>
#include <QVariantMap>

#include <atomic>
#include <functional>
#include <optional>

// Collects the audio files of a folder (deeply) or a single file into a folder
// collection: {"leafarray": paths, "commentarray": track records,
// "destinationarray": relative destination folders}, sorted by finderCompare.
// progress (may be empty) gets each entry's name; the walk stops when *cancel
// becomes true. Nothing when the path does not exist.
std::optional<QVariantMap> contentsOfFolder(const QString& path, const std::atomic<bool>* cancel,
                                            const std::function<void(const QString&)>& progress,
                                            const QSet<QString>& types);
std::optional<QVariantMap> contentsOfFolder(const QString& path, const std::atomic<bool>* cancel,
                                            const std::function<void(const QString&)>& progress);
