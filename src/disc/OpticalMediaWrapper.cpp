#include "disc/OpticalMediaWrapper.h"

#include "core/MyController.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "core/Preferences.h"
#include "disc/BurnCache.h"
#include "disc/BurnDrives.h"
#include "encode/ExportJobs.h"
#include "platform/AppPaths.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QTemporaryDir>

#include <sys/stat.h>

OpticalMediaWrapper::OpticalMediaWrapper(BurnDrives* drives, QObject* parent) : QObject(parent), drives_(drives)
{
    BurnCache::clearStale();
    NotificationCenter::defaultCenter().addObserver(this, VLBurnOpticalMediaWithDictionaryNotification,
                                                    [this](const Notification& note) {
                                                        vlBurnOpticalMediaWithDictionaryNotification(note.object.toMap());
                                                    });
}

OpticalMediaWrapper::~OpticalMediaWrapper()
{
    NotificationCenter::defaultCenter().removeObserver(this);
    burns_.stopAll();
}

qint64 OpticalMediaWrapper::computeSize(const QStringList& files)
{
    qint64 bytes = 0;
    for (const QString& file : files) {
        struct stat status {};
        if (::stat(QFile::encodeName(file).constData(), &status) == 0)
            bytes += status.st_size;
    }
    return bytes / 1000000;
}

OpticalMediaWrapper::SizeWarning OpticalMediaWrapper::sizeWarning(qint64 megabytes)
{
    const Preferences& preferences = Preferences::sharedInstance();
    if (preferences.prefsIntForKey(PrefKeys::WarnSpaceCheck)
        && megabytes < preferences.prefsIntForKey(PrefKeys::WarnSpaceCombo))
        return SizeWarning::NotEnough;
    if (preferences.prefsIntForKey(PrefKeys::WarnMoreCheck)
        && megabytes > preferences.prefsIntForKey(PrefKeys::WarnMoreCombo))
        return SizeWarning::TooMuch;
    return SizeWarning::None;
}

QString OpticalMediaWrapper::warningTitle(SizeWarning warning)
{
    return warning == SizeWarning::NotEnough ? QStringLiteral("Not enough audio to fill a CD/DVD")
                                             : QStringLiteral("Too much audio for a CD/DVD");
}

DataDiscOptions OpticalMediaWrapper::optionsFromPreferences()
{
    const Preferences& preferences = Preferences::sharedInstance();
    DataDiscOptions options;
    options.preserveOrder = preferences.prefsIntForKey(PrefKeys::PreserveOrder) != 0;
    options.stripID3v2 = preferences.prefsIntForKey(PrefKeys::StripID3v2) != 0;
    options.appendID3v1 = preferences.prefsIntForKey(PrefKeys::AppendID3v1) != 0;
    options.joliet = preferences.prefsIntForKey(PrefKeys::IncludeJoliet) != 0;
    return options;
}

void OpticalMediaWrapper::vlBurnOpticalMediaWithDictionaryNotification(const QVariantMap& request)
{
    const QStringList files = request.value("selectedfiles").toStringList();
    if (files.isEmpty())
        return;
    pending_ = request;
    const qint64 megabytes = computeSize(files);
    const SizeWarning warning = sizeWarning(megabytes);
    if (warning == SizeWarning::None) {
        emit setupRequested(QStringLiteral("Burn Data CD/DVD"));
        return;
    }
    emit sizeWarningRequested(warningTitle(warning),
                              QStringLiteral("The files come to %1 MB. Burn them anyway?").arg(megabytes));
}

void OpticalMediaWrapper::handleNotFullSheet(bool yes)
{
    if (yes)
        emit setupRequested(QStringLiteral("Burn Data CD/DVD"));
    else
        pending_.clear();
}

void OpticalMediaWrapper::handleSetupSheet(bool confirmed, const BurnSetup& setup)
{
    const QVariantMap request = std::exchange(pending_, {});
    if (shell_)
        shell_->setMIgnoreInsert(false);
    if (confirmed)
        burnMP3CD(request, setup, optionsFromPreferences());
}

std::shared_ptr<Job> OpticalMediaWrapper::burnMP3CD(const QVariantMap& request, const BurnSetup& setup,
                                                    const DataDiscOptions& options)
{
    if (request.value("selectedfiles").toStringList().isEmpty())
        return nullptr;
    const std::shared_ptr<Job> job =
        burns_.start(QStringLiteral("Burning Data Disc"), [this, request, setup, options](Job& self) {
            const JobResult result = burn(self, request, setup, options);
            emit burnEnded(QStringLiteral("%1: %2").arg(self.title(), result.ok() ? self.status() : result.error));
            return result;
        });
    emit burnStarted(job->id());
    return job;
}

QStringList OpticalMediaWrapper::replaceUnsupportedWithMP3(Job& job, const QStringList& files,
                                                           const QString& cacheFolder, QStringList* leftOut)
{
    QStringList result;
    ExportJobWatch watch;
    for (const QString& file : files) {
        if (job.isCancelled()) {
            for (const char* cancel :
                 {VLMP3ExportCancelNotification, VLAACExportCancelNotification, VLOGGExportCancelNotification})
                NotificationCenter::defaultCenter().post(cancel);
            break;
        }
        if (QFileInfo(file).suffix().toLower() == QLatin1String("mp3")) {
            result << file;
            continue;
        }
        job.setStatus(QStringLiteral("Caching %1").arg(QFileInfo(file).fileName()));
        // The copy keeps the file's name on the disc, with the MP3 extension.
        const QString base = QFileInfo(file).completeBaseName();
        const QString folder = AppPaths::uniqueIntermediate(cacheFolder, QStringLiteral("MP3"), QStringLiteral("d"));
        QDir().mkpath(folder);
        const QString mp3 = folder + '/' + base + QStringLiteral(".MP3");
        NotificationCenter::defaultCenter().post(
            VLMP3ExportNotification,
            QVariantMap{{"sourcepath", file}, {"destinationpath", mp3}, {"wavpath", folder + '/' + base + ".WAV"}});
        if (QFileInfo(mp3).size() > 0) {
            result << mp3;
            continue;
        }
        const std::shared_ptr<Job> exported = watch.jobFor(mp3);
        leftOut->append(QStringLiteral("%1: %2").arg(
            QFileInfo(file).fileName(), exported && !exported->result().error.isEmpty()
                                            ? exported->result().error
                                            : QStringLiteral("it cannot be converted to MP3")));
        result << QString();  // keeps the folders in step with the files
    }
    return result;
}

QString OpticalMediaWrapper::m3uPathFor(const QString& playlistPath)
{
    const QFileInfo playlist(playlistPath);
    const QString grandparent = QFileInfo(playlist.absolutePath()).absolutePath();
    return grandparent + QStringLiteral("/M3U/") + playlist.completeBaseName() + QStringLiteral(".m3u");
}

std::unique_ptr<DataDiscFolder> OpticalMediaWrapper::burnMP3CD_2(const QVariantMap& request,
                                                                 const DataDiscOptions& options, QStringList* leftOut)
{
    auto root = std::make_unique<DataDiscFolder>();
    root->name = request.value("cdtitle").toString();
    const QStringList files = request.value("selectedfiles").toStringList();
    const QStringList folders = request.value("destinationpaths").toStringList();
    QHash<QString, int> counters;
    for (qsizetype index = 0; index < files.size(); ++index) {
        const QString& file = files.at(index);
        if (file.isEmpty())
            continue;
        if (!QFileInfo(file).isFile()) {
            leftOut->append(QStringLiteral("%1: it is no longer there").arg(QFileInfo(file).fileName()));
            continue;
        }
        const QString path = folders.value(index);
        const int place = counters.value(path, 0);
        counters.insert(path, place + 1);
        auto producer = std::make_unique<QuenlorFileProducer>(file);
        producer->setPreferences(options.stripID3v2, options.appendID3v1);
        producer->setFileIndex(options.preserveOrder ? QString::asprintf("%03d", place) : QString());
        DataDiscFolder* folder = createVirtualFoldersOnRoot(
            root.get(), path.split('/', Qt::SkipEmptyParts), options.preserveOrder);
        folder->files.push_back(std::move(producer));
    }
    const QStringList playlists = request.value("m3uplaylists").toStringList();
    for (qsizetype index = 0; index < playlists.size(); ++index) {
        const QString m3u = m3uPathFor(playlists.at(index));
        QFile file(m3u);
        if (!file.open(QIODevice::ReadOnly)) {
            leftOut->append(QStringLiteral("%1: there is no M3U file for it").arg(m3u));
            continue;
        }
        const QString prefix = options.preserveOrder ? QString::asprintf("%03d", int(index)) : QString();
        root->memoryFiles.push_back({prefix + QFileInfo(m3u).fileName(), file.readAll()});
    }
    return root;
}

JobResult OpticalMediaWrapper::burn(Job& job, QVariantMap request, const BurnSetup& setup,
                                    const DataDiscOptions& options)
{
    if (!setup.toImage() && !drives_)
        return JobResult::failed(QStringLiteral("No burner can be used on this machine."));
    QStringList leftOut;
    std::unique_ptr<QTemporaryDir> cache;
    if (request.value("makemp3ifneeded").toBool()) {
        cache = BurnCache::make(QStringLiteral("MP3"));
        if (!cache)
            return JobResult::failed(QStringLiteral("The cache folder for converted files cannot be made in %1.")
                                         .arg(AppPaths::cacheDir()));
        job.setProgress(-1, QStringLiteral("Caching Files"));
        request.insert("selectedfiles", replaceUnsupportedWithMP3(job, request.value("selectedfiles").toStringList(),
                                                                  cache->path(), &leftOut));
        if (job.isCancelled())
            return JobResult::cancelled();
    }
    job.setProgress(-1, QStringLiteral("Laying out the disc"));
    std::unique_ptr<DataDiscFolder> root = burnMP3CD_2(request, options, &leftOut);
    DataDiscImage image;
    QString error;
    const bool built = image.build(*root, options.joliet, &leftOut, &error);
    for (const QString& reason : std::as_const(leftOut))
        job.addMessage(QStringLiteral("Left out %1").arg(reason));
    if (!built)
        return JobResult::failed(QStringLiteral("The disc cannot be laid out: %1").arg(error));
    if (setup.toImage()) {
        error = image.writeTo(job, setup.image);
    } else {
        burn_source* source = image.source(&error);
        if (source) {
            error = drives_->writeData(job, source, setup);
            DataDiscImage::freeSource(source);
        }
    }
    if (job.isCancelled())
        return JobResult::cancelled();
    if (!error.isEmpty())
        return JobResult::failed(error);
    job.setProgress(100, QStringLiteral("Burned"));
    return JobResult::succeeded(setup.toImage() ? QStringList{setup.image} : QStringList());
}
