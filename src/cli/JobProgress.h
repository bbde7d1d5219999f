#pragma once
#include <QHash>
#include <QObject>
#include <QString>

#include <memory>
#include <mutex>

// While it lives, the command line prints the progress of every job of the
// process to standard error: a line when a job's status text or its tenth of
// progress changes, and the reason of each job that fails.
class JobProgress {
public:
    JobProgress();
    ~JobProgress();
    JobProgress(const JobProgress&) = delete;
    JobProgress& operator=(const JobProgress&) = delete;

private:
    void show(quint64 id, bool ended);

    std::unique_ptr<QObject> context_;  // its end disconnects us
    std::mutex mutex_;
    QHash<quint64, QString> shown_;  // the last line printed per job
};
