#pragma once
#include <QMainWindow>
#include <QPointer>

class AppControllers;
class JobListView;
class MusicTab;
class MyController;
class QLabel;
class QMessageBox;
class QTabWidget;
class QTreeView;
class RipTab;
class TagTab;

// The single main window: six tabs, the library outline in each, the menus,
// and the sheets of the shell (add a library folder, tasks still running).
class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    MainWindow(MyController& controller, AppControllers& controllers, QWidget* parent = nullptr);

    MusicTab* musicTab() const { return musicTab_; }
    RipTab* ripTab() const { return ripTab_; }
    ::TagTab* tagTab() const { return tagTab_; }

    QTabWidget* tabs() const { return tabs_; }
    // Below the tabs, on every tab: the running and failed jobs.
    JobListView* jobList() const { return jobList_; }
    static QStringList tabTitles();
    enum Tab { MusicTabIndex, PlayTab, RipTabIndex, TagTab, ClipTab, StoresTabIndex };

    void addToLibrary();
    void removeFromLibrary();
    void showPreferences();
    void openDiscImage();
    // Opens an address in the browser or mail program; says so when nothing can.
    void openAddress(const QString& url);

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void showTasksRunningSheet(int count);
    void showAlert(const QString& title, const QString& message);
    // Quits once the Tag tab's unsaved edits are saved or discarded.
    void quitAfterTagEdits();

    MyController& controller_;
    AppControllers& controllers_;
    QTabWidget* tabs_;
    MusicTab* musicTab_;
    RipTab* ripTab_;
    ::TagTab* tagTab_ = nullptr;
    JobListView* jobList_;
    QList<QTreeView*> outlines_;
    QPointer<QMessageBox> tasksSheet_;
    bool quitting_ = false;
};
