#include "ui/FreeDBPreferencesPage.h"

#include "disc/FreeDBWrapper.h"

#include <QCheckBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

namespace {
const char* const kColumns[] = {"host", "port", "cgi", "location"};
}  // namespace

FreeDBPreferencesPage::FreeDBPreferencesPage(FreeDBWrapper* freedb, QWidget* parent)
    : QWidget(parent), freedb_(freedb), table_(new QTableWidget(0, 4)),
      makeDefault_(new QPushButton(tr("Make Default"))), defaultHost_(new QLabel), status_(new QLabel),
      userName_(new QLineEdit), hostName_(new QLineEdit), disable_(new QCheckBox(tr("Do not look discs up on FreeDB")))
{
    table_->setHorizontalHeaderLabels({tr("Host"), tr("Port"), tr("Path"), tr("Location")});
    table_->horizontalHeader()->setStretchLastSection(true);
    table_->verticalHeader()->hide();
    table_->setSelectionBehavior(QAbstractItemView::SelectRows);
    table_->setSelectionMode(QAbstractItemView::SingleSelection);
    table_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    status_->setWordWrap(true);
    status_->setTextInteractionFlags(Qt::TextSelectableByMouse);

    auto* refresh = new QPushButton(tr("Refresh List"));
    refresh->setToolTip(tr("Ask the FreeDB server for its list of mirror servers"));
    makeDefault_->setToolTip(tr("Look discs up on the selected server from now on"));
    connect(refresh, &QPushButton::clicked, this, [this] { freedb_->refreshHostList(); });
    connect(makeDefault_, &QPushButton::clicked, this, [this] { freedb_->makeDefaultHost(table_->currentRow()); });
    connect(table_, &QTableWidget::itemSelectionChanged, this,
            [this] { makeDefault_->setEnabled(!table_->selectedItems().isEmpty()); });
    connect(userName_, &QLineEdit::editingFinished, this, [this] {
        if (userName_->text() != freedb_->userName())
            freedb_->setUserName(userName_->text());
    });
    connect(hostName_, &QLineEdit::editingFinished, this, [this] {
        if (hostName_->text() != freedb_->hostName())
            freedb_->setHostName(hostName_->text());
    });
    connect(disable_, &QCheckBox::toggled, this, [this](bool off) { freedb_->disable(off); });
    connect(freedb_, &FreeDBWrapper::serverListChanged, this, &FreeDBPreferencesPage::reloadTable);
    connect(freedb_, &FreeDBWrapper::changed, this, &FreeDBPreferencesPage::refreshFields);

    auto* buttons = new QHBoxLayout;
    buttons->addWidget(refresh);
    buttons->addWidget(makeDefault_);
    buttons->addStretch();
    auto* hello = new QFormLayout;
    hello->addRow(tr("Default server:"), defaultHost_);
    hello->addRow(tr("User name sent:"), userName_);
    hello->addRow(tr("Host name sent:"), hostName_);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(table_);
    layout->addLayout(buttons);
    layout->addLayout(hello);
    layout->addWidget(disable_);
    layout->addWidget(status_);

    reloadTable();
    refreshFields();
    userName_->setText(freedb_->userName());
    hostName_->setText(freedb_->hostName());
}

void FreeDBPreferencesPage::reloadTable()
{
    const QVariantList rows = freedb_->serverTable();
    table_->clearContents();
    table_->setRowCount(int(rows.size()));
    for (int row = 0; row < rows.size(); ++row) {
        const QVariantMap server = rows.at(row).toMap();
        for (int column = 0; column < 4; ++column)
            table_->setItem(row, column, new QTableWidgetItem(server.value(kColumns[column]).toString()));
    }
    // Host names and paths shown whole; the location takes what is left.
    table_->resizeColumnsToContents();
    table_->clearSelection();
    makeDefault_->setEnabled(false);
}

void FreeDBPreferencesPage::refreshFields()
{
    defaultHost_->setText(freedb_->currentServer().value("host").toString());
    status_->setText(freedb_->statusField());
    const QSignalBlocker blocker(disable_);
    disable_->setChecked(FreeDBWrapper::isDisabled());
}
