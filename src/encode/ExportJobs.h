#pragma once
#include "encode/ExportArguments.h"

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

// What a job remembers about its last request that produced no file, so that
// a caller who only sees a missing file (the command-line tool) can say why.
class FailureNote {
public:
    void clear();
    void set(const QString& text);
    QString text() const;

private:
    mutable std::mutex mutex_;
    QString text_;
};

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
class wavexportwrapper {
public:
    wavexportwrapper();
    ~wavexportwrapper();

    void exportWav(const QVariantMap& request);      // VLWAVExportNotification
    void exportClipWav(const QVariantMap& request);  // VLCLPWAVExportNotification
    void cancel();                                   // either cancel notification

    bool cdparanoiaFailed() const { return cdparanoiaFailed_; }
    QString lastFailure() const { return failure_.text(); }

private:
    // Runs one child; the cancel notification terminates it. Returns its exit code.
    int runChild(const QString& program, const QStringList& arguments);
    // A decoder run that writes through the per-user link (decoder runs never overlap).
    int runThroughLink(const QString& program, const QString& destination,
                       const std::function<QStringList(const QString& output)>& arguments);
    bool ripTrack(const QString& source, int track, bool maxSpeed, const QString& destination);

    std::mutex stageMutex_;  // one WAV stage at a time per job object
    std::mutex childMutex_;
    ChildProcess* child_ = nullptr;
    std::atomic<bool> cancelled_ {false};
    std::atomic<bool> cdparanoiaFailed_ {false};  // sticky for the object's life
    FailureNote failure_;
    PlayingMediaWatch playing_;
};

// The shared flow of the encoding members: settings, tags, the WAV stage, the
// encoder in the foreground or on a worker thread under a task slot, the clip,
// and the clean-up of the intermediate WAV.
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
    void cancel();

    QString lastFailure() const { return failure_.text(); }
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
    // Encodes encode.wavPath into output (a temporary file beside the save path).
    // Returns false with a note in failure_ when the encoder could not run.
    virtual bool encode(const EncodeRequest& encode, const QString& output) = 0;

    // Runs one child that the cancel notification can stop while in the foreground.
    int runEncoderChild(ChildProcess& child, bool foreground);

    FailureNote failure_;

private:
    void makeFile(const EncodeRequest& encode);
    void workerBody(const EncodeRequest& encode, quint64 generation, quint64 ticket);
    // Waits for a task slot in the order the requests came; false when cancelled first.
    bool takeTaskSlot(const EncodeRequest& encode, quint64 generation, quint64 ticket);
    QString clipFileName(const QVariantMap& request) const;

    const QString cleanupKey_;
    const QString ripKey_;
    const QStringList requestNames_;
    const QString cancelName_;

    std::atomic<bool> cancelled_ {false};
    std::atomic<quint64> cancelGeneration_ {0};
    std::mutex foregroundMutex_;
    ChildProcess* foregroundChild_ = nullptr;

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
    bool encode(const EncodeRequest& encode, const QString& output) override;

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
    bool encode(const EncodeRequest& encode, const QString& output) override;
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
    bool encode(const EncodeRequest& encode, const QString& output) override;
};

class wmaexportwrapper : public EncoderExportWrapper {
public:
    wmaexportwrapper();
    ~wmaexportwrapper() override;

protected:
    QStringList exportParams(const ExportArguments::TspSettings& settings, int sampleBits) const override;
    QStringList ripParams(const QVariantMap& ripSettings) const override;
    QStringList flashParams(const QVariantMap& flashSettings) const override;
    bool encode(const EncodeRequest& encode, const QString& output) override;
};

// Ogg Vorbis, encoded in-process by oggenc_main().
class oggexportwrapper : public EncoderExportWrapper {
public:
    oggexportwrapper();
    ~oggexportwrapper() override;

protected:
    QStringList exportParams(const ExportArguments::TspSettings& settings, int sampleBits) const override;
    QStringList ripParams(const QVariantMap& ripSettings) const override;
    QStringList flashParams(const QVariantMap& flashSettings) const override;
    bool encode(const EncodeRequest& encode, const QString& output) override;
};

// AIFF copies of WAV, AAC and MIDI sources.
class aifexportwrapper {
public:
    aifexportwrapper();
    ~aifexportwrapper();
    void exportFile(const QVariantMap& request);
    QString lastFailure() const { return failure_.text(); }

private:
    FailureNote failure_;
    PlayingMediaWatch playing_;
};

// Plain copies onto a flash player; AppleDouble "._" files are skipped.
class copyexportwrapper {
public:
    copyexportwrapper();
    ~copyexportwrapper();
    void exportFile(const QVariantMap& request);
    QString lastFailure() const { return failure_.text(); }

private:
    FailureNote failure_;
};


// Every export job of the family, each listening on its notifications for as
// long as this object lives. The application and velmora-cli make one.
class ExportJobs {
public:
    ExportJobs();
    ~ExportJobs();

    wavexportwrapper& wav() { return *wav_; }
    mp3exportwrapper& mp3() { return *mp3_; }

    // The note of the job serving a format key ("MP3", "M4A", "WAV", ...).
    QString lastFailure(const QString& formatKey) const;
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
