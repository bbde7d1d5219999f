#pragma once
#include "disc/BurnJobs.h"

#include <QObject>

#include <memory>

class BurnDrives;
class MyController;

// Erases rewritable discs: the erase sheet chooses the burner and how, the
// erase runs as a job. The shell stops ignoring inserted discs when the sheet closes.
class eraser : public QObject {
    Q_OBJECT
public:
    explicit eraser(BurnDrives& drives, QObject* parent = nullptr);
    ~eraser() override;

    void setShell(MyController* shell) { shell_ = shell; }
    void eraseCD();
    void handleSetupSheet(bool confirmed, const QString& drive, bool full);
    // The erase itself, as a started job.
    std::shared_ptr<Job> erase(const QString& drive, bool full);

signals:
    void setupRequested();
    void eraseStarted(quint64 jobId);
    void eraseEnded(const QString& summary);

private:
    BurnDrives& drives_;
    MyController* shell_ = nullptr;
    BurnJobs erasures_;
};
