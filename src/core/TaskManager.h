#pragma once
#include <QHash>
#include <QSet>
#include <QString>
#include <QStringList>

#include <mutex>
#include <optional>
#include <vector>

// Tracks the intermediate WAV that several exports of one source share and
// deletes it when the last export needing it ends. Its name is unique to this
// process and this request, so another running Velmora never touches it. No lock of its own: removal
// runs inside the task manager's lock, and callers of the other operations do
// not run them concurrently for one source.
class wavManager {
public:
    static wavManager& sharedInstance();

    void needWavForSource(const QString& source, const QStringList& types, const QString& folder);
    void updateWavForSource(const QString& source, const QString& newPath, bool keep);
    void removeWavForSource(const QString& source, const QString& type);
    QString wavPathForSource(const QString& source) const;  // null when unknown

private:
    struct Entry {
        QSet<QString> types;
        QString wavpath;
        bool keep = false;
    };
    QHash<QString, Entry> entries_;
};

// Hands out a bounded number of task slots to background jobs (exports, rips,
// clips). A job takes a slot before it starts its child process and gives it
// back when done; the shell counts the slots in use before quitting.
class taskManager {
public:
    using Task = const void*;

    static taskManager& sharedInstance();

    bool addTask(Task task);
    bool addTask(Task task, const QString& source, const QString& type);
    void removeTask(Task task);
    int count() const;
    int maxTasks() const;
    void setMaxTasks(int maxTasks);  // positive values only
    static int getNumberOfCPUCores();

private:
    taskManager();

    mutable std::mutex mutex_;
    std::vector<Task> tasks_;
    // Parallel to the first entries of tasks_: the slots taken with a source.
    QStringList sources_;
    QStringList types_;
    int maxTasks_;
    wavManager& wavs_;
};
