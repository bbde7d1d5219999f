#include "playlists/FlashCopy.h"

#include "core/Job.h"
#include "platform/FileNames.h"
#include "playlists/PlaylistFiles.h"

#include <QDir>

using namespace PlaylistFiles;

void PlaylistFlashCopier::reset()
{
    cancelled_ = false;
    stopped_ = false;
    copied_ = 0;
    failed_ = 0;
    std::lock_guard lock(taskMutex_);
    runningTask_.reset();
}

void PlaylistFlashCopier::cancel()
{
    cancelled_ = true;
    std::lock_guard lock(taskMutex_);
    if (runningTask_)
        runningTask_->terminate();
}

void PlaylistFlashCopier::report(const QString& message) const
{
    if (onMessage && !message.isEmpty())
        onMessage(message);
}

void PlaylistFlashCopier::copyPlaylistDict(const QVariantMap& group, const QString& destination,
                                           const QString& relativePath)
{
    for (const QVariant& entry : group.value(QStringLiteral("Entries")).toList()) {
        if (cancelled_ || stopped_)
            return;
        if (entry.typeId() == QMetaType::QVariantMap) {
            const QVariantMap subGroup = entry.toMap();
            const QString name = FileNames::fatSafeName(subGroup.value(QStringLiteral("Group")).toString());
            const QString folder = appendingPathComponent(appendingPathComponent(destination, relativePath), name);
            QDir().mkpath(folder);
            copyPlaylistDict(subGroup, destination, appendingPathComponent(relativePath, name));
            continue;
        }
        const QString source = entry.toString();
        if (onFile)
            onFile(lastPathComponent(source));
        FlashItemCopy copy = writer_->copyOneItemToFlash(source, appendingPathComponent(destination, relativePath));
        if (copy.task) {
            {
                // A cancel that came while the copy was starting must still end it.
                std::lock_guard lock(taskMutex_);
                runningTask_ = copy.task;
                if (cancelled_)
                    copy.task->terminate();
            }
            copy.didSucceed = copy.task->waitForExit();
            if (!copy.didSucceed && !cancelled_)
                copy.message = copy.task->errorString();
            std::lock_guard lock(taskMutex_);
            runningTask_.reset();
        }
        if (copy.didSucceed && !copy.skipped)
            ++copied_;
        else if (!copy.didSucceed && !cancelled_)
            ++failed_;
        report(copy.message);
        if (copy.stopCopying)
            stopped_ = true;
        if (cancelled_)
            return;
    }
}

void PlaylistFlashCopier::runAsJob(const QString& title, const std::function<void()>& body)
{
    Job::create(title, [&](Job& job) {
        const Job::CancelHook hook = job.onCancel([this] { cancel(); });
        const auto shownFile = onFile;
        const auto shownMessage = onMessage;
        QStringList problems;
        onFile = [&](const QString& name) {
            job.setStatus(QStringLiteral("Copying %1").arg(name));
            if (shownFile)
                shownFile(name);
        };
        onMessage = [&](const QString& message) {
            job.addMessage(message);
            problems << message;
            if (shownMessage)
                shownMessage(message);
        };
        body();
        onFile = shownFile;
        onMessage = shownMessage;
        if (cancelled_)
            return JobResult::cancelled();
        if (failed_ > 0)
            return JobResult::failed(QStringLiteral("%1 of %2 files could not be copied: %3")
                                         .arg(int(failed_))
                                         .arg(int(failed_) + int(copied_))
                                         .arg(problems.value(0)));
        return JobResult::succeeded();
    })->run();
}
