#include "disc/LibburnDrives.h"

#include "core/Job.h"

#include <QCryptographicHash>

#include <cstdlib>
#include <cstring>
#include <thread>

#include <libburn/libburn.h>

namespace {

using namespace burn;
// libisofs declares the same C struct outside libburn's namespace.
using BurnSource = burn::burn_source;

constexpr int kCdSpeedKBps = 176;  // 1x CD audio
constexpr int kDvdSpeedKBps = 1385;

// Reads the messages libburn queued and puts them into plain words.
QStringList takeMessages()
{
    QStringList messages;
    char text[BURN_MSGS_MESSAGE_LEN];
    char severity[80];
    int code = 0;
    int osErrno = 0;
    while (burn_msgs_obtain(const_cast<char*>("SORRY"), &code, text, &osErrno, severity) > 0) {
        const QString line = LibburnDrives::plainWords(QString::fromLocal8Bit(text));
        if (!messages.contains(line))
            messages << line;
    }
    return messages;
}

QString failure(const QString& what, const QStringList& messages = takeMessages())
{
    return messages.isEmpty() ? what : what + QStringLiteral(": ") + messages.join(QStringLiteral(" "));
}

// Whether libburn's last write or erase on drive went well. When it refuses to
// start one (another operation still going on) its "wrote well" flag keeps its
// old value, so its complaints count as well; *problems gets them.
bool wentWell(burn_drive* drive, QStringList* problems)
{
    *problems = takeMessages();
    return burn_drive_wrote_well(drive) && problems->isEmpty();
}

// One drive held for as long as this lives.
class GrabbedDrive {
public:
    explicit GrabbedDrive(const QString& address)
    {
        QByteArray name = address.toLocal8Bit();
        if (burn_drive_scan_and_grab(&info_, name.data(), 1) > 0 && info_)
            drive_ = info_[0].drive;
    }
    ~GrabbedDrive()
    {
        if (drive_)
            burn_drive_release(drive_, eject_ ? 1 : 0);
        if (info_)
            burn_drive_info_free(info_);
    }
    GrabbedDrive(const GrabbedDrive&) = delete;
    GrabbedDrive& operator=(const GrabbedDrive&) = delete;

    burn_drive* drive() const { return drive_; }
    void ejectWhenReleased(bool eject) { eject_ = eject; }

private:
    burn_drive_info* info_ = nullptr;
    burn_drive* drive_ = nullptr;
    bool eject_ = false;
};

// Waits for the drive to finish, cancelling it when the job is cancelled;
// progress(p) gives the percent done.
void waitWhileBusy(Job& job, burn_drive* drive, const QString& status,
                   const std::function<double(const burn_progress&)>& progress)
{
    burn_progress p {};
    while (burn_drive_get_status(drive, &p) == BURN_DRIVE_SPAWNING)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    bool cancelled = false;
    while (burn_drive_get_status(drive, &p) != BURN_DRIVE_IDLE) {
        if (job.isCancelled() && !cancelled) {
            burn_drive_cancel(drive);
            cancelled = true;
        }
        job.setProgress(progress(p), status);
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    }
}

// An audio track as libburn pulls it: whole blocks from the producer, padded
// with silence to the track's length when the producer ends sooner.
struct AudioSource {
    AudioTrackProducer* producer = nullptr;
    qint64 size = 0;
    qint64 sent = 0;
    qint64 produced = 0;
    QCryptographicHash digest {QCryptographicHash::Sha1};
    std::atomic<qint64>* total = nullptr;
};

int audioRead(BurnSource* source, unsigned char* buffer, int size)
{
    auto* state = static_cast<AudioSource*>(source->data);
    const qint64 wanted = std::min<qint64>(size, state->size - state->sent);
    if (wanted <= 0)
        return 0;
    qint64 filled = 0;
    while (filled < wanted) {
        const qint64 got = state->producer->produceData(reinterpret_cast<char*>(buffer) + filled, wanted - filled);
        if (got <= 0)
            break;
        filled += got;
    }
    state->produced += filled;
    std::memset(buffer + filled, 0, size_t(wanted - filled));
    state->digest.addData(QByteArrayView(reinterpret_cast<const char*>(buffer), qsizetype(wanted)));
    state->sent += wanted;
    *state->total += wanted;
    return int(wanted);
}

off_t audioSize(BurnSource* source)
{
    return off_t(static_cast<AudioSource*>(source->data)->size);
}

int audioSetSize(BurnSource*, off_t)
{
    return 0;
}

void noFree(BurnSource*) {}

QByteArray cdText(const QString& text)
{
    // CD-Text is ISO-8859-1 by default; the payload ends in its terminator.
    QByteArray bytes = text.left(160).toLatin1();
    bytes.append('\0');
    return bytes;
}

}  // namespace

LibburnDrives::LibburnDrives() = default;

LibburnDrives::~LibburnDrives()
{
    // A scan the burn sheet started on a worker thread may still be running.
    std::lock_guard lock(mutex_);
    if (initialized_)
        burn_finish();
}

bool LibburnDrives::ready(QString* error)
{
    if (!initialized_) {
        if (!burn_initialize()) {
            *error = QStringLiteral("libburn cannot start, so discs cannot be burned.");
            return false;
        }
        // Messages are queued for the job, never printed.
        burn_msgs_set_severities(const_cast<char*>("SORRY"), const_cast<char*>("NEVER"),
                                 const_cast<char*>("libburn : "));
        initialized_ = true;
    }
    return true;
}

QString LibburnDrives::plainWords(const QString& message)
{
    static const std::pair<const char*, const char*> phrases[] = {
        {"not blank", "The disc is not blank: erase it or use a blank one."},
        {"busy", "The burner is in use by another program."},
        {"Permission denied", "You may not use the burner (permission denied; are you in the cdrom group?)."},
        {"No media", "There is no disc in the burner."},
        {"no media", "There is no disc in the burner."},
        {"Medium not present", "There is no disc in the burner."},
        {"too small", "The disc has too little room left for this."},
        {"exceeds", "The disc has too little room left for this."},
        {"No space left", "The folder of the image file is full."},
        {"not writeable", "The disc in the burner cannot be written."},
        {"Unsuitable media", "The disc in the burner cannot be written."},
        {"cannot open", "The burner cannot be opened."},
        {"Cannot open", "The burner cannot be opened."},
        {"buffer underrun", "The burner ran out of data while writing."},
    };
    for (const auto& [phrase, words] : phrases) {
        if (message.contains(QLatin1String(phrase)))
            return QString::fromLatin1(words);
    }
    return QStringLiteral("The burner says: %1").arg(message.trimmed());
}

QList<BurnDriveInfo> LibburnDrives::drives()
{
    std::lock_guard lock(mutex_);
    QString error;
    QList<BurnDriveInfo> found;
    if (!ready(&error))
        return found;
    burn_drive_info* infos = nullptr;
    unsigned int count = 0;
    // The scan runs in libburn's own thread: it must be asked until it says it
    // is done, or the unfinished scan blocks every later write and erase.
    int scanned = 0;
    while ((scanned = burn_drive_scan(&infos, &count)) == 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    if (scanned < 0)
        return found;
    for (unsigned int i = 0; i < count; ++i) {
        BurnDriveInfo drive;
        char address[BURN_DRIVE_ADR_LEN] = {};
        burn_drive_d_get_adr(infos[i].drive, address);
        drive.address = QString::fromLocal8Bit(address);
        drive.name = QStringLiteral("%1 %2").arg(QString::fromLatin1(infos[i].vendor).trimmed(),
                                                  QString::fromLatin1(infos[i].product).trimmed());
        drive.canWriteAudio = infos[i].write_cdr || infos[i].write_cdrw;
        if (burn_drive_grab(infos[i].drive, 1) > 0) {
            const burn_disc_status status = burn_disc_get_status(infos[i].drive);
            int profile = 0;
            char profileName[80] = {};
            burn_disc_get_profile(infos[i].drive, &profile, profileName);
            drive.blank = status == BURN_DISC_BLANK;
            drive.appendable = status == BURN_DISC_APPENDABLE;
            drive.erasable = burn_disc_erasable(infos[i].drive) != 0;
            drive.rewritable = drive.erasable || QString::fromLatin1(profileName).contains(QLatin1String("RW"));
            drive.capacity = status == BURN_DISC_BLANK || status == BURN_DISC_APPENDABLE
                                 ? qint64(burn_disc_available_space(infos[i].drive, nullptr))
                                 : 0;
            const QString kind = profile ? QString::fromLatin1(profileName) : QStringLiteral("disc");
            switch (status) {
            case BURN_DISC_EMPTY: drive.media = QStringLiteral("no disc"); break;
            case BURN_DISC_BLANK: drive.media = QStringLiteral("blank %1").arg(kind); break;
            case BURN_DISC_APPENDABLE: drive.media = QStringLiteral("appendable %1").arg(kind); break;
            case BURN_DISC_FULL: drive.media = QStringLiteral("full %1").arg(kind); break;
            default: drive.media = QStringLiteral("a disc that cannot be read"); break;
            }
            burn_drive_release(infos[i].drive, 0);
        } else {
            drive.media = QStringLiteral("in use by another program");
        }
        found << drive;
    }
    burn_drive_info_free(infos);
    takeMessages();
    return found;
}

QString LibburnDrives::writeAudio(Job& job, AudioDiscLayout& layout, const BurnSetup& setup,
                                  QList<QByteArray>* digests)
{
    std::lock_guard lock(mutex_);
    QString error;
    if (!ready(&error))
        return error;
    GrabbedDrive grabbed(setup.drive);
    burn_drive* drive = grabbed.drive();
    if (!drive)
        return failure(QStringLiteral("The burner %1 cannot be used").arg(setup.drive));
    if (burn_disc_get_status(drive) != BURN_DISC_BLANK)
        return QStringLiteral("The disc in %1 is not a blank CD.").arg(setup.drive);

    burn_disc* disc = burn_disc_create();
    burn_session* session = burn_session_create();
    burn_disc_add_session(disc, session, BURN_POS_END);
    burn_session_free(session);  // the disc holds it now
    for (const auto& [type, text] : {std::pair{0x80, layout.title}, std::pair{0x81, layout.performer}}) {
        if (text.isEmpty())
            continue;
        QByteArray payload = cdText(text);
        burn_session_set_cdtext(session, 0, type, nullptr, reinterpret_cast<unsigned char*>(payload.data()),
                                int(payload.size()), 0);
    }
    std::atomic<qint64> sent {0};
    std::vector<std::unique_ptr<AudioSource>> states;
    std::vector<BurnSource*> sources;
    qint64 total = 0;
    for (size_t index = 0; index < layout.tracks.size(); ++index) {
        AudioDiscLayout::Track& track = layout.tracks[index];
        if (!track.producer->prepareTrack(&error)) {
            for (size_t done = 0; done < index; ++done)
                layout.tracks[done].producer->cleanupTrackAfterBurn();
            burn_disc_free(disc);
            for (BurnSource* source : sources)
                burn_source_free(source);
            return QStringLiteral("Track %1 cannot be read: %2").arg(index + 1).arg(error);
        }
        auto state = std::make_unique<AudioSource>();
        state->producer = track.producer.get();
        state->size = track.producer->length() * AudioTrackProducer::kBlockBytes;
        state->total = &sent;
        total += state->size;
        auto* source = static_cast<BurnSource*>(std::calloc(1, sizeof(BurnSource)));
        source->refcount = 1;
        source->read = audioRead;
        source->get_size = audioSize;
        source->set_size = audioSetSize;
        source->free_data = noFree;
        source->data = state.get();
        burn_track* burnTrack = burn_track_create();
        burn_track_define_data(burnTrack, 0, 0, 1, BURN_AUDIO);
        burn_track_set_source(burnTrack, source);
        for (const auto& [type, text] : {std::pair{0x80, track.title}, std::pair{0x81, track.performer}}) {
            if (text.isEmpty())
                continue;
            QByteArray payload = cdText(text);
            burn_track_set_cdtext(burnTrack, 0, type, nullptr, reinterpret_cast<unsigned char*>(payload.data()),
                                  int(payload.size()), 0);
        }
        burn_session_add_track(session, burnTrack, BURN_POS_END);
        burn_track_free(burnTrack);
        states.push_back(std::move(state));
        sources.push_back(source);
    }

    burn_write_opts* options = burn_write_opts_new(drive);
    burn_write_opts_set_perform_opc(options, 0);
    burn_write_opts_set_write_type(options, BURN_WRITE_SAO, BURN_BLOCK_SAO);
    burn_write_opts_set_simulate(options, setup.simulate ? 1 : 0);
    burn_write_opts_set_underrun_proof(options, 1);
    burn_drive_set_speed(drive, 0, setup.speed > 0 ? setup.speed * kCdSpeedKBps : 0);
    takeMessages();  // only what this write brings counts
    burn_disc_write(options, disc);
    burn_write_opts_free(options);
    const QString status = setup.simulate ? QStringLiteral("Simulating the burn") : QStringLiteral("Burning");
    waitWhileBusy(job, drive, status, [&](const burn_progress&) {
        return 100.0 * double(sent.load()) / double(std::max<qint64>(total, 1));
    });
    QStringList problems;
    const bool wroteWell = wentWell(drive, &problems);
    burn_disc_free(disc);
    for (BurnSource* source : sources)
        burn_source_free(source);
    for (AudioDiscLayout::Track& track : layout.tracks)
        track.producer->cleanupTrackAfterBurn();
    grabbed.ejectWhenReleased(setup.ejectAfter);
    if (job.isCancelled())
        return QStringLiteral("cancelled");
    if (!wroteWell)
        return failure(QStringLiteral("The disc was not written"), problems);
    digests->clear();
    for (size_t index = 0; index < states.size(); ++index) {
        if (states[index]->produced + AudioTrackProducer::kBlockBytes < states[index]->size)
            job.addMessage(QStringLiteral("Track %1 ended early and was filled out with silence.").arg(index + 1));
        digests->append(states[index]->digest.result());
    }
    return {};
}

QString LibburnDrives::writeData(Job& job, ::burn_source* image, const BurnSetup& setup)
{
    std::lock_guard lock(mutex_);
    QString error;
    if (!ready(&error))
        return error;
    GrabbedDrive grabbed(setup.drive);
    burn_drive* drive = grabbed.drive();
    if (!drive)
        return failure(QStringLiteral("The burner %1 cannot be used").arg(setup.drive));
    const burn_disc_status status = burn_disc_get_status(drive);
    if (status != BURN_DISC_BLANK && status != BURN_DISC_APPENDABLE)
        return QStringLiteral("The disc in %1 cannot be written: it is full or missing.").arg(setup.drive);

    auto* source = reinterpret_cast<BurnSource*>(image);
    const qint64 size = qint64(source->get_size(source));
    if (const qint64 room = qint64(burn_disc_available_space(drive, nullptr)); room > 0 && size > room)
        return QStringLiteral("The disc has room for %1 MB, and this needs %2 MB.").arg(room / 1000000).arg(size / 1000000);
    burn_disc* disc = burn_disc_create();
    burn_session* session = burn_session_create();
    burn_disc_add_session(disc, session, BURN_POS_END);
    burn_session_free(session);  // the disc holds it now
    burn_track* track = burn_track_create();
    burn_track_define_data(track, 0, 0, 0, BURN_MODE1);
    burn_track_set_source(track, source);
    burn_session_add_track(session, track, BURN_POS_END);
    burn_track_free(track);

    burn_write_opts* options = burn_write_opts_new(drive);
    burn_write_opts_set_perform_opc(options, 0);
    burn_write_opts_set_multi(options, 0);
    burn_write_opts_set_simulate(options, setup.simulate ? 1 : 0);
    burn_write_opts_set_underrun_proof(options, 1);
    char reasons[BURN_REASONS_LEN] = {};
    if (burn_write_opts_auto_write_type(options, disc, reasons, 0) == BURN_WRITE_NONE) {
        burn_write_opts_free(options);
        burn_disc_free(disc);
        return QStringLiteral("The disc in %1 cannot take this: %2").arg(setup.drive, plainWords(QString::fromLocal8Bit(reasons)));
    }
    int profile = 0;
    char profileName[80] = {};
    burn_disc_get_profile(drive, &profile, profileName);
    const bool dvd = profile >= 0x10;
    burn_drive_set_speed(drive, 0, setup.speed > 0 ? setup.speed * (dvd ? kDvdSpeedKBps : kCdSpeedKBps) : 0);
    takeMessages();  // only what this write brings counts
    burn_disc_write(options, disc);
    burn_write_opts_free(options);
    waitWhileBusy(job, drive, setup.simulate ? QStringLiteral("Simulating the burn") : QStringLiteral("Burning"),
                  [](const burn_progress& p) { return p.sectors > 0 ? 100.0 * p.sector / p.sectors : -1.0; });
    QStringList problems;
    const bool wroteWell = wentWell(drive, &problems);
    burn_disc_free(disc);
    grabbed.ejectWhenReleased(setup.ejectAfter);
    if (job.isCancelled())
        return QStringLiteral("cancelled");
    if (!wroteWell)
        return failure(QStringLiteral("The disc was not written"), problems);
    return {};
}

QString LibburnDrives::erase(Job& job, const QString& address, bool full)
{
    std::lock_guard lock(mutex_);
    QString error;
    if (!ready(&error))
        return error;
    GrabbedDrive grabbed(address);
    burn_drive* drive = grabbed.drive();
    if (!drive)
        return failure(QStringLiteral("The burner %1 cannot be used").arg(address));
    if (burn_disc_get_status(drive) == BURN_DISC_EMPTY)
        return QStringLiteral("There is no disc in %1.").arg(address);
    if (!burn_disc_erasable(drive))
        return QStringLiteral("The disc in %1 cannot be erased.").arg(address);
    takeMessages();  // only what this erase brings counts
    burn_disc_erase(drive, full ? 0 : 1);
    waitWhileBusy(job, drive, full ? QStringLiteral("Erasing the whole disc") : QStringLiteral("Erasing"),
                  [](const burn_progress& p) { return p.sectors > 0 ? 100.0 * p.sector / p.sectors : -1.0; });
    QStringList problems;
    const bool erasedWell = wentWell(drive, &problems);
    if (job.isCancelled())
        return QStringLiteral("cancelled");
    if (!erasedWell)
        return failure(QStringLiteral("The disc was not erased"), problems);
    return {};
}

QString LibburnDrives::readBackDevice(const QString& drive)
{
    // Image files made through "stdio:" hold data discs only; a real drive is read by cd-paranoia.
    return drive.startsWith(QLatin1String("/dev/")) ? drive : QString();
}
