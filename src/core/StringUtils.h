#pragma once
#include <QCollatorSortKey>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <functional>

// Operations on path strings shared by every tab.

// The leading integer of a text: blanks, an optional sign, digits; 0 when there is none.
int intValue(const QString& text);

// Finder-like ordering: case-, width- and composition-insensitive, punctuation
// and diacritics significant, runs of digits compared by value (a1 < A2 < a10).
int finderCompare(const QString& a, const QString& b);  // <0, 0, >0
// finderCompare as a strict weak ordering for std::sort.
bool mySort(const QString& a, const QString& b);
// A key that orders as finderCompare does, for sorting many names at once.
QCollatorSortKey finderSortKey(const QString& name);

// The lower-case extensions of the audio files the library collects.
const QSet<QString>& defaultAudioTypes();

// The entries of a folder whose names are not valid UTF-8 (no name held as text
// opens them) and that a walk would have taken: wanted() is asked with the name
// as far as it decodes (the extension usually does) and whether it is a folder.
// Escaped full paths, for FileNames::unreadableNameMessage.
QStringList unreadableEntries(const QString& folder,
                              const std::function<bool(const QString& name, bool isFolder)>& wanted);

// Makes every missing folder of a path, each with mode 0777 under the umask;
// false at the first level that cannot be made.
bool createDirectoriesAtPath(const QString& path);

// Whether a file is a RIFF/WAVE file; *sampleBits gets the format chunk's bits
// per sample (0 when unknown).
bool getWAVInfo(const QString& path, int* sampleBits);
