#include "disc/Eraser.h"

#include "core/MyController.h"
#include "disc/BurnDrives.h"

eraser::eraser(BurnDrives& drives, QObject* parent) : QObject(parent), drives_(drives) {}

eraser::~eraser()
{
    erasures_.stopAll();
}

void eraser::eraseCD()
{
    emit setupRequested();
}

void eraser::handleSetupSheet(bool confirmed, const QString& drive, bool full)
{
    if (confirmed)
        erase(drive, full);
    if (shell_)
        shell_->setMIgnoreInsert(false);
}

std::shared_ptr<Job> eraser::erase(const QString& drive, bool full)
{
    const QString title = full ? QStringLiteral("Erasing the whole disc") : QStringLiteral("Erasing the disc");
    const std::shared_ptr<Job> job = erasures_.start(title, [this, drive, full](Job& self) {
        const QString error = drives_.erase(self, drive, full);
        emit eraseEnded(QStringLiteral("%1: %2").arg(self.title(), error.isEmpty() ? QStringLiteral("erased") : error));
        if (self.isCancelled())
            return JobResult::cancelled();
        if (!error.isEmpty())
            return JobResult::failed(error);
        self.setProgress(100, QStringLiteral("Erased"));
        return JobResult::succeeded();
    });
    emit eraseStarted(job->id());
    return job;
}
