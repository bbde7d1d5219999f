#include "ui/JobListView.h"

#include "core/Job.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QProgressBar>
#include <QScrollArea>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>

namespace {

// Bursts of progress from a job's thread become one repaint in this time.
constexpr int kRefreshDelayMs = 50;

QToolButton* makeButton(const QString& iconName, const QString& text, const QString& toolTip, const char* name)
{
    auto* button = new QToolButton;
    button->setObjectName(QLatin1String(name));
    const QIcon icon = QIcon::fromTheme(iconName);
    button->setIcon(icon);
    button->setText(text);
    // The word beside the icon: a red dot alone does not say what it does.
    button->setToolButtonStyle(icon.isNull() ? Qt::ToolButtonTextOnly : Qt::ToolButtonTextBesideIcon);
    button->setToolTip(toolTip);
    button->setAutoRaise(true);
    return button;
}

}  // namespace

JobListView::JobListView(QWidget* parent)
    : QFrame(parent), layout_(new QVBoxLayout), refreshTimer_(new QTimer(this))
{
    setObjectName(QStringLiteral("jobList"));
    setFrameShape(QFrame::StyledPanel);
    // A batch of hundreds of files lists hundreds of jobs: past a few rows they scroll.
    auto* rows = new QWidget;
    rows->setLayout(layout_);
    scroll_ = new QScrollArea;
    layout_->setContentsMargins(6, 4, 6, 4);
    layout_->setSpacing(2);
    layout_->addStretch();
    scroll_->setFrameShape(QFrame::NoFrame);
    scroll_->setWidgetResizable(true);
    scroll_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll_->setWidget(rows);
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    outer->addWidget(scroll_);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    rows->installEventFilter(this);
    refreshTimer_->setSingleShot(true);
    refreshTimer_->setInterval(kRefreshDelayMs);
    connect(refreshTimer_, &QTimer::timeout, this, &JobListView::refreshPending);

    // The signals come from the jobs' own threads: queued to this one.
    JobList& list = JobList::shared();
    connect(&list, &JobList::jobAdded, this, &JobListView::changed, Qt::QueuedConnection);
    connect(&list, &JobList::jobChanged, this, &JobListView::changed, Qt::QueuedConnection);
    connect(&list, &JobList::jobFinished, this, &JobListView::changed, Qt::QueuedConnection);
    connect(&list, &JobList::jobRemoved, this, &JobListView::removeRow, Qt::QueuedConnection);
    // Jobs that started before the window.
    for (const auto& job : list.jobs())
        refresh(job->id());
    updateVisibility();
}

JobListView::~JobListView() = default;

QSize JobListView::sizeHint() const
{
    // As tall as its rows, up to about seven of them.
    const QSize rows = scroll_->widget()->sizeHint();
    return {rows.width(), std::min(rows.height(), 12 * fontMetrics().lineSpacing()) + 2 * frameWidth()};
}

bool JobListView::eventFilter(QObject* watched, QEvent* event)
{
    // A row shown, hidden or grown: the window gives this panel a new height.
    if (watched == scroll_->widget() && event->type() == QEvent::LayoutRequest)
        updateGeometry();
    return QFrame::eventFilter(watched, event);
}

QWidget* JobListView::rowFor(quint64 id) const
{
    const auto it = rows_.find(id);
    return it == rows_.end() ? nullptr : it->second.widget;
}

void JobListView::changed(quint64 id)
{
    pending_.insert(id);
    if (!refreshTimer_->isActive())
        refreshTimer_->start();
}

void JobListView::refreshPending()
{
    const QSet<quint64> ids = std::exchange(pending_, {});
    for (quint64 id : ids)
        refresh(id);
}

JobListView::Row& JobListView::rowOf(quint64 id)
{
    if (const auto it = rows_.find(id); it != rows_.end())
        return it->second;
    Row row;
    row.widget = new QWidget;
    auto* line = new QHBoxLayout(row.widget);
    line->setContentsMargins(0, 0, 0, 0);
    row.title = new QLabel;
    row.title->setObjectName(QStringLiteral("jobTitle"));
    QFont bold = row.title->font();
    bold.setBold(true);
    row.title->setFont(bold);
    row.progress = new QProgressBar;
    row.progress->setObjectName(QStringLiteral("jobProgress"));
    row.progress->setMaximumWidth(220);
    row.progress->setTextVisible(false);
    row.status = new QLabel;
    row.status->setObjectName(QStringLiteral("jobStatus"));
    row.status->setWordWrap(true);
    row.status->setTextInteractionFlags(Qt::TextSelectableByMouse);
    row.cancel = makeButton(QStringLiteral("process-stop"), tr("Cancel"), tr("Cancel this job"), "jobCancel");
    row.dismiss = makeButton(QStringLiteral("window-close"), tr("Dismiss"), tr("Dismiss this message"), "jobDismiss");
    connect(row.cancel, &QToolButton::clicked, this, [this, id] {
        if (const auto job = JobList::shared().job(id))
            job->cancel();
        changed(id);
    });
    connect(row.dismiss, &QToolButton::clicked, this, [id] { JobList::shared().dismiss(id); });
    line->addWidget(row.title);
    line->addWidget(row.progress);
    line->addWidget(row.status, 1);
    line->addWidget(row.cancel);
    line->addWidget(row.dismiss);

    const auto inserted = rows_.emplace(id, row).first;
    // Oldest first, as the list keeps them.
    layout_->insertWidget(int(std::distance(rows_.begin(), inserted)), row.widget);
    updateVisibility();
    return inserted->second;
}

void JobListView::refresh(quint64 id)
{
    const auto job = JobList::shared().job(id);
    if (!job) {
        removeRow(id);
        return;
    }
    const Job::State state = job->state();
    const JobResult result = state == Job::State::Finished ? job->result() : JobResult();
    // Finished jobs stay only when they failed; the rest leave the list.
    if (state == Job::State::Finished && result.outcome != JobResult::Outcome::Failed) {
        removeRow(id);
        return;
    }
    Row& row = rowOf(id);
    row.title->setText(job->title());
    if (state == Job::State::Finished) {
        row.progress->hide();
        row.status->setText(result.error.isEmpty() ? tr("Failed") : result.error);
        row.status->setStyleSheet(QStringLiteral("color: #b00020;"));
        row.cancel->hide();
        row.dismiss->show();
        return;
    }
    const double percent = job->percent();
    if (percent < 0) {
        row.progress->setRange(0, 0);
    } else {
        row.progress->setRange(0, 100);
        row.progress->setValue(int(percent));
    }
    row.progress->show();
    const bool cancelled = job->isCancelled();
    row.status->setText(cancelled ? tr("Cancelling\u2026") : job->status());
    row.status->setStyleSheet(QString());
    row.cancel->setEnabled(!cancelled);
    row.cancel->show();
    row.dismiss->hide();
}

void JobListView::removeRow(quint64 id)
{
    pending_.remove(id);
    const auto it = rows_.find(id);
    if (it == rows_.end())
        return;
    delete it->second.widget;
    rows_.erase(it);
    updateVisibility();
}

void JobListView::updateVisibility()
{
    // A panel of its window: shown while it lists something (never as a window of its own).
    if (parentWidget())
        setVisible(!rows_.empty());
}
