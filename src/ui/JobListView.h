#pragma once
#include <QFrame>
#include <QSet>

#include <map>

class QLabel;
class QProgressBar;
class QScrollArea;
class QTimer;
class QToolButton;
class QVBoxLayout;

// The window's list of long work: every running job with its title, progress
// (a busy bar while the percent is unknown), status text and a Cancel button,
// and every failed job with its reason and a Dismiss button until the user
// dismisses it. It follows JobList::shared() through queued signals and shows
// itself only while it has something to show.
class JobListView : public QFrame {
    Q_OBJECT
public:
    explicit JobListView(QWidget* parent = nullptr);
    ~JobListView() override;

    int rowCount() const { return int(rows_.size()); }
    // The row of a job, or null; its children are named jobTitle, jobProgress,
    // jobStatus, jobCancel and jobDismiss.
    QWidget* rowFor(quint64 id) const;

    QSize sizeHint() const override;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    struct Row {
        QWidget* widget = nullptr;
        QLabel* title = nullptr;
        QProgressBar* progress = nullptr;
        QLabel* status = nullptr;
        QToolButton* cancel = nullptr;
        QToolButton* dismiss = nullptr;
    };
    Row& rowOf(quint64 id);
    void changed(quint64 id);
    void refresh(quint64 id);
    void refreshPending();
    void removeRow(quint64 id);
    void updateVisibility();

    QVBoxLayout* layout_;
    QScrollArea* scroll_ = nullptr;
    std::map<quint64, Row> rows_;  // by job id, which grows with age
    QSet<quint64> pending_;
    QTimer* refreshTimer_;
};
