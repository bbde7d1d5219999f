#include "encode/LameWrapper.h"

#include "core/Defaults.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "platform/AppPaths.h"
#include "platform/ChildProcess.h"
#include "platform/ResourceLocator.h"

#include <QDir>
#include <QEventLoop>
#include <QFileInfo>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSaveFile>
#include <QtConcurrent/QtConcurrentRun>

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
} // namespace

LameWrapper::LameWrapper(QObject* parent)
    : QObject(parent), systemLamePath_(QStringLiteral("/usr/bin/lame"))
{
    NotificationCenter::defaultCenter().addObserver(this, VLDidLaunchNotification,
                                                    [this](const Notification&) { didLaunch(); });
    connect(&watcher_, &QFutureWatcher<void>::finished, this, &LameWrapper::finishDownload);
}

LameWrapper::~LameWrapper()
{
    NotificationCenter::defaultCenter().removeObserver(this);
    watcher_.waitForFinished();
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

void LameWrapper::downloadLame()
{
    if (watcher_.isRunning())
        return;
    progressText_ = QStringLiteral("Downloading LAME…");
    emit stateChanged();
    const QUrl url = downloadUrl();
    const QString system = systemLamePath_;
    const QString userFolder = AppPaths::dataDir();
    watcher_.setFuture(QtConcurrent::run([url, system, userFolder] {
        const QString systemFolder = QFileInfo(system).absolutePath();
        fetchAndUnpackLame(url, systemFolder + QStringLiteral("/lame.zip"), systemFolder);
        if (!QFileInfo::exists(system)) {
            // No write access to the system-wide folder: the per-user copy.
            QDir().mkpath(userFolder);
            fetchAndUnpackLame(url, userFolder + QStringLiteral("/lame.zip"), userFolder);
        }
    }));
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

bool fetchAndUnpackLame(const QUrl& url, const QString& zipPath, const QString& folder)
{
    QNetworkAccessManager network;
    network.setRedirectPolicy(QNetworkRequest::NoLessSafeRedirectPolicy);
    QNetworkReply* reply = network.get(QNetworkRequest(url));
    QEventLoop loop;
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    loop.exec();
    const bool fetched = reply->error() == QNetworkReply::NoError;
    const QByteArray archive = reply->readAll();
    reply->deleteLater();
    if (!fetched || archive.isEmpty())
        return false;
    QSaveFile file(zipPath);
    if (!file.open(QIODevice::WriteOnly) || file.write(archive) != archive.size() || !file.commit())
        return false;
    const QString unzip = ResourceLocator::pathForTool(QStringLiteral("unzip"));
    const int code = unzip.isEmpty() ? -1 : ChildProcess::execute(unzip, {QStringLiteral("-o"), zipPath,
                                                                          QStringLiteral("-d"), folder});
    QFile::remove(zipPath);
    return code == 0;
}
