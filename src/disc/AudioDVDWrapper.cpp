#include "disc/AudioDVDWrapper.h"

#include "core/MyController.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "disc/AudioCDWrapper.h"
#include "disc/BurnCache.h"
#include "disc/BurnDrives.h"
#include "encode/ExportJobs.h"
#include "platform/AppPaths.h"
#include "platform/ChildProcess.h"
#include "platform/ResourceLocator.h"
#include "platform/SafeFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>

#include <climits>

#include <libburn/libburn.h>

namespace {

constexpr char kAuthoringTool[] = "dvda-author";
constexpr char kImageTool[] = "mkisofs-dvd-audio";
constexpr qint64 kSectorBytes = 2048;
// Tools get two minutes plus a second for every 2 MB they have to read.
constexpr qint64 kBytesPerSecond = 2 * 1000 * 1000;

QString extensionOf(const QString& path)
{
    return QFileInfo(path).suffix().toLower();
}

int timeLimitFor(qint64 bytes)
{
    return int(std::min<qint64>(INT_MAX, 120000 + bytes / kBytesPerSecond * 1000));
}

qint64 totalSize(const QStringList& files)
{
    qint64 bytes = 0;
    for (const QString& file : files)
        bytes += std::max<qint64>(QFileInfo(file).size(), 0);
    return bytes;
}

// What a tool that did not end well said, in one text.
QString toolFailure(const QString& name, const ChildProcess& child, int code)
{
    if (child.timedOut())
        return QStringLiteral("%1 took too long and was stopped.").arg(name);
    QStringList lines = QString::fromLocal8Bit(child.errors()).split('\n', Qt::SkipEmptyParts);
    for (QString& line : lines)
        line = line.trimmed();
    lines.removeAll(QString());
    if (lines.isEmpty())
        return code < 0 ? QStringLiteral("%1 ended abnormally.").arg(name)
                        : QStringLiteral("%1 failed (exit status %2).").arg(name).arg(code);
    return lines.mid(0, 5).join(QStringLiteral(" "));
}

// Runs one of the DVD tools to its end; its "Progress: N%" lines move the job's bar.
int runTool(Job& job, ChildProcess& child, const QString& status)
{
    QByteArray pending;
    child.setOutputHandler([&](const QByteArray& piece) {
        pending += piece;
        for (qsizetype end = pending.indexOf('\n'); end >= 0; end = pending.indexOf('\n')) {
            if (const std::optional<int> percent = AudioDVDWrapper::progressInLine(pending.left(end)))
                job.setProgress(*percent, status);
            pending.remove(0, end + 1);
        }
        // A line that never ends is no progress line.
        if (pending.size() > 4096)
            pending.clear();
    });
    child.setCaptureErrors(true);
    job.setProgress(0, status);
    const int code = runCancellable(job, child);
    if (code == 0)
        job.setProgress(100, status);
    return code;
}

QString missingTool(const QString& name)
{
    return QStringLiteral("%1 cannot be found, so DVD-Audio discs cannot be made; reinstall Velmora.").arg(name);
}

// Authors files into authoring/AUDIO_TS; every file the tool says it wrote
// must be there with the size it gave.
QString authorDVD(Job& job, const QStringList& files, int sector, const QString& authoring, const QString& pass,
                  QMap<QString, qint64>* authored)
{
    const QString tool = ResourceLocator::ownToolPath(QLatin1String(kAuthoringTool));
    if (tool.isEmpty())
        return missingTool(QLatin1String(kAuthoringTool));
    QStringList arguments;
    if (sector != 0)
        arguments << QStringLiteral("-pp") << QString::number(sector);
    arguments << QStringLiteral("-o") << authoring << QStringLiteral("-g") << files;
    ChildProcess child(tool, arguments);
    child.setTimeLimit(timeLimitFor(totalSize(files)));
    const int code = runTool(job, child, QStringLiteral("Authoring DVD-Audio (%1)").arg(pass));
    if (job.isCancelled())
        return {};
    if (code != 0)
        return toolFailure(QLatin1String(kAuthoringTool), child, code);

    static const QRegularExpression wrote(QStringLiteral("^Wrote (AUDIO_TS/[^/\\s]+) (\\d+)$"));
    authored->clear();
    for (const QByteArray& line : child.output().split('\n')) {
        const QRegularExpressionMatch match = wrote.match(QString::fromLocal8Bit(line).trimmed());
        if (!match.hasMatch())
            continue;
        const QString file = match.captured(1);
        const qint64 bytes = match.captured(2).toLongLong();
        if (QFileInfo(authoring + '/' + file).size() != bytes)
            return QStringLiteral("%1 said it wrote %2 bytes of %3, but the file does not hold them.")
                .arg(QLatin1String(kAuthoringTool))
                .arg(bytes)
                .arg(file);
        authored->insert(file, bytes);
    }
    for (const char* needed : {"AUDIO_TS/AUDIO_TS.IFO", "AUDIO_TS/AUDIO_PP.IFO", "AUDIO_TS/ATS_01_0.IFO"}) {
        if (!authored->contains(QLatin1String(needed)))
            return QStringLiteral("%1 did not write %2.").arg(QLatin1String(kAuthoringTool), QLatin1String(needed));
    }
    return {};
}

// Builds the image of the authoring folder; it must hold the sectors the tool announced.
QString makeImage(Job& job, const QString& authoring, const QString& image, qint64 authoredBytes, const QString& pass)
{
    const QString tool = ResourceLocator::ownToolPath(QLatin1String(kImageTool));
    if (tool.isEmpty())
        return missingTool(QLatin1String(kImageTool));
    ChildProcess child(tool, {QStringLiteral("-V"), QStringLiteral("DVD-Audio"), QStringLiteral("-o"), image,
                              QStringLiteral("-dvd-audio"), authoring});
    child.setTimeLimit(timeLimitFor(authoredBytes));
    const int code = runTool(job, child, QStringLiteral("Building the disc image (%1)").arg(pass));
    if (job.isCancelled())
        return {};
    if (code != 0)
        return toolFailure(QLatin1String(kImageTool), child, code);
    static const QRegularExpression wrote(QStringLiteral("^Wrote .* (\\d+) sectors$"));
    const QRegularExpressionMatch match =
        wrote.match(QString::fromLocal8Bit(child.output()).trimmed().split('\n').last());
    const qint64 size = QFileInfo(image).size();
    if (size < authoredBytes || (match.hasMatch() && size != match.captured(1).toLongLong() * kSectorBytes))
        return QStringLiteral("%1 did not make a whole image.").arg(QLatin1String(kImageTool));
    return {};
}

// The written copy holds the image's bytes (libburn may pad the end with zeros).
QString compareWithImage(Job& job, const QString& image, const QString& written)
{
    QFile original(image);
    QFile copy(written);
    if (!original.open(QIODevice::ReadOnly) || !copy.open(QIODevice::ReadOnly))
        return QStringLiteral("The written image cannot be read back.");
    if (copy.size() < original.size())
        return QStringLiteral("The written image is shorter than the image that was built.");
    const qint64 total = std::max<qint64>(original.size(), 1);
    qint64 done = 0;
    while (!original.atEnd()) {
        if (job.isCancelled())
            return QStringLiteral("cancelled");
        const QByteArray expected = original.read(1 << 20);
        if (expected.isEmpty() || copy.read(expected.size()) != expected)
            return QStringLiteral("The written image differs from the image that was built.");
        done += expected.size();
        job.setProgress(100.0 * double(done) / double(total), QStringLiteral("Checking the image"));
    }
    while (!copy.atEnd()) {
        const QByteArray tail = copy.read(1 << 20);
        if (tail.count('\0') != tail.size())
            return QStringLiteral("The written image has more in it than the image that was built.");
    }
    return {};
}

}  // namespace

AudioDVDWrapper::AudioDVDWrapper(BurnDrives* drives, QObject* parent) : QObject(parent), drives_(drives)
{
    BurnCache::clearStale();
    NotificationCenter::defaultCenter().addObserver(
        this, VLBurnAudioDVDWithArrayNotification,
        [this](const Notification& note) { vlBurnAudioDVDWithArrayNotification(note.object); });
}

AudioDVDWrapper::~AudioDVDWrapper()
{
    NotificationCenter::defaultCenter().removeObserver(this);
    burns_.stopAll();
}

void AudioDVDWrapper::vlBurnAudioDVDWithArrayNotification(const QVariant& files)
{
    pending_ = AudioCDWrapper::withoutProtected(files.toStringList());
    if (pending_.isEmpty())
        return;
    // A blank disc put in for this burn is not an audio CD to show.
    if (shell_)
        shell_->setMIgnoreInsert(true);
    emit setupRequested(QStringLiteral("Burn DVD-Audio"));
}

void AudioDVDWrapper::handleSetupSheet(bool confirmed, const BurnSetup& setup)
{
    const QStringList files = std::exchange(pending_, {});
    if (shell_)
        shell_->setMIgnoreInsert(false);
    if (confirmed)
        burnAudioDVD(files, setup);
}

std::shared_ptr<Job> AudioDVDWrapper::burnAudioDVD(const QStringList& files, const BurnSetup& setup)
{
    QStringList burnable;
    for (const QString& file : AudioCDWrapper::withoutProtected(files))
        burnable << QFileInfo(file).absoluteFilePath();
    if (burnable.isEmpty())
        return nullptr;
    const std::shared_ptr<Job> job =
        burns_.start(QStringLiteral("Burning DVD-Audio"), [this, burnable, setup](Job& self) {
            const JobResult result = burn(self, burnable, setup);
            emit burnEnded(QStringLiteral("%1: %2").arg(self.title(), result.ok() ? self.status() : result.error));
            return result;
        });
    emit burnStarted(job->id());
    return job;
}

bool AudioDVDWrapper::needToBurnFromWAV(const QString& path)
{
    static const QSet<QString> always = {"mid", "midi", "kar", "wma"};
    const QString extension = extensionOf(path);
    // The authoring tool reads WAV files only, so any other kind is converted too.
    return always.contains(extension) || extension != QLatin1String("wav") || !AudioCDWrapper::quicktimeCanOpen(path);
}

QList<AudioDVDWrapper::Track> AudioDVDWrapper::receivedTracks(const QStringList& files)
{
    QList<Track> tracks;
    for (const QString& file : AudioCDWrapper::withoutProtected(files))
        tracks.append({file, needToBurnFromWAV(file)});
    return tracks;
}

QStringList AudioDVDWrapper::filesWithinLimit(const QStringList& files, QStringList* leftOut)
{
    QStringList passed;
    qsizetype length = 0;
    bool full = false;
    for (const QString& file : files) {
        // Each name goes in double quotes with a blank after it.
        const qsizetype quoted = file.toUtf8().size() + 3;
        full = full || length >= kFileListLimit || length + quoted >= kFileListBuffer;
        if (full) {
            leftOut->append(file);
            continue;
        }
        passed << file;
        length += quoted;
    }
    return passed;
}

std::optional<int> AudioDVDWrapper::progressInLine(const QByteArray& line)
{
    static const QRegularExpression progress(QStringLiteral("^Progress:\\s*(\\d{1,3})%$"));
    const QRegularExpressionMatch match = progress.match(QString::fromLatin1(line.trimmed()));
    if (!match.hasMatch())
        return std::nullopt;
    const int percent = match.captured(1).toInt();
    return percent <= 100 ? std::optional<int>(percent) : std::nullopt;
}

int AudioDVDWrapper::audioPPInfoSectorInListing(const QByteArray& listing)
{
    const qsizetype name = listing.toUpper().indexOf("AUDIO_PP.IFO");
    if (name < 0)
        return 0;
    const qsizetype bracket = listing.lastIndexOf('[', name);
    if (bracket < 0)
        return 0;
    qsizetype at = bracket + 1;
    while (at < name && listing.at(at) == ' ')
        ++at;
    qint64 sector = 0;
    const qsizetype first = at;
    for (; at < name && listing.at(at) >= '0' && listing.at(at) <= '9'; ++at) {
        sector = sector * 10 + (listing.at(at) - '0');
        if (sector > INT_MAX)
            return 0;
    }
    return at > first ? int(sector) : 0;
}

int AudioDVDWrapper::getAudioPPInfoSector(const QString& image)
{
    const QString isoinfo = ResourceLocator::pathForTool(QStringLiteral("isoinfo"));
    if (isoinfo.isEmpty() || !QFileInfo(image).isFile())
        return 0;
    ChildProcess child(isoinfo, {QStringLiteral("-i"), image, QStringLiteral("-l")});
    child.setCaptureOutput(true);
    child.setTimeLimit(60000);
    if (!child.start())
        return 0;
    child.waitForExit();
    return child.timedOut() ? 0 : audioPPInfoSectorInListing(child.output());
}

AudioDVDWrapper::ImageBuild AudioDVDWrapper::buildDVDImage(Job& job, QVariantMap request, const QString& workFolder)
{
    ImageBuild build;
    const QString authoring = workFolder + QStringLiteral("/DVD");
    const QString image = workFolder + QStringLiteral("/DVD.img");
    for (;;) {
        const QStringList files = request.value(QStringLiteral("patharray")).toStringList();
        build.ppInfoSector = request.value(QStringLiteral("ppinfosector")).toInt();
        ++build.passes;
        const QString pass = build.ppInfoSector == 0 ? QStringLiteral("first pass") : QStringLiteral("second pass");
        QDir(authoring).removeRecursively();
        QString error = authorDVD(job, files, build.ppInfoSector, authoring, pass, &build.authored);
        if (error.isEmpty() && !job.isCancelled()) {
            qint64 authoredBytes = 0;
            for (const qint64 bytes : std::as_const(build.authored))
                authoredBytes += bytes;
            error = makeImage(job, authoring, image, authoredBytes, pass);
        }
        QDir(authoring).removeRecursively();
        if (job.isCancelled() || !error.isEmpty()) {
            QFile::remove(image);
            build.image.clear();
            build.error = error;
            return build;
        }
        build.image = image;
        if (build.ppInfoSector != 0)
            return build;
        const int sector = getAudioPPInfoSector(image);
        if (sector == 0) {
            job.addMessage(QStringLiteral("AUDIO_PP.IFO was not found in the image, so it was not authored a "
                                          "second time with its place on the disc."));
            return build;
        }
        request.insert(QStringLiteral("ppinfosector"), sector);
    }
}

JobResult AudioDVDWrapper::burn(Job& job, const QStringList& files, const BurnSetup& setup)
{
    if (!drives_)
        return JobResult::failed(QStringLiteral("No burner can be used on this machine."));
    // The converted copies, the authoring folder and the image live as long as the burn.
    const std::unique_ptr<QTemporaryDir> cache = BurnCache::make(QStringLiteral("WAV"));
    if (!cache)
        return JobResult::failed(
            QStringLiteral("The cache folder for converted files cannot be made in %1.").arg(AppPaths::cacheDir()));
    job.setProgress(-1, QStringLiteral("Looking at the files"));
    QSet<QString> needWAV;
    for (const Track& track : receivedTracks(files)) {
        if (track.needtomakewav)
            needWAV.insert(track.path);
    }
    QStringList leftOut;
    QStringList originals;
    if (!needWAV.isEmpty())
        job.setProgress(-1, QStringLiteral("Caching Files: This can take some time. Please wait."));
    const QStringList tracks = AudioCDWrapper::replaceUnsupportedWithWAV(
        job, files, [&needWAV](const QString& file) { return needWAV.contains(file); }, cache->path(), &leftOut,
        &originals);
    for (const QString& reason : std::as_const(leftOut))
        job.addMessage(QStringLiteral("Left out %1").arg(reason));
    if (job.isCancelled())
        return JobResult::cancelled();
    if (tracks.isEmpty())
        return JobResult::failed(QStringLiteral("None of the files can be burned."));

    QStringList pastLimit;
    const QStringList passed = filesWithinLimit(tracks, &pastLimit);
    for (const QString& file : std::as_const(pastLimit))
        job.addMessage(QStringLiteral("Left out %1: the list of files for the authoring tool is full (%2 characters)")
                           .arg(QFileInfo(originals.value(tracks.indexOf(file), file)).fileName())
                           .arg(kFileListLimit));

    const ImageBuild build =
        buildDVDImage(job, {{QStringLiteral("patharray"), passed}, {QStringLiteral("ppinfosector"), 0}}, cache->path());
    return buidDVDImageDidEnd(job, build, setup);
}

JobResult AudioDVDWrapper::buidDVDImageDidEnd(Job& job, const ImageBuild& build, const BurnSetup& setup)
{
    if (job.isCancelled())
        return JobResult::cancelled();
    if (build.image.isEmpty())
        return JobResult::failed(build.error.isEmpty() ? QStringLiteral("The DVD-Audio image was not made.")
                                                       : build.error);
    const QString error = burnLayout(job, build.image, setup);
    if (job.isCancelled())
        return JobResult::cancelled();
    if (!error.isEmpty())
        return JobResult::failed(error);
    if (setup.toImage()) {
        job.setProgress(100, QStringLiteral("Written and checked"));
        return JobResult::succeeded({setup.image});
    }
    job.setProgress(100, setup.simulate ? QStringLiteral("Simulated") : QStringLiteral("Burned"));
    return JobResult::succeeded();
}

QString AudioDVDWrapper::burnLayout(Job& job, const QString& image, const BurnSetup& setup)
{
    // An image file is written by libburn's drive on a file beside it, checked
    // against the image built, and only then put in place.
    std::unique_ptr<SafeFile::WorkFolder> work;
    BurnSetup target = setup;
    if (setup.toImage()) {
        work = std::make_unique<SafeFile::WorkFolder>(setup.image);
        if (!work->isValid())
            return work->errorString();
        target.drive = QStringLiteral("stdio:") + work->fileFor();
        target.simulate = false;
    }
    burn::burn_source* source = burn::burn_file_source_new(QFile::encodeName(image).constData(), nullptr);
    if (!source)
        return QStringLiteral("The disc image %1 cannot be read.").arg(image);
    const QString error = drives_->writeData(job, reinterpret_cast<::burn_source*>(source), target);
    burn::burn_source_free(source);
    if (!error.isEmpty() || !work)
        return error;
    if (!work->place(work->fileFor(), [&](const QString& written) { return compareWithImage(job, image, written); }))
        return job.isCancelled() ? QString() : work->errorString();
    return {};
}
