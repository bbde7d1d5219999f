#include "cli/JobProgress.h"

#include "core/Job.h"

#include <cmath>
#include <cstdio>

JobProgress::JobProgress() : context_(std::make_unique<QObject>())
{
    // Direct: printed from the job's own thread, with no event loop needed.
    auto& list = JobList::shared();
    QObject::connect(&list, &JobList::jobChanged, context_.get(), [this](quint64 id) { show(id, false); },
                     Qt::DirectConnection);
    QObject::connect(&list, &JobList::jobFinished, context_.get(), [this](quint64 id) { show(id, true); },
                     Qt::DirectConnection);
}

JobProgress::~JobProgress() = default;

void JobProgress::show(quint64 id, bool ended)
{
    const auto job = JobList::shared().job(id);
    if (!job)
        return;
    QString line;
    if (ended) {
        const JobResult result = job->result();
        if (result.outcome != JobResult::Outcome::Failed)
            return;
        line = QStringLiteral("%1: failed: %2").arg(job->title(), result.error);
    } else {
        const QString status = job->status();
        if (status.isEmpty())
            return;
        const double percent = job->percent();
        line = percent < 0 ? QStringLiteral("%1: %2").arg(job->title(), status)
                           : QStringLiteral("%1: %2 (%3%)").arg(job->title(), status).arg(int(std::floor(percent / 10)) * 10);
    }
    std::lock_guard lock(mutex_);
    if (shown_.value(id) == line)
        return;
    shown_.insert(id, line);
    std::fprintf(stderr, "%s\n", qPrintable(line));
}
