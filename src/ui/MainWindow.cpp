#include "ui/MainWindow.h"

#include "core/LibraryModel.h"
#include "core/MyController.h"
#include "disc/FreeDBWrapper.h"
#include "disc/MountedCDWrapper.h"
#include "encode/LameWrapper.h"
#include "tabs/AppControllers.h"
#include "ui/FreeDBPreferencesPage.h"
#include "ui/JobListView.h"
#include "ui/LamePreferencesPage.h"
#include "ui/MusicTab.h"
#include "ui/PlayTab.h"
#include "ui/PreferencesDialog.h"
#include "ui/RipTab.h"
#include "ui/StoresTab.h"

#include <QApplication>
#include <QCloseEvent>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
#include <QSplitter>
#include <QStatusBar>
#include <QTabWidget>
#include <QTreeView>
#include <QVBoxLayout>
#include <QDesktopServices>
#include <QUrl>

QStringList MainWindow::tabTitles()
{
    return {tr("Music"), tr("Play"), tr("Rip"), tr("Tag"), tr("Clip"), tr("Stores")};
}

MainWindow::MainWindow(MyController& controller, AppControllers& controllers, QWidget* parent)
    : QMainWindow(parent), controller_(controller), controllers_(controllers), tabs_(new QTabWidget),
      musicTab_(new MusicTab(controllers)), ripTab_(new RipTab(controllers)), jobList_(nullptr)
{
    setWindowTitle(QStringLiteral("Velmora"));
    resize(1000, 680);

    const QStringList titles = tabTitles();
    outlines_ << musicTab_->libraryOutline();
    tabs_->addTab(musicTab_, titles[MusicTabIndex]);
    tabs_->addTab(new ::PlayTab(controllers.play()), titles[PlayTab]);
    outlines_ << nullptr;  // the Play tab's sources are no library outline
    connect(&controllers.play(), &PlaySourcesWrapper::playTabRequested, this,
            [this] { tabs_->setCurrentIndex(PlayTab); });
    outlines_ << nullptr;  // the Rip tab shows discs, not the library
    tabs_->addTab(ripTab_, titles[RipTabIndex]);
    tabs_->addTab(makeSourcePane(tr("Editing tags is not available yet.")), titles[TagTab]);
    tabs_->addTab(makeSourcePane(tr("Making clips and ringtones is not available yet.")), titles[ClipTab]);
    tabs_->addTab(new StoresTab, titles[StoresTabIndex]);
    auto* central = new QWidget;
    auto* centralLayout = new QVBoxLayout(central);
    centralLayout->setContentsMargins(0, 0, 0, 0);
    centralLayout->setSpacing(0);
    centralLayout->addWidget(tabs_, 1);
    jobList_ = new JobListView(central);
    centralLayout->addWidget(jobList_);
    setCentralWidget(central);

    QMenu* app = menuBar()->addMenu(tr("&Velmora"));
    app->addAction(tr("&Preferences…"), QKeySequence::Preferences, this, &MainWindow::showPreferences);
    app->addSeparator();
    app->addAction(tr("&Quit"), QKeySequence::Quit, this, [this] { controller_.reallyQuit(tabs_->currentIndex()); });
    QMenu* file = menuBar()->addMenu(tr("&File"));
    file->addAction(tr("Open &Disc Image…"), this, &MainWindow::openDiscImage);
    connect(&controllers_.cdWatcher(), &mounted_cd_wrapper::openFailed, this,
            [this](const QString&, const QString& why) {
                auto* alert = new QMessageBox(QMessageBox::Warning, tr("Open Disc Image"), why, QMessageBox::Ok, this);
                alert->setAttribute(Qt::WA_DeleteOnClose);
                alert->open();
            });
    QMenu* library = menuBar()->addMenu(tr("&Library"));
    library->addAction(tr("&Add Folder to Library…"), this, &MainWindow::addToLibrary);
    library->addAction(tr("&Remove Folder from Library"), this, &MainWindow::removeFromLibrary);
    QMenu* help = menuBar()->addMenu(tr("&Help"));
    auto open = [](const char* url) { return [url] { QDesktopServices::openUrl(QUrl(QString::fromUtf8(url))); }; };
    help->addAction(tr("Send Feedback…"), this, open("mailto:feedback@velmora.example?subject=Velmora%20Feedback"));
    help->addAction(tr("Email Support…"), this, open("mailto:support@velmora.example?subject=Velmora"));
    help->addAction(tr("Frequently Asked Questions"), this, open("https://velmora.example/faq"));
    help->addAction(tr("Downloads"), this, open("https://velmora.example/downloads"));

    statusBar()->addPermanentWidget(new QLabel(QStringLiteral("Quicktime %1").arg(controller_.quickTimeMajor())));

    connect(&controller_, &MyController::tasksRunningSheetShown, this, &MainWindow::showTasksRunningSheet);
    connect(&controller_, &MyController::tasksRemainingChanged, this, [this](int count) {
        if (tasksSheet_)
            tasksSheet_->setInformativeText(tr("Tasks still running: %1").arg(count));
    });
    connect(&controller_, &MyController::tasksRunningSheetEnded, this, [this] {
        // Ended, not closed: a message box without an escape button refuses close().
        if (tasksSheet_) {
            tasksSheet_->done(QDialog::Accepted);
            tasksSheet_->deleteLater();
        }
        tasksSheet_ = nullptr;
    });
    connect(&controller_, &MyController::terminateRequested, this, [this] {
        quitting_ = true;
        QApplication::quit();
    });
    connect(&controllers_.lame(), &LameWrapper::downloadOfferRequested, this,
            [this] { LamePreferencesPage::offerDownload(&controllers_.lame(), this); });
    connect(&controller_, &MyController::playPlaylistRequested, this,
            [this] { tabs_->setCurrentIndex(PlayTab); });
}

QTreeView* MainWindow::makeLibraryOutline()
{
    auto* outline = new QTreeView;
    auto* model = new LibraryModel(outline);
    outline->setModel(model);
    // An opened folder shows what is on disk now.
    connect(outline, &QTreeView::expanded, model, &LibraryModel::refresh);
    outline->setHeaderHidden(true);
    outline->setSelectionMode(QAbstractItemView::ExtendedSelection);
    outline->setDragEnabled(true);
    outlines_ << outline;
    return outline;
}

QWidget* MainWindow::makeSourcePane(const QString& notYetAvailable)
{
    auto* splitter = new QSplitter;
    auto* left = new QWidget;
    auto* leftLayout = new QVBoxLayout(left);
    leftLayout->setContentsMargins(0, 0, 0, 0);
    leftLayout->addWidget(makeLibraryOutline());
    auto* buttons = new QHBoxLayout;
    auto* add = new QPushButton(tr("Add Folder…"));
    auto* remove = new QPushButton(tr("Remove"));
    connect(add, &QPushButton::clicked, this, &MainWindow::addToLibrary);
    connect(remove, &QPushButton::clicked, this, &MainWindow::removeFromLibrary);
    buttons->addWidget(add);
    buttons->addWidget(remove);
    buttons->addStretch();
    leftLayout->addLayout(buttons);
    splitter->addWidget(left);

    auto* notice = new QLabel(notYetAvailable);
    notice->setAlignment(Qt::AlignCenter);
    notice->setWordWrap(true);
    notice->setObjectName(QStringLiteral("notYetAvailable"));
    splitter->addWidget(notice);
    splitter->setStretchFactor(1, 1);
    return splitter;
}

void MainWindow::addToLibrary()
{
    auto* chooser = new QFileDialog(this, tr("Add Folder to Library"));
    chooser->setFileMode(QFileDialog::Directory);
    chooser->setOption(QFileDialog::ShowDirsOnly);
    chooser->setOption(QFileDialog::DontUseNativeDialog);  // so the explanation shows
    chooser->setLabelText(QFileDialog::LookIn, MyController::addToLibraryMessage());
    chooser->setWindowModality(Qt::WindowModal);
    chooser->setAttribute(Qt::WA_DeleteOnClose);
    connect(chooser, &QFileDialog::finished, this, [this, chooser](int result) {
        const QStringList chosen = chooser->selectedFiles();
        controller_.addToLibraryDidEnd(result == QDialog::Accepted && !chosen.isEmpty(), chosen.value(0));
    });
    chooser->open();
}

void MainWindow::removeFromLibrary()
{
    QTreeView* outline = outlines_.value(tabs_->currentIndex());
    const QModelIndex current = outline ? outline->currentIndex() : QModelIndex();
    const auto* model = outline ? qobject_cast<LibraryModel*>(outline->model()) : nullptr;
    const FileSystemItem* item = model ? model->itemForIndex(current) : nullptr;
    int level = 0;
    for (QModelIndex up = current.parent(); up.isValid(); up = up.parent())
        ++level;
    controller_.removeFromLibrary(item ? item->relativePath() : QString(), level);
}

void MainWindow::openDiscImage()
{
    const QString cue = QFileDialog::getOpenFileName(this, tr("Open Disc Image"), QString(), tr("Cue sheets (*.cue)"));
    if (!cue.isEmpty())
        controllers_.cdWatcher().openImage(cue);
}

void MainWindow::showPreferences()
{
    auto* dialog = findChild<PreferencesDialog*>();
    if (!dialog) {
        dialog = new PreferencesDialog(this);
        dialog->addPage(new LamePreferencesPage(&controllers_.lame()), tr("LAME"));
        dialog->addPage(new FreeDBPreferencesPage(&FreeDBWrapper::getSharedObject()), tr("FreeDB"));
    }
    dialog->show();
    dialog->raise();
}

void MainWindow::showTasksRunningSheet(int count)
{
    tasksSheet_ = new QMessageBox(QMessageBox::Information, tr("Tasks Running"),
                                  tr("Velmora will quit when the running tasks have finished."),
                                  QMessageBox::NoButton, this);
    tasksSheet_->setInformativeText(tr("Tasks still running: %1").arg(count));
    auto* quitNow = tasksSheet_->addButton(tr("Quit Now"), QMessageBox::DestructiveRole);
    connect(quitNow, &QPushButton::clicked, &controller_, &MyController::tasksrunningQuit);
    auto* cancelJobs = tasksSheet_->addButton(tr("Cancel Jobs"), QMessageBox::ActionRole);
    cancelJobs->setToolTip(tr("Cancel every running job; Velmora quits when they have stopped."));
    // This button keeps the sheet open: it counts down while the jobs stop.
    QObject::disconnect(cancelJobs, &QAbstractButton::clicked, nullptr, nullptr);
    connect(cancelJobs, &QPushButton::clicked, this, [this, cancelJobs] {
        cancelJobs->setEnabled(false);
        controller_.cancelRunningTasks();
    });
    tasksSheet_->setWindowModality(Qt::WindowModal);
    tasksSheet_->setAttribute(Qt::WA_DeleteOnClose);
    tasksSheet_->open();
}

void MainWindow::closeEvent(QCloseEvent* event)
{
    if (quitting_) {
        event->accept();
        return;
    }
    event->ignore();
    controller_.reallyQuit(tabs_->currentIndex());
}
