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
// The per-user working folder. Inside the private runtime directory when there
// is one; otherwise a per-user folder in /tmp that only its owner may enter.
QString workingFolder();
bool workingFolderIsShared();  // true for the /tmp fallback
QString wavLinkPath();      // the decoder's per-user output link
QString musicFolder();      // the user's Music folder
QString homeDir();

// "~/x" for paths under the home folder, the path itself otherwise; and back.
QString abbreviateHome(const QString& path);
QString expandTilde(const QString& path);

} // namespace AppPaths
