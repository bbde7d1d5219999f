#include "disc/AudioCDWrapper.h"

#include "core/MyController.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "disc/AIFFTrackProducer.h"
#include "disc/BurnCache.h"
#include "disc/BurnDrives.h"
#include "disc/DecodedTrackProducer.h"
#include "encode/ExportJobs.h"
#include "platform/AppPaths.h"
#include "tags/MediaDuration.h"
#include "tags/TagFacade.h"

#include <QFileInfo>
#include <QSet>
#include <QTemporaryDir>

namespace {

QString extensionOf(const QString& path)
{
    return QFileInfo(path).suffix().toLower();
}

// The tag value every track shares (the disc's CD-Text), else empty.
QString shared(const QList<QVariantMap>& records, const char* key)
{
    QSet<QString> values;
    for (const QVariantMap& record : records)
        values.insert(record.value(QLatin1String(key)).toString());
    return values.size() == 1 ? *values.begin() : QString();
}

}  // namespace

AudioCDWrapper::AudioCDWrapper(BurnDrives* drives, QObject* parent) : QObject(parent), drives_(drives)
{
    BurnCache::clearStale();
    NotificationCenter::defaultCenter().addObserver(this, VLBurnAudioCDWithArrayNotification,
                                                    [this](const Notification& note) {
                                                        vlBurnAudioCDWithArrayNotification(note.object);
                                                    });
}

AudioCDWrapper::~AudioCDWrapper()
{
    NotificationCenter::defaultCenter().removeObserver(this);
    burns_.stopAll();
}

void AudioCDWrapper::vlBurnAudioCDWithArrayNotification(const QVariant& files)
{
    pending_ = withoutProtected(files.toStringList());
    if (pending_.isEmpty())
        return;
    // A blank disc put in for this burn is not an audio CD to show.
    if (shell_)
        shell_->setMIgnoreInsert(true);
    emit setupRequested(QStringLiteral("Burn Audio CD"));
}

void AudioCDWrapper::handleSetupSheet(bool confirmed, const BurnSetup& setup)
{
    const QStringList files = std::exchange(pending_, {});
    if (shell_)
        shell_->setMIgnoreInsert(false);
    if (confirmed)
        burnAudioCD(files, setup);
}

std::shared_ptr<Job> AudioCDWrapper::burnAudioCD(const QStringList& files, const BurnSetup& setup)
{
    const QStringList burnable = withoutProtected(files);
    if (burnable.isEmpty())
        return nullptr;
    const std::shared_ptr<Job> job =
        burns_.start(QStringLiteral("Burning Audio CD"), [this, burnable, setup](Job& self) {
            const JobResult result = burn(self, burnable, setup);
            emit burnEnded(QStringLiteral("%1: %2").arg(self.title(), result.ok() ? self.status() : result.error));
            return result;
        });
    emit burnStarted(job->id());
    return job;
}

QStringList AudioCDWrapper::withoutProtected(const QStringList& files)
{
    QStringList kept;
    for (const QString& file : files) {
        if (extensionOf(file) != QLatin1String("m4p"))
            kept << file;
    }
    return kept;
}

bool AudioCDWrapper::quicktimeCanOpen(const QString& path)
{
    return mediaDurationSeconds(path) >= 0;
}

QHash<QString, bool> AudioCDWrapper::quicktimeCanHandleTheseTracks(const QStringList& files)
{
    static const QSet<QString> never = {"mid", "midi", "kar", "wma"};
    QHash<QString, bool> answers;
    for (const QString& file : files) {
        const QString extension = extensionOf(file);
        if (!answers.contains(extension))
            answers.insert(extension, !never.contains(extension) && quicktimeCanOpen(file));
    }
    return answers;
}

QStringList AudioCDWrapper::replaceUnsupportedWithWAV(Job& job, const QStringList& files,
                                                      const std::function<bool(const QString& file)>& needsWAV,
                                                      const QString& cacheFolder, QStringList* leftOut,
                                                      QStringList* originals)
{
    QStringList result;
    ExportJobWatch watch;
    // The WAV stage runs as a job of its own; the burn's cancel reaches it
    // through the bus, and only while it converts for us.
    std::atomic<bool> converting {false};
    const Job::CancelHook hook = job.onCancel([&converting] {
        if (converting)
            NotificationCenter::defaultCenter().post(VLWAVExportCancelNotification);
    });
    for (const QString& file : files) {
        if (job.isCancelled())
            break;
        if (!needsWAV(file)) {
            result << file;
            originals->append(file);
            continue;
        }
        job.setStatus(QStringLiteral("Caching %1").arg(QFileInfo(file).fileName()));
        const QString wav = AppPaths::uniqueIntermediate(cacheFolder, QFileInfo(file).completeBaseName(),
                                                         QStringLiteral("WAV"));
        converting = true;
        NotificationCenter::defaultCenter().post(VLWAVExportNotification,
                                                 QVariantMap{{"sourcepath", file},
                                                             {"destinationpath", wav},
                                                             {"resamplerate", QStringLiteral("44100")}});
        converting = false;
        if (QFileInfo(wav).size() > 0) {
            result << wav;
            originals->append(file);
            continue;
        }
        const std::shared_ptr<Job> exported = watch.jobFor(wav);
        const QString why = exported && !exported->result().error.isEmpty() ? exported->result().error
                                                                             : QStringLiteral("it cannot be decoded");
        leftOut->append(QStringLiteral("%1: %2").arg(QFileInfo(file).fileName(), why));
    }
    return result;
}

std::unique_ptr<AudioTrackProducer> AudioCDWrapper::createTrack(const QString& path,
                                                                const std::atomic<bool>* cancelled)
{
    // WAV and AIFF files are read straight from their samples; anything else is decoded.
    static const QSet<QString> sampleFiles = {"wav", "aif", "aiff"};
    const QFileInfo info(path);
    if (info.fileName().toLower() == QLatin1String("wav") || sampleFiles.contains(info.suffix().toLower()))
        return std::make_unique<AIFFTrackProducer>(path);
    return std::make_unique<DecodedTrackProducer>(path, cancelled);
}

AudioDiscLayout AudioCDWrapper::createAudioDiscWithArray(Job& job, const QStringList& files,
                                                         const QStringList& tagSources, QStringList* leftOut)
{
    constexpr qint64 kBlocksPerMinute = 60 * 75;
    AudioDiscLayout layout;
    QList<QVariantMap> records;
    std::atomic<bool> cancelled {false};
    Job::CancelHook hook = job.onCancel([&cancelled] { cancelled = true; });
    qint64 total = 0;
    for (qsizetype index = 0; index < files.size() && !job.isCancelled(); ++index) {
        const QString& file = files.at(index);
        job.setStatus(QStringLiteral("Measuring %1").arg(QFileInfo(file).fileName()));
        std::unique_ptr<AudioTrackProducer> producer = createTrack(file, &cancelled);
        const QString source = tagSources.value(index, file);
        const QString name = QFileInfo(source).fileName();
        if (producer->length() <= 0) {
            if (!job.isCancelled())
                leftOut->append(QStringLiteral("%1: %2").arg(name, producer->problem()));
            continue;
        }
        // Tracks that would take the disc past 79 minutes are left out; later,
        // shorter ones may still fit.
        if ((total + producer->length()) / kBlocksPerMinute > kMaxDiscMinutes) {
            leftOut->append(QStringLiteral("%1: it does not fit on the disc within %2 minutes")
                                .arg(name)
                                .arg(kMaxDiscMinutes));
            continue;
        }
        total += producer->length();
        const QVariantMap record = getComments(source).value_or(QVariantMap());
        records << record;
        // A file without a title is named on the disc by its own name.
        const QString title = record.value("title", QFileInfo(source).completeBaseName()).toString();
        layout.tracks.push_back({std::move(producer), title, record.value("artist").toString()});
    }
    layout.title = shared(records, "album");
    layout.performer = shared(records, "artist");
    return layout;
}

JobResult AudioCDWrapper::burn(Job& job, const QStringList& files, const BurnSetup& setup)
{
    if (!setup.toImage() && !drives_)
        return JobResult::failed(QStringLiteral("No burner can be used on this machine."));
    // The converted copies live as long as the burn, in a folder of their own.
    const std::unique_ptr<QTemporaryDir> cache = BurnCache::make(QStringLiteral("WAV"));
    if (!cache)
        return JobResult::failed(QStringLiteral("The cache folder for converted files cannot be made in %1.")
                                     .arg(AppPaths::cacheDir()));
    QStringList leftOut;
    job.setProgress(-1, QStringLiteral("Caching Files"));
    // Tags are read from the files as chosen, not from their cached copies.
    QStringList tagSources;
    const QHash<QString, bool> burnable = quicktimeCanHandleTheseTracks(files);
    const QStringList cached = replaceUnsupportedWithWAV(
        job, files, [&burnable](const QString& file) { return !burnable.value(extensionOf(file)); }, cache->path(),
        &leftOut, &tagSources);
    if (job.isCancelled())
        return JobResult::cancelled();
    AudioDiscLayout layout = createAudioDiscWithArray(job, cached, tagSources, &leftOut);
    for (const QString& reason : std::as_const(leftOut))
        job.addMessage(QStringLiteral("Left out %1").arg(reason));
    if (job.isCancelled())
        return JobResult::cancelled();
    if (layout.tracks.empty())
        return JobResult::failed(leftOut.isEmpty() ? QStringLiteral("None of the files can be burned.")
                                                   : QStringLiteral("None of the files can be burned: %1")
                                                         .arg(leftOut.join(QStringLiteral("; "))));

    QList<QByteArray> digests;
    QString error;
    QString readBack;
    QStringList made;
    if (setup.toImage()) {
        error = AudioDiscImage::write(job, layout, setup.image, &digests);
        readBack = setup.image;
        made = QStringList{setup.image, AudioDiscImage::binPathFor(setup.image)};
    } else {
        error = drives_->writeAudio(job, layout, setup, &digests);
        readBack = drives_->readBackDevice(setup.drive);
    }
    if (job.isCancelled())
        return JobResult::cancelled();
    if (!error.isEmpty())
        return JobResult::failed(error);
    if (!setup.verify || setup.simulate || readBack.isEmpty() || digests.isEmpty()) {
        job.setProgress(100, QStringLiteral("Burned, not verified"));
        return JobResult::succeeded(made);
    }
    bool same = false;
    const QString verdict = AudioDiscImage::verify(job, readBack, digests, &same);
    if (job.isCancelled())
        return JobResult::cancelled();
    if (!same)
        return JobResult::failed(QStringLiteral("The disc was written, but %1.").arg(verdict), made);
    job.setProgress(100, verdict);
    return JobResult::succeeded(made);
}
