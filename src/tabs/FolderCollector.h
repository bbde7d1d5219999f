#pragma once
#include <QSet>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <atomic>
#include <functional>
#include <optional>

// Collects the audio files of a folder (deeply) or a single file into a folder
// collection: {"leafarray": paths, "commentarray": track records,
// "destinationarray": relative destination folders}, sorted by finderCompare.
// progress (may be empty) gets each entry's name; the walk stops when *cancel
// becomes true. Nothing when the path does not exist. Entries whose names are
// not valid UTF-8 cannot be opened by a name held as text: they are left out,
// and *unreadable (when given) gets their escaped full paths.
std::optional<QVariantMap> contentsOfFolder(const QString& path, const std::atomic<bool>* cancel,
                                            const std::function<void(const QString&)>& progress,
                                            const QSet<QString>& types, QStringList* unreadable = nullptr);
std::optional<QVariantMap> contentsOfFolder(const QString& path, const std::atomic<bool>* cancel,
                                            const std::function<void(const QString&)>& progress);
