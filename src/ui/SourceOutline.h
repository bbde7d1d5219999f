#pragma once
#include <QDropEvent>
#include <QIcon>
#include <QList>
#include <QString>
#include <QStringList>

class QAbstractItemView;
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

}  // namespace SourceOutline

// The rows selected in a table, in order.
QList<int> sortedSelectedRows(const QAbstractItemView* table);

// A flat tool button with a theme icon, its text beside it and a tooltip.
QToolButton* makeToolButton(const char* icon, const QString& text, const QString& tip);

// The local files a drag from the desktop carries.
QStringList droppedFiles(const QMimeData* mime);
// Posts the dropped files under a tab's drop notification, {"sender", "filearray"}.
void postFileDrop(const char* notification, QObject* sender, const QStringList& files);

// A view files can be dropped on from the desktop; they are posted under the
// tab's drop notification and become its drop zone.
template <typename View>
class FileDropTarget : public View {
public:
    explicit FileDropTarget(const char* notification) : notification_(notification) {}

protected:
    void dragEnterEvent(QDragEnterEvent* event) override
    {
        if (!droppedFiles(event->mimeData()).isEmpty())
            event->acceptProposedAction();
    }
    void dragMoveEvent(QDragMoveEvent* event) override
    {
        if (!droppedFiles(event->mimeData()).isEmpty())
            event->acceptProposedAction();
    }
    void dropEvent(QDropEvent* event) override
    {
        const QStringList files = droppedFiles(event->mimeData());
        if (files.isEmpty())
            return;
        event->acceptProposedAction();
        postFileDrop(notification_, this, files);
    }

private:
    const char* notification_;
};
