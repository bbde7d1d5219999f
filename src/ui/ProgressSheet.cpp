#include "ui/ProgressSheet.h"

#include <QProgressDialog>
#include <QPushButton>

QProgressDialog* makeProgressSheet(QWidget* parent, const QString& cancelTip, std::function<void()> cancel)
{
    auto* sheet = new QProgressDialog(parent);
    sheet->setWindowModality(Qt::WindowModal);
    sheet->setRange(0, 0);
    sheet->setMinimumDuration(0);
    sheet->setAutoClose(false);
    sheet->setAutoReset(false);
    auto* button = new QPushButton(QObject::tr("Cancel"));
    button->setToolTip(cancelTip);
    sheet->setCancelButton(button);
    // The dialog's own cancel would hide the sheet while the work goes on.
    QObject::disconnect(sheet, &QProgressDialog::canceled, sheet, nullptr);
    QObject::connect(button, &QPushButton::clicked, sheet, [button, cancel = std::move(cancel)] {
        cancel();
        button->setEnabled(false);
    });
    return sheet;
}
