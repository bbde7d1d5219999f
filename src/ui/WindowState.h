#pragma once

class QWidget;

// The shape of a window kept across restarts in the settings store: its
// geometry, the positions of its named splitters and the column widths of its
// named tree and table views. Children without an object name are not kept.
namespace WindowState {

void restore(QWidget* window);
void save(QWidget* window);

}  // namespace WindowState
