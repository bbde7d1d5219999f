#pragma once
#include <QIcon>
#include <QList>
#include <QString>

class QToolButton;
class QTreeWidget;

// The source outline the Play, Clip and Tag tabs share: a tree whose top rows
// hold the rows below them, each item remembering the index of its row.
namespace SourceOutline {

inline constexpr int kRowRole = Qt::UserRole + 1;

struct Row {
    QString title;
    QString path;  // empty for a row that stands for every item of its kind
    QIcon icon;
    int level = 0;
};

// Rebuilds the outline from the rows; `everyItemOf` ("Every song of %1") is the
// tooltip of rows without a path. Selects `selected` without telling anyone.
void fill(QTreeWidget* outline, const QList<Row>& rows, const QString& everyItemOf, int selected);
// Selects the item of a row (none when no item has it) and shows it, without telling anyone.
void select(QTreeWidget* outline, int row);

} // namespace SourceOutline

// A flat tool button with a theme icon, its text beside it and a tooltip.
QToolButton* makeToolButton(const char* icon, const QString& text, const QString& tip);
