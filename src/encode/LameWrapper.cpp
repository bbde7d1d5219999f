#include "encode/LameWrapper.h"

#include "core/Defaults.h"
#include "core/Job.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "platform/AppPaths.h"
#include "platform/ChildProcess.h"
#include "platform/FileNames.h"
#include "platform/ResourceLocator.h"
#include "platform/SafeFile.h"

#include <QDir>
#include <QEventLoop>
#include <QFileInfo>
#include <QNetworkAccessManager>
#include <QNetworkReply>

#include <sys/stat.h>

const QString LameWrapper::kNotFoundVersion = QStringLiteral("LAME not found at specified location");
const QString LameWrapper::kNotFoundExplanation = QStringLiteral(
    "At this time, we are not able to bundle the LAME MP3 encoder.  You need to download and install the LAME "
    "software yourself to enable MP3 encoding.\n\nIf you do not already have lame, you can download a "
    "pre-compiled binary version of LAME here:");
const QString LameWrapper::kFoundExplanation = QStringLiteral(
    "You have successfully installed the LAME MP3 encoder.  MP3 encoding functions are now enabled.\n\nThe "
    "lastest supported version of lame, can always be downloaded from here:");
const QString LameWrapper::kNotLameVersion = QStringLiteral("This tool does not appear to be LAME");
const QString LameWrapper::kNotLameExplanation = QStringLiteral(
    "The tool you have selected does not appear to be a valid version of LAME.  Velmora will try to use it "
    "anyway but it may not work.\n\nIf you do not already have lame, you can download a pre-compiled binary "
    "version of LAME here:");
const QString LameWrapper::kNotFoundToolTip = QStringLiteral("LAME not found");
const QString LameWrapper::kFoundToolTip = QStringLiteral("LAME successfully installed");
const QString LameWrapper::kNotLameToolTip = QStringLiteral("The selected tool does not appear to be LAME");
const QString LameWrapper::kChooserFolder = QStringLiteral("/usr");
const QString LameWrapper::kChooserMessage = QStringLiteral("Please locate the lame command line tool.");

namespace {
const QString kLamePathKey = QStringLiteral("LamePath");
const QString kDontShowKey = QStringLiteral("mDontShowLameDownload");
const QString kDownloadUrlKey = QStringLiteral("LameDownloadURL");
const QString kDownloadingText = QStringLiteral("Downloading LAME\u2026");
const QString kUnpackingText = QStringLiteral("Unpacking LAME\u2026");
// A server that stops sending for this long has failed.
constexpr int kTransferTimeoutMs = 60000;
// unzip of one small archive.
constexpr int kUnzipTimeLimitMs = 120000;
} // namespace

LameWrapper::LameWrapper(QObject* parent)
    : QObject(parent), systemLamePath_(QStringLiteral("/usr/bin/lame"))
{
    NotificationCenter::defaultCenter().addObserver(this, VLDidLaunchNotification,
                                                    [this](const Notification&) { didLaunch(); });
    // The search runs again however the download ended, also when it was cancelled before it began.
    connect(
        &JobList::shared(), &JobList::jobFinished, this,
        [this](quint64 id) {
            if (download_ && download_->id() == id)
                finishDownload();
        },
        Qt::QueuedConnection);
}

LameWrapper::~LameWrapper()
{
    NotificationCenter::defaultCenter().removeObserver(this);
    if (download_) {
        download_->cancel();
        download_->wait();
    }
}

QString LameWrapper::userLamePath() const
{
    return AppPaths::dataDir() + QStringLiteral("/lame");
}

QUrl LameWrapper::downloadUrl() const
{
    if (downloadUrl_.isValid())
        return downloadUrl_;
    const QString stored = Defaults::standard().stringForKey(kDownloadUrlKey);
    return QUrl(stored.isEmpty() ? QStringLiteral("http://downloads.dorvane.com/lame/lame.zip") : stored);
}

QUrl LameWrapper::downloadPageUrl() const
{
    return QUrl(QStringLiteral("https://lame.sourceforge.io/download.php"));
}

void LameWrapper::setPathText(const QString& path)
{
    pathText_ = path;
    emit stateChanged();
}

void LameWrapper::lookForLame()
{
    const QString stored = Defaults::standard().stringForKey(kLamePathKey);
    if (!stored.isEmpty() && QFileInfo::exists(stored)) {
        setPathText(stored);
    } else if (const QString own = ResourceLocator::ownToolPath(QStringLiteral("lame")); !own.isEmpty()) {
        setPathText(own);
    } else if (QFileInfo::exists(userLamePath())) {
        setPathText(userLamePath());
    } else {
        setPathText(systemLamePath_);
    }
    showLameVersion();
}

void LameWrapper::showLameVersion()
{
    ChildProcess child(pathText_, {QStringLiteral("--help")});
    child.setCaptureOutput(true);
    QByteArray output;
    if (child.start()) {
        child.waitForExit();
        output = child.output();
    }
    // Taken as a C string: anything after a NUL byte does not count.
    const int nul = output.indexOf('\0');
    if (nul >= 0)
        output.truncate(nul);
    const QString help = QString::fromLocal8Bit(output);

    if (help.isEmpty()) {
        versionText_ = kNotFoundVersion;
        explanationText_ = kNotFoundExplanation;
        statusToolTip_ = kNotFoundToolTip;
        lameFound_ = false;
    } else if (help.startsWith(QLatin1String("LAME"))) {
        versionText_ = help;
        explanationText_ = kFoundExplanation;
        statusToolTip_ = kFoundToolTip;
        progressText_.clear();
        lameFound_ = true;
        NotificationCenter::defaultCenter().post(
            VLLameFoundNewNotification,
            QVariantMap {{QStringLiteral("lamepath"), pathText_}, {QStringLiteral("lameversion"), help}});
    } else {
        // Used all the same, but the MP3 job is not told about it and keeps the path it had.
        versionText_ = kNotLameVersion;
        explanationText_ = kNotLameExplanation;
        statusToolTip_ = kNotLameToolTip;
        progressText_.clear();
        lameFound_ = true;
    }
    emit stateChanged();
    NotificationCenter::defaultCenter().post(VLLameFoundNotification, lameFound_);
}

void LameWrapper::didLaunch()
{
    lookForLame();
    NotificationCenter::defaultCenter().post(VLLameFoundNotification, lameFound_);
    if (!lameFound_ && Defaults::standard().integerForKey(kDontShowKey) == 0)
        emit downloadOfferRequested();
}

void LameWrapper::chooseLame(const QString& chosenPath)
{
    Defaults::standard().setObject(kLamePathKey, chosenPath);
    Defaults::standard().synchronize();
    setPathText(chosenPath);
    showLameVersion();
}

void LameWrapper::setDontShowDownload(int value)
{
    Defaults::standard().setInteger(kDontShowKey, value);
    Defaults::standard().synchronize();
}

bool LameWrapper::isDownloading() const
{
    return download_ && download_->state() != Job::State::Finished;
}

void LameWrapper::downloadLame()
{
    if (isDownloading())
        return;
    progressText_ = kDownloadingText;
    emit stateChanged();
    const QUrl url = downloadUrl();
    const QString system = systemLamePath_;
    const QString userFolder = AppPaths::dataDir();
    download_ = Job::create(QStringLiteral("Downloading LAME"), [url, system, userFolder](Job& job) {
        QByteArray archive;
        QString error;
        if (!LameDownload::fetch(url, job, &archive, &error))
            return job.isCancelled() ? JobResult::cancelled() : JobResult::failed(error);
        if (LameDownload::install(archive, QFileInfo(system).absolutePath(), job, &error))
            return JobResult::succeeded({system});
        // No write access to the system-wide folder: the per-user copy.
        if (!job.isCancelled() && !QFileInfo::exists(system)) {
            QDir().mkpath(userFolder);
            if (LameDownload::install(archive, userFolder, job, &error))
                return JobResult::succeeded({userFolder + QStringLiteral("/lame")});
        }
        return job.isCancelled() ? JobResult::cancelled() : JobResult::failed(error);
    });
    download_->start();
}

void LameWrapper::finishDownload()
{
    // Whatever happened, the search decides what is used now.
    Defaults::standard().setObject(kLamePathKey, systemLamePath_);
    Defaults::standard().synchronize();
    progressText_.clear();
    setPathText(systemLamePath_);
    lookForLame();
    emit downloadFinished();
}

namespace LameDownload {

bool fetch(const QUrl& url, Job& job, QByteArray* archive, QString* error)
{
    job.setProgress(-1, kDownloadingText);
    QNetworkAccessManager network;  // owns the reply
    network.setRedirectPolicy(QNetworkRequest::NoLessSafeRedirectPolicy);
    QNetworkRequest request(url);
    request.setTransferTimeout(kTransferTimeoutMs);
    QNetworkReply* reply = network.get(request);
    QObject::connect(reply, &QNetworkReply::downloadProgress, reply, [&job](qint64 received, qint64 total) {
        job.setProgress(total > 0 ? 100.0 * double(received) / double(total) : -1, kDownloadingText);
    });
    QEventLoop loop;
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    {
        // The reply belongs to this thread: the abort is queued to it.
        const auto hook =
            job.onCancel([reply] { QMetaObject::invokeMethod(reply, &QNetworkReply::abort, Qt::QueuedConnection); });
        if (!reply->isFinished())
            loop.exec();
    }
    if (job.isCancelled())
        return false;
    if (reply->error() != QNetworkReply::NoError) {
        *error = QStringLiteral("The LAME archive could not be downloaded from %1: %2")
                     .arg(url.toDisplayString(), reply->errorString());
        return false;
    }
    *archive = reply->readAll();
    if (archive->isEmpty()) {
        *error = QStringLiteral("The LAME archive at %1 is empty.").arg(url.toDisplayString());
        return false;
    }
    return true;
}

bool install(const QByteArray& archive, const QString& folder, Job& job, QString* error)
{
    job.setProgress(-1, kUnpackingText);
    const QString target = folder + QStringLiteral("/lame");
    SafeFile::WorkFolder work(target);
    if (!work.isValid()) {
        *error = work.errorString();
        return false;
    }
    const QString zip = work.folder() + QStringLiteral("/lame.zip");
    const QString unpacked = work.folder() + QStringLiteral("/unpacked");
    if (!SafeFile::writeFile(zip, archive, error) || !QDir().mkdir(unpacked))
        return false;
    const QString unzip = ResourceLocator::pathForTool(QStringLiteral("unzip"));
    if (unzip.isEmpty()) {
        *error = QStringLiteral("unzip is not installed, so the LAME archive cannot be unpacked.");
        return false;
    }
    ChildProcess child(unzip, {QStringLiteral("-o"), zip, QStringLiteral("-d"), unpacked});
    child.setTimeLimit(kUnzipTimeLimitMs);
    int code = -1;
    {
        const auto hook = job.onCancel([&child] { child.terminate(); });
        if (child.start())
            code = child.waitForExit();
    }
    if (job.isCancelled())
        return false;
    const QString made = unpacked + QStringLiteral("/lame");
    struct stat info {};
    // A link in the archive names some other file: only a plain file is taken.
    if (code != 0 || ::lstat(QFile::encodeName(made).constData(), &info) != 0 || !S_ISREG(info.st_mode)) {
        *error = code != 0 ? QStringLiteral("The LAME archive could not be unpacked (unzip ended with %1).").arg(code)
                           : QStringLiteral("The LAME archive holds no lame program.");
        return false;
    }
    if (!work.place(made)) {
        *error = work.errorString();
        return false;
    }
    // The tool runs as the archive made it: executable where it was, within the umask.
    ::chmod(QFile::encodeName(target).constData(), info.st_mode & 0777 & ~FileNames::currentUmask());
    return true;
}

}  // namespace LameDownload
