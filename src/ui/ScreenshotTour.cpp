#include "ui/ScreenshotTour.h"

#include "core/Job.h"
#include "core/LibraryModel.h"
#include "tabs/TagSourcesWrapper.h"
#include "ui/AboutBox.h"
#include "ui/ClipTab.h"
#include "ui/MainWindow.h"
#include "ui/MusicTab.h"
#include "ui/PlaylistPanel.h"
#include "ui/PreferencesDialog.h"
#include "ui/TagTab.h"

#include <QApplication>
#include <QComboBox>
#include <QDialog>
#include <QDir>
#include <QPixmap>
#include <QPushButton>
#include <QTabWidget>
#include <QTableView>
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
        // The last root (the library the user added), down its first folders to its first files.
        QModelIndex folder = model->index(model->rowCount() - 1, 0);
        for (int depth = 0; folder.isValid() && depth < 4; ++depth) {
            outline->expand(folder);
            model->fetchMore(folder);
            QModelIndex next;
            for (int row = 0; row < model->rowCount(folder) && !next.isValid(); ++row) {
                if (model->hasChildren(model->index(row, 0, folder)))
                    next = model->index(row, 0, folder);
            }
            folder = next;
        }
    }
}

void selectLibrary(MainWindow* window)
{
    QTreeView* outline = window->musicTab()->libraryOutline();
    const QModelIndex root = outline->model()->index(outline->model()->rowCount() - 1, 0);
    outline->setCurrentIndex(root);
    outline->selectionModel()->select(root, QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
}

// A file name from a visible title: "&Music" gives "music", "Tag Editor" gives "tag-editor".
QString pictureName(QString title)
{
    return title.remove('&').trimmed().toLower().replace(' ', '-');
}

// The dialog the last action opened: the modal one on top, else any other window shown.
QDialog* openDialog(MainWindow* window)
{
    if (auto* modal = qobject_cast<QDialog*>(QApplication::activeModalWidget()))
        return modal;
    for (QWidget* widget : QApplication::topLevelWidgets()) {
        if (widget != window && widget->isVisible() && qobject_cast<QDialog*>(widget))
            return static_cast<QDialog*>(widget);
    }
    return nullptr;
}

// Clicks one of the Music tab's buttons with the library selected, as the user would.
void clickMusicButton(MainWindow* window, const QString& name)
{
    selectLibrary(window);
    if (auto* button = window->musicTab()->findChild<QPushButton*>(name))
        button->click();
    else
        qWarning("No button %s on the Music tab", qPrintable(name));
}

}  // namespace

void startScreenshotTour(MainWindow* window, const QString& folder)
{
    QDir().mkpath(folder);
    QList<std::function<void()>> steps;
    const auto save = [folder](QWidget* widget, const QString& name) {
        if (!widget)
            qWarning("No window to take as %s", qPrintable(name));
        else if (!widget->grab().save(QDir(folder).filePath(name + QStringLiteral(".png"))))
            qWarning("Could not save %s", qPrintable(name));
    };
    // Takes the dialog an action opened, after some more settling steps for what it looks up, then closes it.
    const auto dialogStep = [window, save](std::function<void()> open, const QString& name, int settle = 0) {
        QList<std::function<void()>> dialogSteps{open};
        for (int wait = 0; wait < settle; ++wait)
            dialogSteps << [] {};
        dialogSteps << [window, save, name] {
            QDialog* dialog = openDialog(window);
            save(dialog, name);
            if (dialog)
                dialog->reject();
        };
        return dialogSteps;
    };
    // Wide enough for the library's columns, within the 1280 x 800 screen of the script.
    steps << [window] {
        window->resize(1200, 740);
        openLibrary(window);
        // The Tag tab reads the last library folder while the other tabs are taken.
        TagSourcesWrapper& tags = window->tagTab()->tags();
        int lastRoot = 0;
        for (int row = 0; row < tags.sources().size(); ++row) {
            if (tags.sources()[row].kind == TagSourcesWrapper::SourceKind::Library)
                lastRoot = row;
        }
        tags.selectSource(lastRoot);
    };
    // The Clip tab with the clip of a song drawn on its waveform.
    steps << [window] {
        window->tabs()->setCurrentIndex(MainWindow::ClipTab);
        auto* tab = window->findChild<ClipTab*>();
        const auto rows = tab ? tab->clip().browser().sources() : QList<PlaySourcesWrapper::SourceRow>();
        for (int row = 0; row < rows.size(); ++row) {
            if (rows[row].kind == PlaySourcesWrapper::SourceKind::Library && rows[row].path.endsWith("/Music"))
                tab->clip().selectSource(row);
        }
    };
    for (int wait = 0; wait < 6; ++wait)
        steps << [] {};
    steps << [window] {
        auto* tab = window->findChild<ClipTab*>();
        if (!tab || tab->clip().browser().songs().isEmpty())
            return;
        tab->songTable()->selectRow(0);
        const std::pair<const char*, double> clip[] = {{ClipSourcesWrapper::kStart, 6}, {ClipSourcesWrapper::kLength, 14},
                                                       {ClipSourcesWrapper::kFadeIn, 2}, {ClipSourcesWrapper::kFadeOut, 4}};
        for (const auto& [key, value] : clip)
            tab->clip().setClipValue(0, key, value);
    };
    for (int wait = 0; wait < 3; ++wait)
        steps << [] {};
    // Every tab the window has, named by its title.
    for (int tab = 0; tab < window->tabs()->count(); ++tab) {
        steps << [window, tab] { window->tabs()->setCurrentIndex(tab); };
        if (tab == MainWindow::TagTab)
            steps << [window] { window->tagTab()->table()->selectRow(0); };
        steps << [window, save, tab] { save(window, pictureName(window->tabs()->tabText(tab))); };
    }

    steps << [window] {
        window->tabs()->setCurrentIndex(MainWindow::MusicTabIndex);
        selectLibrary(window);
    };
    steps << dialogStep([window] { window->musicTab()->convert(); }, QStringLiteral("convert-folder-chooser"));
    // A conversion of the library, with its jobs listed below the tabs.
    const QString converted = QDir(folder).filePath(QStringLiteral(".converted"));
    steps << [window, converted] {
        selectLibrary(window);
        window->musicTab()->convertInto(QStringLiteral("OGG"), converted);
    };
    // The sheet while files are handed over, then the window with some of them under way.
    steps << [window, save] { save(openDialog(window), QStringLiteral("music-converting-sheet")); };
    for (int wait = 0; wait < 5; ++wait)
        steps << [] {};
    steps << [window, save] { save(window, QStringLiteral("music-converting")); };
    steps << [window, converted] {
        JobList::shared().cancelAll();
        JobList::shared().waitForAll(10000);
        QDir(converted).removeRecursively();
    };

    steps << dialogStep([window] { window->addToLibrary(); }, QStringLiteral("add-folder-chooser"));
    steps << dialogStep([window] { window->musicTab()->exportM3U(); }, QStringLiteral("export-m3u"));
    steps << dialogStep([window] { window->musicTab()->playlistPanel()->confirmDeletePlaylist(); },
                        QStringLiteral("delete-playlist"));
    steps << dialogStep([window] { AboutBox::show(window); }, QStringLiteral("about"));

    // The burn and copy sheets, each left with Cancel; the burners are looked for while a sheet is open.
    const auto burn = [window](const QString& kind) {
        return [window, kind] {
            window->musicTab()->findChild<QComboBox*>(QStringLiteral("burnKind"))->setCurrentText(kind);
            clickMusicButton(window, QStringLiteral("burn"));
        };
    };
    steps << dialogStep(burn(QStringLiteral("Burn Audio CD")), QStringLiteral("burn-setup"), 3);
    // A few songs are far from filling a disc.
    steps << dialogStep(burn(QStringLiteral("Burn MP3 CD/DVD")), QStringLiteral("burn-size-warning"));
    steps << dialogStep([window] { clickMusicButton(window, QStringLiteral("eraseDisc")); },
                        QStringLiteral("erase-disc"), 3);
    steps << dialogStep([window] { clickMusicButton(window, QStringLiteral("copyToFlash")); },
                        QStringLiteral("flash-setup"), 1);

    // The Preferences window, one picture per page.
    steps << [window] { window->showPreferences(); };
    steps << [window, save] {
        auto* preferences = window->findChild<PreferencesDialog*>();
        auto* pages = preferences ? preferences->findChild<QTabWidget*>() : nullptr;
        for (int page = 0; pages && page < pages->count(); ++page) {
            pages->setCurrentIndex(page);
            save(preferences, QStringLiteral("preferences-") + pictureName(pages->tabText(page)));
        }
        if (preferences)
            preferences->reject();
    };
    // A FreeDB lookup the Preferences window began ends before the program does.
    steps << [] {
        JobList::shared().cancelAll();
        JobList::shared().waitForAll(10000);
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
