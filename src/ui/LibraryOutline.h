#pragma once
#include <QString>

class LibraryModel;
class QTreeView;

// Makes a tree view the library column of a tab: a library model of its own,
// the name, title, artist, album and duration columns, whole rows selected,
// items dragged out as files, and a folder read again when it is opened.
// The view's object name (name) keeps its column widths across restarts.
LibraryModel* setUpLibraryOutline(QTreeView* view, const QString& name);
