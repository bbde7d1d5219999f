#pragma once
#include <QString>

// Where Velmora keeps its own files on this desktop (XDG base directories).
namespace AppPaths {

QString configDir();        // $XDG_CONFIG_HOME/Velmora: the defaults database
QString defaultsFile();     // configDir()/defaults.plist
QString dataDir();          // $XDG_DATA_HOME/Velmora: playlists, media sets, M3U, iTunes, lame
QString cacheDir();         // $XDG_CACHE_HOME/Velmora: intermediate WAV and MP3 files
QString artworkCacheDir();  // $XDG_CACHE_HOME/com.dorvane.velmora3/artwork
QString runtimeDir();       // $XDG_RUNTIME_DIR, or "" when unset
// The per-user working folder (0700). Inside the private runtime directory when
// there is one; otherwise a folder this process made with mkdtemp in the
// temporary folder and checked to be the user's own, never a predictable name.
QString workingFolder();
bool workingFolderIsShared();  // true for the temporary-folder fallback
// The decoders' output link "com.dorvane.velmora-<pid>-<n>.wav" in the working
// folder: unique per process and per call.
QString wavLinkPath();

// Makes a folder only the user may enter (0700) with its missing parents;
// an existing one must be a folder of the user's own. False when it cannot be.
bool makePrivateFolder(const QString& path);
// A name in folder for one request's intermediate file, "<prefix>-<pid>-<n>.<extension>":
// no other request of this process or of another one gets it.
QString uniqueIntermediate(const QString& folder, const QString& prefix, const QString& extension);
QString musicFolder();      // the user's Music folder
QString homeDir();

// "~/x" for paths under the home folder, the path itself otherwise; and back.
QString abbreviateHome(const QString& path);
QString expandTilde(const QString& path);

} // namespace AppPaths
