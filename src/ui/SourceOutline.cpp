#include "ui/SourceOutline.h"

#include "core/NotificationCenter.h"

#include <QAbstractItemView>
#include <QItemSelectionModel>
#include <QMimeData>
#include <QSignalBlocker>
#include <QToolButton>
#include <QTreeWidget>
#include <QTreeWidgetItemIterator>
#include <QUrl>

#include <algorithm>

namespace SourceOutline {

void fill(QTreeWidget* outline, const QList<Row>& rows, const QString& everyItemOf, int selected)
{
    const QSignalBlocker blocker(outline);
    outline->clear();
    QTreeWidgetItem* top = nullptr;
    for (int row = 0; row < rows.size(); ++row) {
        const Row& source = rows[row];
        auto* item = source.level == 0 || !top ? new QTreeWidgetItem(outline) : new QTreeWidgetItem(top);
        if (source.level == 0)
            top = item;
        item->setText(0, source.title);
        item->setIcon(0, source.icon);
        item->setToolTip(0, source.path.isEmpty() ? everyItemOf.arg(source.title) : source.path);
        item->setData(0, kRowRole, row);
    }
    outline->expandAll();
    select(outline, selected);
}

void select(QTreeWidget* outline, int row)
{
    const QSignalBlocker blocker(outline);
    outline->clearSelection();
    for (QTreeWidgetItemIterator it(outline); *it; ++it) {
        if ((*it)->data(0, kRowRole).toInt() == row) {
            (*it)->setSelected(true);
            outline->scrollToItem(*it);
        }
    }
}

}  // namespace SourceOutline

QList<int> sortedSelectedRows(const QAbstractItemView* table)
{
    QList<int> rows;
    for (const QModelIndex& index : table->selectionModel()->selectedRows())
        rows << index.row();
    std::sort(rows.begin(), rows.end());
    return rows;
}

QToolButton* makeToolButton(const char* icon, const QString& text, const QString& tip)
{
    auto* button = new QToolButton;
    button->setIcon(QIcon::fromTheme(QString::fromLatin1(icon)));
    button->setText(text);
    button->setToolTip(tip);
    button->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    button->setAutoRaise(true);
    return button;
}

QStringList droppedFiles(const QMimeData* mime)
{
    QStringList paths;
    if (mime && mime->hasUrls()) {
        for (const QUrl& url : mime->urls()) {
            if (url.isLocalFile())
                paths << url.toLocalFile();
        }
    }
    return paths;
}

void postFileDrop(const char* notification, QObject* sender, const QStringList& files)
{
    NotificationCenter::defaultCenter().post(
        notification, QVariantMap{{"sender", QVariant::fromValue<QObject*>(sender)}, {"filearray", files}});
}
