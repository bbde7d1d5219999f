#include "ui/FolderChooser.h"

#include "core/StringUtils.h"

#include <QDir>
#include <QFileDialog>
#include <QGridLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QSplitter>
#include <QTreeView>

QFileDialog* openFolderChooser(QWidget* parent, const QString& title, const QString& message, const QString& openIn,
                               const QString& newFolderName, std::function<void(const QString& folder)> chosen)
{
    auto* chooser = new QFileDialog(parent, title, openIn);
    chooser->setFileMode(QFileDialog::Directory);
    chooser->setOption(QFileDialog::ShowDirsOnly);
    chooser->setOption(QFileDialog::DontUseNativeDialog);  // so the explanation and the button show
    chooser->setLabelText(QFileDialog::Accept, QObject::tr("Choose"));
    chooser->setWindowModality(Qt::WindowModal);
    chooser->setAttribute(Qt::WA_DeleteOnClose);
    // The places and the dates shown whole.
    chooser->resize(780, 480);
    if (auto* places = chooser->findChild<QSplitter*>(QStringLiteral("splitter")))
        places->setSizes({180, 600});
    if (auto* details = chooser->findChild<QTreeView*>(QStringLiteral("treeView")))
        details->header()->setStretchLastSection(true);
    if (auto* grid = qobject_cast<QGridLayout*>(chooser->layout())) {
        auto* explanation = new QLabel(message, chooser);
        explanation->setObjectName(QStringLiteral("chooserMessage"));
        explanation->setAlignment(Qt::AlignCenter);
        grid->addWidget(explanation, grid->rowCount(), 0, 1, grid->columnCount());
        if (!newFolderName.isEmpty()) {
            auto* make = new QPushButton(QObject::tr("New Folder \u201c%1\u201d").arg(newFolderName), chooser);
            make->setObjectName(QStringLiteral("makeProposedFolder"));
            make->setToolTip(
                QObject::tr("Make the folder \u201c%1\u201d in the folder shown and open it").arg(newFolderName));
            grid->addWidget(make, grid->rowCount(), 0, 1, grid->columnCount(), Qt::AlignLeft);
            QObject::connect(make, &QPushButton::clicked, chooser, [chooser, make, newFolderName] {
                const QString folder = QDir(chooser->directory()).filePath(newFolderName);
                if (!createDirectoriesAtPath(folder)) {
                    QMessageBox::warning(chooser, chooser->windowTitle(),
                                         QObject::tr("The folder \u201c%1\u201d could not be made.").arg(folder));
                    return;
                }
                chooser->setDirectory(folder);
                make->hide();
            });
        }
    }
    QObject::connect(chooser, &QFileDialog::finished, chooser, [chooser, chosen = std::move(chosen)](int result) {
        const QStringList files = chooser->selectedFiles();
        if (result == QDialog::Accepted && !files.isEmpty())
            chosen(files.first());
    });
    chooser->open();
    return chooser;
}
