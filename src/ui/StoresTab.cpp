#include "ui/StoresTab.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QVBoxLayout>

StoresTab::StoresTab(QWidget* parent)
    : QWidget(parent), list_(new QListWidget), nameEdit_(new QLineEdit), urlEdit_(new QLineEdit)
{
    stores_.awakeFromNib();
    auto* fields = new QFormLayout;
    fields->addRow(tr("Name:"), nameEdit_);
    fields->addRow(tr("Address:"), urlEdit_);

    auto* buttons = new QHBoxLayout;
    auto button = [&](const QString& text, const QString& toolTip, auto action) {
        auto* b = new QPushButton(text);
        b->setToolTip(toolTip);
        buttons->addWidget(b);
        connect(b, &QPushButton::clicked, this, action);
        return b;
    };
    button(tr("Go To Store"), tr("Open the selected store in your web browser"), [this] { goToStore(); });
    buttons->addStretch();
    button(tr("Add"), tr("Add a store to the list; fill in its name and address, then Update"), [this] {
        stores_.add();
        reload();
    });
    button(tr("Update"), tr("Keep the name and address typed above for the selected store"), [this] {
        stores_.setFields(nameEdit_->text(), urlEdit_->text());
        const int row = stores_.selectedRow();
        stores_.update();
        reload();
        list_->setCurrentRow(row);
    });
    button(tr("Delete"), tr("Delete the selected store from the list"), [this] {
        stores_.remove();
        reload();
    });
    button(tr("Reset"), tr("Put back the list of stores Velmora came with"), [this] {
        stores_.resetDefaultStores();
        reload();
    });

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(list_);
    layout->addLayout(fields);
    layout->addLayout(buttons);

    connect(list_, &QListWidget::currentRowChanged, this, &StoresTab::selectionChanged);
    connect(list_, &QListWidget::itemDoubleClicked, this, &StoresTab::goToStore);
    reload();
}

void StoresTab::goToStore()
{
    if (stores_.selectedRow() < 0 || stores_.gotoSelected())
        return;
    QMessageBox::warning(this, tr("Go To Store"),
                         tr("No web browser could open \u201c%1\u201d. Is one installed and set as the default?")
                             .arg(stores_.toolTipAt(stores_.selectedRow())));
}

void StoresTab::reload()
{
    const QSignalBlocker blocker(list_);
    list_->clear();
    const int rows = stores_.numberOfRows();
    for (int row = 0; row < rows; ++row) {
        auto* item = new QListWidgetItem(stores_.nameAt(row), list_);
        item->setToolTip(stores_.toolTipAt(row));
    }
    list_->setCurrentRow(-1);
    selectionChanged();
}

void StoresTab::selectionChanged()
{
    stores_.selectRow(list_->currentRow());
    nameEdit_->setText(stores_.nameField());
    urlEdit_->setText(stores_.urlField());
}
