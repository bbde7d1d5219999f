#pragma once
#include <QMainWindow>

class MyController;
class QLabel;
class QMessageBox;
class QTabWidget;
class QTreeView;

// The single main window: six tabs, the library outline in each, the menus,
// and the sheets of the shell (add a library folder, tasks still running).
class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    explicit MainWindow(MyController& controller, QWidget* parent = nullptr);

    QTabWidget* tabs() const { return tabs_; }
    static QStringList tabTitles();
    enum Tab { MusicTab, PlayTab, RipTab, TagTab, ClipTab, StoresTabIndex };

    void addToLibrary();
    void removeFromLibrary();
    void showPreferences();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    QWidget* makeSourcePane(const QString& notYetAvailable);
    QTreeView* makeLibraryOutline();
    void showTasksRunningSheet(int count);

    MyController& controller_;
    QTabWidget* tabs_;
    QList<QTreeView*> outlines_;
    QMessageBox* tasksSheet_ = nullptr;
    bool quitting_ = false;
};
