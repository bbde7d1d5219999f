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

// The files of those types under a folder (or the file itself), sorted by
// finderCompare, without reading their tags: a list to show before the tags
// arrive. Stops early when *cancel becomes true.
QStringList audioFilesOf(const QString& path, const std::atomic<bool>* cancel, const QSet<QString>& types);

// Why a file is not collected, when it is of none of the types: ".flac is not
// a library type". Nothing for a file of one of them.
std::optional<QString> leftOutReason(const QString& file, const QSet<QString>& types);

// One line per kind of file a folder walk passes over ("skipped 2 files: .flac
// is not a library type"), most frequent first, so batch commands can say what
// they did not touch.
QStringList leftOutSummary(const QString& folder, const QSet<QString>& types);
