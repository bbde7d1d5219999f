#pragma once
#include <QString>
#include <QTemporaryDir>

#include <memory>

// The private folders in which a burn keeps the files it converted: one per
// burn ("WAV-<pid>-..." or "MP3-<pid>-..." in the cache folder), removed whole
// when the burn ends. Folders left by a process that has gone are removed at start.
namespace BurnCache {

std::unique_ptr<QTemporaryDir> make(const QString& prefix);
void clearStale();

}  // namespace BurnCache
