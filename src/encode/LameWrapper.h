#pragma once
#include <QObject>
#include <QString>
#include <QUrl>

#include <memory>

class Job;

// Finds the lame encoder, checks that it answers like LAME, and tells the rest
// of the system (VLLameFoundNotification, VLLameFoundNewNotification) whether
// MP3 functions may be enabled and which program to run. It also fetches and
// unpacks the tool on request. The LAME page of the Preferences only shows
// this object's state and forwards the user's actions to it.
class LameWrapper : public QObject {
    Q_OBJECT
public:
    static const QString kNotFoundVersion;
    static const QString kNotFoundExplanation;
    static const QString kFoundExplanation;
    static const QString kNotLameVersion;
    static const QString kNotLameExplanation;
    static const QString kNotFoundToolTip;
    static const QString kFoundToolTip;
    static const QString kNotLameToolTip;
    // The file chooser of "Locate…".
    static const QString kChooserFolder;
    static const QString kChooserMessage;

    explicit LameWrapper(QObject* parent = nullptr);
    ~LameWrapper() override;

    // Where the system-wide copy lives (the Debian package's lame) and where the
    // per-user copy goes; both can be moved, which tests do.
    void setSystemLamePath(const QString& path) { systemLamePath_ = path; }
    QString systemLamePath() const { return systemLamePath_; }
    QString userLamePath() const;
    void setDownloadUrl(const QUrl& url) { downloadUrl_ = url; }
    QUrl downloadUrl() const;
    QUrl downloadPageUrl() const;

    // The search: stored LamePath, our own copy, the per-user copy, the system copy.
    void lookForLame();
    // Runs the path field's program with "--help" and judges the answer.
    void showLameVersion();
    // VLDidLaunchNotification: search, tell everyone, offer the download if needed.
    void didLaunch();

    // User actions.
    void chooseLame(const QString& chosenPath);  // the chooser's first path, after OK
    // Runs as a job of its own ("Downloading LAME": progress, cancel), then the
    // search runs again on the main thread and downloadFinished follows.
    void downloadLame();
    bool isDownloading() const;
    std::shared_ptr<Job> downloadJob() const { return download_; }
    void setDontShowDownload(int value);

    // What the LAME page shows.
    QString pathText() const { return pathText_; }
    void setPathText(const QString& path);
    QString versionText() const { return versionText_; }
    QString explanationText() const { return explanationText_; }
    QString statusToolTip() const { return statusToolTip_; }
    QString progressText() const { return progressText_; }
    bool lameFound() const { return lameFound_; }
    bool dependentControlsEnabled() const { return lameFound_; }

signals:
    void stateChanged();
    void downloadOfferRequested();  // at start-up, when the tool is missing and not suppressed
    void downloadFinished();

private:
    void finishDownload();

    QString systemLamePath_;
    QUrl downloadUrl_;
    QString pathText_;
    QString versionText_;
    QString explanationText_;
    QString statusToolTip_;
    QString progressText_;
    bool lameFound_ = false;
    std::shared_ptr<Job> download_;
};

// The steps of the download, each stopping when the job is cancelled.
namespace LameDownload {
// The archive at url, with the job's progress following the bytes; false (and why) when it fails.
bool fetch(const QUrl& url, Job& job, QByteArray* archive, QString* error);
// Unpacks the archive with unzip in a private folder beside folder/lame and puts
// the lame it holds in place in one step, executable as the archive has it.
bool install(const QByteArray& archive, const QString& folder, Job& job, QString* error);
}  // namespace LameDownload
