#pragma once
#include <QByteArray>
#include <QString>
#include <QStringList>

#include <sys/types.h>

// File names as the file system stores them (bytes) and as Velmora handles them
// (UTF-8 text), output names that fit, and names reserved for a result.
namespace FileNames {

// The longest file name (one path component) Linux file systems take, in bytes.
inline constexpr int kMaxNameBytes = 255;

bool isValidUtf8(const QByteArray& bytes);
// A name for messages: printable, every byte that is not valid UTF-8 written as \xNN.
QString escaped(const QByteArray& bytes);
// Whether a path given as text names the file it came from: a name that is not
// valid UTF-8 turns into replacement characters and no longer does.
bool survivesAsText(const QString& path);
// The entries of a folder whose names are not valid UTF-8, as escaped full paths
// (for a message: Velmora cannot open them by name).
QStringList unreadableNamesIn(const QString& folder);
// The message for such a file: names it and says why it is skipped.
QString unreadableNameMessage(const QString& escapedPath);

// stem + tail as one file name of at most maxBytes bytes in UTF-8: the stem is
// shortened (on a character boundary), the tail (" 12.MP3") is kept whole.
QString fitName(const QString& stem, const QString& tail, int maxBytes = kMaxNameBytes);

// The longest name a FAT (vfat) file system holds, in UTF-16 units.
inline constexpr int kMaxFatNameUnits = 255;
// A name a FAT file system can hold: the characters it refuses (control
// characters and " * / : < > ? \ |) become "_", trailing dots and blanks go,
// and a name over 255 UTF-16 units is shortened before its extension.
QString fatSafeName(const QString& name);
// Whether folder holds an entry called name, with no regard to case (as FAT compares).
bool existsIgnoringCase(const QString& folder, const QString& name);

// Reserves an output name: creates it empty with O_EXCL (never through a link).
// False when something is already there or the folder refuses.
bool reserve(const QString& path);
// A cancelled or failed job gives its name back: the file goes if it is still
// the empty file this process reserved. A finished job's rename replaced it.
void release(const QString& path);
bool isReserved(const QString& path);

// The process's file creation mask, read without changing it.
mode_t currentUmask();

} // namespace FileNames
