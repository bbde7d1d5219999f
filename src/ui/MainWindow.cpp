#include "ui/MainWindow.h"

#include "core/LibraryModel.h"
#include "core/MyController.h"
#include "disc/AudioCDWrapper.h"
#include "disc/AudioDVDWrapper.h"
#include "disc/Eraser.h"
#include "disc/FlashWriter.h"
#include "disc/OpticalMediaWrapper.h"
#include "disc/FreeDBWrapper.h"
#include "disc/MountedCDWrapper.h"
#include "encode/LameWrapper.h"
#include "platform/AppPaths.h"
#include "platform/Desktop.h"
#include "tabs/AppControllers.h"
#include "ui/AboutBox.h"
#include "ui/ClipTab.h"
#include "ui/FlashSetupSheet.h"
#include "ui/FolderChooser.h"
#include "ui/FreeDBPreferencesPage.h"
#include "ui/JobListView.h"
#include "ui/LamePreferencesPage.h"
#include "ui/LibraryOutline.h"
#include "ui/MusicTab.h"
#include "ui/PlayTab.h"
#include "ui/PreferencesDialog.h"
#include "ui/RipTab.h"
#include "ui/StoresTab.h"
#include "ui/TagTab.h"
#include "ui/WindowState.h"

#include <QApplication>
#include <QCloseEvent>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QMenuBar>
#include <QPointer>
#include <QMessageBox>
#include <QPushButton>
#include <QStatusBar>
#include <QTabWidget>
#include <QTreeView>
#include <QVBoxLayout>

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
    // The burn and erase sheets hold the shell's ignore-insert flag.
    controllers.audioCD().setShell(&controller);
    controllers.audioDVD().setShell(&controller);
    controllers.opticalMedia().setShell(&controller);
    controllers.discEraser().setShell(&controller);

    const QStringList titles = tabTitles();
    outlines_ << musicTab_->libraryOutline();
    tabs_->addTab(musicTab_, titles[MusicTabIndex]);
    tabs_->addTab(new ::PlayTab(controllers.play()), titles[PlayTab]);
    outlines_ << nullptr;  // the Play tab's sources are no library outline
    connect(&controllers.play(), &PlaySourcesWrapper::playTabRequested, this,
            [this] { tabs_->setCurrentIndex(PlayTab); });
    outlines_ << nullptr;  // the Rip tab shows discs, not the library
    tabs_->addTab(ripTab_, titles[RipTabIndex]);
    tagTab_ = new ::TagTab(controllers.tagSources());
    outlines_ << nullptr;  // the Tag tab lists its own sources
    tabs_->addTab(tagTab_, titles[TagTab]);
    tabs_->addTab(new ::ClipTab(controllers.clip()), titles[ClipTab]);
    outlines_ << nullptr;  // the Clip tab's sources are no library outline
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
    app->addAction(tr("&About Velmora"), this, [this] { AboutBox::show(this); });
    app->addAction(tr("&Preferences…"), QKeySequence(tr("Ctrl+,")), this, &MainWindow::showPreferences);
    app->addSeparator();
    app->addAction(tr("&Quit"), QKeySequence::Quit, this, &MainWindow::quitAfterTagEdits);
    QMenu* file = menuBar()->addMenu(tr("&File"));
    auto inMusicTab = [this](void (MusicTab::*action)()) {
        return [this, action] {
            tabs_->setCurrentWidget(musicTab_);
            (musicTab_->*action)();
        };
    };
    file->addAction(tr("&New Playlist"), QKeySequence::New, this, inMusicTab(&MusicTab::newPlaylist));
    file->addAction(tr("&Export Playlist as M3U…"), QKeySequence(tr("Ctrl+E")), this, inMusicTab(&MusicTab::exportM3U));
    file->addAction(tr("&Convert Selection…"), QKeySequence(tr("Ctrl+Shift+C")), this, inMusicTab(&MusicTab::convert));
    file->addSeparator();
    file->addAction(tr("Open &Disc Image…"), QKeySequence::Open, this, &MainWindow::openDiscImage);
    connect(&controllers_.cdWatcher(), &mounted_cd_wrapper::openFailed, this,
            [this](const QString&, const QString& why) { showAlert(tr("Open Disc Image"), why); });
    QMenu* library = menuBar()->addMenu(tr("&Library"));
    library->addAction(tr("&Add Folder to Library…"), QKeySequence(tr("Ctrl+L")), this, &MainWindow::addToLibrary);
    library->addAction(tr("&Remove Folder from Library"), this, &MainWindow::removeFromLibrary);
    QMenu* view = menuBar()->addMenu(tr("&View"));
    for (int tab = 0; tab < titles.size(); ++tab)
        view->addAction(titles[tab], QKeySequence(QStringLiteral("Ctrl+%1").arg(tab + 1)), this,
                        [this, tab] { tabs_->setCurrentIndex(tab); });
    QMenu* help = menuBar()->addMenu(tr("&Help"));
    auto open = [this](const char* url) { return [this, url] { openAddress(QString::fromUtf8(url)); }; };
    help->addAction(tr("Frequently Asked Questions"), QKeySequence::HelpContents, this,
                    open("https://velmora.example/faq"));
    help->addAction(tr("Downloads"), this, open("https://velmora.example/downloads"));
    help->addAction(tr("Send Feedback…"), this, open("mailto:feedback@velmora.example?subject=Velmora%20Feedback"));
    help->addAction(tr("Email Support…"), this, open("mailto:support@velmora.example?subject=Velmora"));
    help->addSeparator();
    help->addAction(tr("&About Velmora"), this, [this] { AboutBox::show(this); });

    FlashWriter& flash = controllers_.flashWriter();
    flash.setController(&controller_);
    connect(&flash, &FlashWriter::setupSheetRequested, this, [this] {
        auto* sheet = new FlashSetupSheet(controllers_.flashWriter(), this);
        sheet->setAttribute(Qt::WA_DeleteOnClose);
        sheet->open();
    });
    auto eraseSheet = std::make_shared<QPointer<FlashEraseSheet>>();
    connect(&flash, &FlashWriter::erasingStarted, this, [this, eraseSheet](const QString& volume) {
        *eraseSheet = new FlashEraseSheet(controllers_.flashWriter(), volume, this);
        (*eraseSheet)->setAttribute(Qt::WA_DeleteOnClose);
        (*eraseSheet)->open();
    });
    connect(&flash, &FlashWriter::erasingEnded, this, [eraseSheet] {
        if (*eraseSheet)
            (*eraseSheet)->done(QDialog::Accepted);
    });
    connect(&flash, &FlashWriter::alert, this, &MainWindow::showAlert);

    connect(musicTab_, &MusicTab::statusMessage, this, [this](const QString& text) { statusBar()->showMessage(text); });
    connect(&controller_, &MyController::libraryFolderRefused, this,
            [this](const QString& message) { showAlert(tr("Add Folder to Library"), message); });

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
    connect(&controller_, &MyController::stoppingJobs, this, [this] {
        if (!tasksSheet_)
            return;
        tasksSheet_->setText(tr("Stopping the running jobs; what they had begun is removed."));
        for (QAbstractButton* button : tasksSheet_->buttons())
            button->setEnabled(false);
    });
    connect(&controller_, &MyController::terminateRequested, this, [this] {
        quitting_ = true;
        WindowState::save(this);
        QApplication::quit();
    });
    connect(&controllers_.lame(), &LameWrapper::downloadOfferRequested, this,
            [this] { LamePreferencesPage::offerDownload(&controllers_.lame(), this); });
    connect(&controller_, &MyController::playPlaylistRequested, this,
            [this] { tabs_->setCurrentIndex(PlayTab); });

    WindowState::restore(this);
}

void MainWindow::addToLibrary()
{
    const QString music = AppPaths::musicFolder();
    QFileDialog* chooser =
        openFolderChooser(this, tr("Add Folder to Library"), MyController::addToLibraryMessage(),
                          QFileInfo(music).isDir() ? music : AppPaths::homeDir(), QString(),
                          [this](const QString& folder) { controller_.addToLibraryDidEnd(true, folder); });
    // Cancelling still makes every tab reload, as a confirmed choice does.
    connect(chooser, &QFileDialog::rejected, this, [this] { controller_.addToLibraryDidEnd(false, QString()); });
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

void MainWindow::openAddress(const QString& url)
{
    if (!Desktop::openUrl(url))
        showAlert(tr("Cannot Open"), tr("No program could open \u201c%1\u201d. Is a web browser or mail program "
                                        "installed and set as the default?")
                                         .arg(url));
}

void MainWindow::showAlert(const QString& title, const QString& message)
{
    auto* alert = new QMessageBox(QMessageBox::Warning, title, message, QMessageBox::Ok, this);
    alert->setAttribute(Qt::WA_DeleteOnClose);
    alert->setWindowModality(Qt::WindowModal);
    alert->open();
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
    quitNow->setToolTip(tr("Stop every running job, remove what they had begun, and quit"));
    // The sheet stays while the jobs stop; the controller ends it.
    QObject::disconnect(quitNow, &QAbstractButton::clicked, nullptr, nullptr);
    connect(quitNow, &QPushButton::clicked, &controller_, &MyController::tasksrunningQuit);
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
    quitAfterTagEdits();
}

void MainWindow::quitAfterTagEdits()
{
    tagTab_->confirmLeaving([this] { controller_.reallyQuit(tabs_->currentIndex()); });
}
