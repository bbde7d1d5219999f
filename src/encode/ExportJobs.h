#pragma once
#include "encode/ExportArguments.h"

#include <QList>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>

class ChildProcess;
class Job;
struct JobResult;

// The export request being handled on this thread. The stages a request runs
// through the bus (the WAV stage, the clip cut, AIFF copies of MIDI files) work
// under its job, so cancelling the job stops them too, and leave here why they
// failed.
class ExportRequestScope {
public:
    explicit ExportRequestScope(Job& job);
    ~ExportRequestScope();
    ExportRequestScope(const ExportRequestScope&) = delete;
    ExportRequestScope& operator=(const ExportRequestScope&) = delete;

    static ExportRequestScope* current();
    Job& job() { return job_; }
    void noteFailure(const QString& reason) { failure_ = reason; }
    QString failure() const { return failure_; }

private:
    Job& job_;
    ExportRequestScope* outer_;
    QString failure_;
};

// Runs one export request as a job: as a stage of the request already handled
// on this thread, or as a job of its own ("Converting a.flac to MP3"), run here.
JobResult runExportRequest(const QString& title, const QString& destination,
                           const std::function<JobResult(Job& job)>& body);
// "Converting <source's file name> to <type>".
QString exportJobTitle(const QString& source, const QString& type);
// The job of the latest request for a destination, while something holds it
// (the job list keeps running and failed jobs): how a sender that only posted a
// request learns its outcome.
std::shared_ptr<Job> exportJobFor(const QString& destination);
void rememberExportJob(const QString& destination, const std::shared_ptr<Job>& job);

// Why a file a tool has written stopped short: the disk was full or the file
// reached the process's size limit. "" when neither stopped it.
QString outputCutOff(const QString& made, const QString& target);
// Why a file a tool has just written cannot be a whole result: empty, or cut off.
// "" when it looks whole.
QString incompleteOutput(const QString& made, const QString& target);
// Runs a child that cancelling the job stops; its exit code, -1 when it did not
// run to its end.
int runCancellable(Job& job, ChildProcess& child);
// Makes the folder a result goes into: private (0700) inside the cache, else as
// the umask allows.
bool makeFolderFor(const QString& file);

// Watches which disc folder is being played, so the decoding stages leave it alone.
class PlayingMediaWatch {
public:
    PlayingMediaWatch();
    ~PlayingMediaWatch();
    bool isOnPlayingDisc(const QString& sourcePath) const;

private:
    mutable std::mutex mutex_;
    QString playingCdFolder_;
};

// The WAV stage: turns any source into an uncompressed WAV file (cd-paranoia for
// CD tracks, then ffmpeg, then mqp, then mplayer), and cuts clip WAVs with sox.
// Decoders write into a private folder beside the destination; the result is
// renamed into place only when it is whole.
class wavexportwrapper {
public:
    wavexportwrapper();
    ~wavexportwrapper();

    void exportWav(const QVariantMap& request);      // VLWAVExportNotification
    void exportClipWav(const QVariantMap& request);  // VLCLPWAVExportNotification
    void cancel();                                   // either cancel notification

    bool cdparanoiaFailed() const { return cdparanoiaFailed_; }

private:
    JobResult decode(Job& job, const QVariantMap& request);
    JobResult cutClip(Job& job, const QVariantMap& request);
    // A decoder run that writes through a link of its own in the working folder.
    int runThroughLink(Job& job, const QString& program, const QString& destination,
                       const std::function<QStringList(const QString& output)>& arguments);
    bool ripTrack(Job& job, const QString& source, int track, bool maxSpeed, const QString& destination);

    std::mutex stageMutex_;  // one WAV stage at a time per job object
    std::mutex jobMutex_;
    Job* stageJob_ = nullptr;                    // the job the stage works under, for the cancel notifications
    std::atomic<bool> cdparanoiaFailed_{false};  // sticky for the object's life
    PlayingMediaWatch playing_;
};

// The shared flow of the encoding members: settings, tags, the WAV stage, the
// encoder in the foreground or on a worker thread under a task slot, the clip,
// and the clean-up of the intermediate WAV. Each request is a job.
class EncoderExportWrapper {
public:
    struct EncodeRequest {
        QString sourcePath;
        QString wavPath;
        QString savePath;
        QStringList params;
        QVariantMap comments;
        bool inBackground = false;
        bool deleteWav = false;
    };

    virtual ~EncoderExportWrapper();

    void exportFile(const QVariantMap& request);
    // The cancel notification: stops the requests in hand; background encoders
    // still waiting for a slot never start, running ones finish their file.
    void cancel();

    // Blocks until every background encoder started by this job has ended.
    void waitForBackgroundWork();

protected:
    EncoderExportWrapper(QString cleanupKey, QString ripKey, QStringList requestNames, QString cancelName);
    // Subscribes to the request and cancel names; called by the member's constructor.
    void subscribe();
    // Stops listening and waits for the background encoders; called by the member's
    // destructor, while the member's encode() can still run.
    void stopListening();

    // The member's encoder settings from the defaults, rip and flash dictionaries.
    virtual QStringList exportParams(const ExportArguments::TspSettings& settings, int sampleBits) const = 0;
    virtual QStringList ripParams(const QVariantMap& ripSettings) const = 0;
    virtual QStringList flashParams(const QVariantMap& flashSettings) const = 0;
    // The task type of an output file ("MP3", or the extension for AAC files).
    virtual QString typeForSave(const QString& savePath) const;
    // Refuses sources it must not read (protected AAC files); empty when accepted.
    virtual QString refusal(const QString& sourcePath) const;
    // Makes encode.savePath from encode.wavPath: by default encode() into a private
    // folder beside it, renamed into place when whole. "" on success, else why not.
    virtual QString makeOutput(Job& job, const EncodeRequest& encode);
    // Encodes encode.wavPath into output. "" on success, else why not.
    virtual QString encode(Job& job, const EncodeRequest& encode, const QString& output) = 0;

private:
    struct Pending;
    void prepare(Job& job, const QVariantMap& request, Pending& pending);
    JobResult finish(Job& job, Pending& pending);
    // Waits for a task slot in the order the requests came; false when cancelled first.
    bool takeTaskSlot(Job& job, Pending& pending);
    QString clipFileName(const QVariantMap& request) const;

    const QString cleanupKey_;
    const QString ripKey_;
    const QStringList requestNames_;
    const QString cancelName_;

    std::atomic<quint64> cancelGeneration_ {0};
    // The jobs of the requests whose posts have not returned yet.
    std::mutex activeMutex_;
    QList<std::weak_ptr<Job>> active_;

    std::mutex workersMutex_;
    std::condition_variable workersDone_;
    int workers_ = 0;
    // Background encoders waiting for a slot, oldest first; only the oldest polls.
    std::condition_variable queueMoved_;
    std::deque<quint64> waiting_;
    quint64 nextTicket_ = 0;
};

class mp3exportwrapper : public EncoderExportWrapper {
public:
    mp3exportwrapper();
    ~mp3exportwrapper() override;
    QString lamePath() const;

protected:
    QStringList exportParams(const ExportArguments::TspSettings& settings, int sampleBits) const override;
    QStringList ripParams(const QVariantMap& ripSettings) const override;
    QStringList flashParams(const QVariantMap& flashSettings) const override;
    QString encode(Job& job, const EncodeRequest& encode, const QString& output) override;

private:
    mutable std::mutex lameMutex_;
    QString lamePath_;  // told by the LAME locator
};

class mp2exportwrapper : public EncoderExportWrapper {
public:
    mp2exportwrapper();
    ~mp2exportwrapper() override;

protected:
    QStringList exportParams(const ExportArguments::TspSettings& settings, int sampleBits) const override;
    QStringList ripParams(const QVariantMap& ripSettings) const override;
    QStringList flashParams(const QVariantMap& flashSettings) const override;
    QString encode(Job& job, const EncodeRequest& encode, const QString& output) override;
};

// AAC, M4A, M4B and M4R through mqp and its AAC settings files.
class aacexportwrapper : public EncoderExportWrapper {
public:
    aacexportwrapper();
    ~aacexportwrapper() override;

protected:
    QStringList exportParams(const ExportArguments::TspSettings& settings, int sampleBits) const override;
    QStringList ripParams(const QVariantMap& ripSettings) const override;
    QStringList flashParams(const QVariantMap& flashSettings) const override;
    QString typeForSave(const QString& savePath) const override;
    QString refusal(const QString& sourcePath) const override;
    QString encode(Job& job, const EncodeRequest& encode, const QString& output) override;
};

class wmaexportwrapper : public EncoderExportWrapper {
public:
    wmaexportwrapper();
    ~wmaexportwrapper() override;

protected:
    QStringList exportParams(const ExportArguments::TspSettings& settings, int sampleBits) const override;
    QStringList ripParams(const QVariantMap& ripSettings) const override;
    QStringList flashParams(const QVariantMap& flashSettings) const override;
    QString encode(Job& job, const EncodeRequest& encode, const QString& output) override;
};

// Ogg Vorbis, encoded in-process by oggenc_main() straight into the new version
// of the save file, which replaces the old one only when it is whole.
class oggexportwrapper : public EncoderExportWrapper {
public:
    oggexportwrapper();
    ~oggexportwrapper() override;

protected:
    QStringList exportParams(const ExportArguments::TspSettings& settings, int sampleBits) const override;
    QStringList ripParams(const QVariantMap& ripSettings) const override;
    QStringList flashParams(const QVariantMap& flashSettings) const override;
    QString makeOutput(Job& job, const EncodeRequest& encode) override;
    QString encode(Job& job, const EncodeRequest& encode, const QString& output) override;
};

// AIFF copies of WAV, AAC and MIDI sources.
class aifexportwrapper {
public:
    aifexportwrapper();
    ~aifexportwrapper();
    void exportFile(const QVariantMap& request);

private:
    JobResult convert(Job& job, const QVariantMap& request);
    PlayingMediaWatch playing_;
};

// Plain copies onto a flash player; AppleDouble "._" files are skipped.
class copyexportwrapper {
public:
    copyexportwrapper();
    ~copyexportwrapper();
    void exportFile(const QVariantMap& request);

private:
    JobResult copy(Job& job, const QVariantMap& request);
};

// Every export job of the family, each listening on its notifications for as
// long as this object lives. The application and velmora-cli make one.
class ExportJobs {
public:
    ExportJobs();
    ~ExportJobs();

    wavexportwrapper& wav() { return *wav_; }
    mp3exportwrapper& mp3() { return *mp3_; }

    void waitForBackgroundWork();

private:
    std::unique_ptr<wavexportwrapper> wav_;
    std::unique_ptr<aifexportwrapper> aif_;
    std::unique_ptr<copyexportwrapper> copy_;
    std::unique_ptr<mp3exportwrapper> mp3_;
    std::unique_ptr<mp2exportwrapper> mp2_;
    std::unique_ptr<aacexportwrapper> aac_;
    std::unique_ptr<wmaexportwrapper> wma_;
    std::unique_ptr<oggexportwrapper> ogg_;
};
