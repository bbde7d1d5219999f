#include "ui/LibraryOutline.h"

#include "core/LibraryModel.h"

#include <QHeaderView>
#include <QTreeView>

LibraryModel* setUpLibraryOutline(QTreeView* view, const QString& name)
{
    auto* model = new LibraryModel(view);
    view->setObjectName(name);
    view->setModel(model);
    view->setUniformRowHeights(true);
    view->setSelectionBehavior(QAbstractItemView::SelectRows);
    view->setSelectionMode(QAbstractItemView::ExtendedSelection);
    view->setDragEnabled(true);
    view->setAllColumnsShowFocus(true);
    QHeaderView* header = view->header();
    header->setStretchLastSection(false);
    header->setSectionResizeMode(QHeaderView::Interactive);
    const int widths[] = {230, 140, 110, 110, 60};
    for (int column = 0; column < LibraryModel::ColumnCount; ++column)
        header->resizeSection(column, widths[column]);
    // An opened folder shows what is on disk now.
    QObject::connect(view, &QTreeView::expanded, model, &LibraryModel::refresh);
    return model;
}
