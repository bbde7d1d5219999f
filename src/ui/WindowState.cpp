#include "ui/WindowState.h"

#include "core/Defaults.h"

#include <QAbstractItemView>
#include <QHeaderView>
#include <QSplitter>
#include <QTableView>
#include <QTreeView>
#include <QWidget>

namespace {

constexpr char kGeometryKey[] = "mWindowGeometryStored";
constexpr char kSplittersKey[] = "mSplitterPositionsStored";
constexpr char kColumnsKey[] = "mColumnWidthsStored";

// The header of a view that shows columns, or null.
QHeaderView* columnHeader(QAbstractItemView* view)
{
    if (auto* tree = qobject_cast<QTreeView*>(view))
        return tree->header();
    if (auto* table = qobject_cast<QTableView*>(view))
        return table->horizontalHeader();
    return nullptr;
}

QByteArray decoded(const QVariant& value)
{
    return QByteArray::fromBase64(value.toString().toLatin1());
}

QString encoded(const QByteArray& state)
{
    return QString::fromLatin1(state.toBase64());
}

}  // namespace

namespace WindowState {

void restore(QWidget* window)
{
    Defaults& defaults = Defaults::standard();
    const QByteArray geometry = decoded(defaults.objectForKey(kGeometryKey));
    if (!geometry.isEmpty())
        window->restoreGeometry(geometry);
    const QVariantMap splitters = defaults.dictionaryForKey(kSplittersKey);
    for (QSplitter* splitter : window->findChildren<QSplitter*>()) {
        if (!splitter->objectName().isEmpty() && splitters.contains(splitter->objectName()))
            splitter->restoreState(decoded(splitters.value(splitter->objectName())));
    }
    const QVariantMap columns = defaults.dictionaryForKey(kColumnsKey);
    for (QAbstractItemView* view : window->findChildren<QAbstractItemView*>()) {
        QHeaderView* header = columnHeader(view);
        if (header && !view->objectName().isEmpty() && columns.contains(view->objectName()))
            header->restoreState(decoded(columns.value(view->objectName())));
    }
}

void save(QWidget* window)
{
    Defaults& defaults = Defaults::standard();
    defaults.setObject(kGeometryKey, encoded(window->saveGeometry()));
    QVariantMap splitters = defaults.dictionaryForKey(kSplittersKey);
    for (QSplitter* splitter : window->findChildren<QSplitter*>()) {
        if (!splitter->objectName().isEmpty())
            splitters.insert(splitter->objectName(), encoded(splitter->saveState()));
    }
    defaults.setObject(kSplittersKey, splitters);
    QVariantMap columns = defaults.dictionaryForKey(kColumnsKey);
    for (QAbstractItemView* view : window->findChildren<QAbstractItemView*>()) {
        QHeaderView* header = columnHeader(view);
        if (header && !view->objectName().isEmpty())
            columns.insert(view->objectName(), encoded(header->saveState()));
    }
    defaults.setObject(kColumnsKey, columns);
    defaults.synchronize();
}

}  // namespace WindowState
