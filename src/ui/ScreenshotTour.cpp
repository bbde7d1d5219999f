#include "ui/ScreenshotTour.h"

#include "core/Job.h"
#include "core/LibraryModel.h"
#include "ui/MainWindow.h"
#include "ui/MusicTab.h"
#include "ui/PreferencesDialog.h"

#include <QApplication>
#include <QDir>
#include <QPixmap>
#include <QTabWidget>
#include <QTimer>
#include <QTreeView>

#include <functional>

namespace {

// Settling time for each picture: folders to be read and tags to come back.
constexpr int kSettleMs = 1500;

void openLibrary(MainWindow* window)
{
    for (QTreeView* outline : window->findChildren<QTreeView*>()) {
        auto* model = qobject_cast<LibraryModel*>(outline->model());
        if (!model)
            continue;
        // The last root (the library the user added), and its first folder.
        const QModelIndex root = model->index(model->rowCount() - 1, 0);
        outline->expand(root);
        model->fetchMore(root);
        for (int row = 0; row < model->rowCount(root); ++row) {
            const QModelIndex child = model->index(row, 0, root);
            if (model->hasChildren(child)) {
                outline->expand(child);
                break;
            }
        }
    }
}

}  // namespace

void startScreenshotTour(MainWindow* window, const QString& folder)
{
    QDir().mkpath(folder);
    QList<std::function<void()>> steps;
    const auto save = [folder](QWidget* widget, const QString& name) {
        widget->grab().save(QDir(folder).filePath(name + QStringLiteral(".png")));
    };
    steps << [window] { openLibrary(window); };
    const QStringList names = {"music", "play", "rip", "tag", "clip", "stores"};
    for (int tab = 0; tab < names.size(); ++tab) {
        steps << [window, tab] { window->tabs()->setCurrentIndex(tab); };
        steps << [window, save, name = names[tab]] { save(window, name); };
    }
    // A conversion of the library's folder, with its jobs listed below the tabs.
    const QString converted = QDir(folder).filePath(QStringLiteral(".converted"));
    steps << [window, converted] {
        window->tabs()->setCurrentIndex(MainWindow::MusicTabIndex);
        QTreeView* outline = window->musicTab()->libraryOutline();
        const QModelIndex root = outline->model()->index(outline->model()->rowCount() - 1, 0);
        outline->selectionModel()->select(root, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
        window->musicTab()->convertInto(QStringLiteral("OGG"), converted);
    };
    steps << [window, save] { save(window, QStringLiteral("music-converting")); };
    steps << [window] { window->showPreferences(); };
    steps << [window, save] {
        if (auto* preferences = window->findChild<PreferencesDialog*>())
            save(preferences, QStringLiteral("preferences"));
    };
    steps << [converted] {
        JobList::shared().cancelAll();
        JobList::shared().waitForAll(10000);
        QDir(converted).removeRecursively();
        QApplication::exit(0);
    };

    auto* timer = new QTimer(window);
    timer->setInterval(kSettleMs / 3);
    QObject::connect(timer, &QTimer::timeout, window, [timer, steps]() mutable {
        if (steps.isEmpty())
            timer->stop();
        else
            steps.takeFirst()();
    });
    QTimer::singleShot(kSettleMs, timer, qOverload<>(&QTimer::start));
}
