#include "disc/Eraser.h"

#include "core/MyController.h"
#include "disc/BurnDrives.h"

eraser::eraser(BurnDrives& drives, QObject* parent) : QObject(parent), drives_(drives) {}

eraser::~eraser()
{
    if (erasing_)
        erasing_->wait();
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
    if (erasing_)
        erasing_->wait();
    erasing_ = Job::create(full ? QStringLiteral("Erasing the whole disc") : QStringLiteral("Erasing the disc"),
                           [this, drive, full](Job& job) {
                               const QString error = drives_.erase(job, drive, full);
                               emit eraseEnded(QStringLiteral("%1: %2").arg(
                                   job.title(), error.isEmpty() ? QStringLiteral("erased") : error));
                               if (job.isCancelled())
                                   return JobResult::cancelled();
                               if (!error.isEmpty())
                                   return JobResult::failed(error);
                               job.setProgress(100, QStringLiteral("Erased"));
                               return JobResult::succeeded();
                           });
    erasing_->start();
    emit eraseStarted(erasing_->id());
    return erasing_;
}
