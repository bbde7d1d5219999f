#pragma once
#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

// The whole library as the library tree shows it, walked recursively: every
// root and, under it, the audio files and folders of the listing. Each folder is
// listed once: a link back to a folder already walked (a symlink cycle, or two
// links to one folder) is shown but not entered again.
namespace FileSystemItemListing {

struct Root {
    QString path;
    int maxDepth = -1;  // levels listed below the root; -1: no limit
};

// Lines "path" for each root, then one line per entry indented by two spaces a
// level, folders ending in "/". A folder whose contents are not listed carries
// a note: "(depth limit)" or "(already listed)"; a missing root "(missing)".
// Entries left out because their names are not valid UTF-8 go to *unreadable
// (escaped full paths) when it is given.
QByteArray toText(const QList<Root>& roots, QStringList* unreadable = nullptr);

// {"roots": [{"path", "exists", "folder", "children"}]}; each entry is
// {"name", "path", "folder"} with "children" for a listed folder, or
// "truncated": true (depth limit) / "alreadyListed": true instead.
QByteArray toJson(const QList<Root>& roots, QStringList* unreadable = nullptr);

} // namespace FileSystemItemListing
