#include "core/TaskManager.h"

#include "platform/AppPaths.h"
#include "platform/FileNames.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <thread>

wavManager& wavManager::sharedInstance()
{
    static wavManager manager;
    return manager;
}

void wavManager::needWavForSource(const QString& source, const QStringList& types, const QString& folder)
{
    Entry entry;
    entry.types = QSet<QString>(types.begin(), types.end());
    // "song.mp3-<pid>-<n>.WAV": the source's name leads, and no other process or
    // request shares the file. Room is kept for the suffix in the longest name.
    entry.wavpath = AppPaths::uniqueIntermediate(
        folder, FileNames::fitName(QFileInfo(source).fileName(), {}, FileNames::kMaxNameBytes - 48), "WAV");
    entries_.insert(source, entry);
}

void wavManager::updateWavForSource(const QString& source, const QString& newPath, bool keep)
{
    auto it = entries_.find(source);
    if (it == entries_.end())
        return;
    it->wavpath = newPath;
    if (keep)
        it->keep = true;  // a later NO never clears an earlier YES
}

void wavManager::removeWavForSource(const QString& source, const QString& type)
{
    auto it = entries_.find(source);
    if (it == entries_.end())
        return;
    it->types.remove(type);
    if (!it->types.isEmpty())
        return;
    if (!it->keep)
        QFile::remove(it->wavpath);
    entries_.erase(it);
}

QString wavManager::wavPathForSource(const QString& source) const
{
    auto it = entries_.find(source);
    return it == entries_.end() ? QString() : it->wavpath;
}

taskManager::taskManager()
    : maxTasks_(std::thread::hardware_concurrency() ? int(2 * std::thread::hardware_concurrency()) : 2),
      wavs_(wavManager::sharedInstance())
{
}

taskManager& taskManager::sharedInstance()
{
    static taskManager manager;
    return manager;
}

bool taskManager::addTask(Task task)
{
    std::lock_guard lock(mutex_);
    if (int(tasks_.size()) >= maxTasks_)
        return false;
    tasks_.push_back(task);
    return true;
}

bool taskManager::addTask(Task task, const QString& source, const QString& type)
{
    std::lock_guard lock(mutex_);
    if (int(tasks_.size()) >= maxTasks_)
        return false;
    tasks_.push_back(task);
    sources_.append(source);
    types_.append(type);
    return true;
}

void taskManager::removeTask(Task task)
{
    std::lock_guard lock(mutex_);
    const auto it = std::find(tasks_.begin(), tasks_.end(), task);
    if (it == tasks_.end())
        return;
    const auto index = int(it - tasks_.begin());
    tasks_.erase(it);
    if (index < sources_.size()) {
        wavs_.removeWavForSource(sources_.at(index), types_.at(index));
        sources_.removeAt(index);
        types_.removeAt(index);
    }
}

int taskManager::count() const
{
    std::lock_guard lock(mutex_);
    return int(tasks_.size());
}

int taskManager::maxTasks() const
{
    std::lock_guard lock(mutex_);
    return maxTasks_;
}

void taskManager::setMaxTasks(int maxTasks)
{
    if (maxTasks <= 0)
        return;
    std::lock_guard lock(mutex_);
    maxTasks_ = maxTasks;
}

int taskManager::getNumberOfCPUCores()
{
    const unsigned cores = std::thread::hardware_concurrency();
    return cores ? int(cores) : 1;
}
