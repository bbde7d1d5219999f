#pragma once
#include "disc/AudioDiscImage.h"
#include "disc/BurnJobs.h"
#include "disc/BurnSetup.h"
#include "core/Job.h"

#include <QHash>
#include <QObject>
#include <QStringList>
#include <QVariant>

#include <functional>
#include <memory>

class BurnDrives;
class MyController;

// Burns an audio CD from a list of files (VLBurnAudioCDWithArrayNotification):
// protected files are dropped, the setup sheet chooses the drive or image file,
// files the burner cannot take are converted to WAV in a private cache, the
// tracks are laid out to at most 79 minutes and fed to the burner by their
// producers. The burn is one job; an image (and a drive that can read the
// disc back) is verified against what was sent.
class AudioCDWrapper : public QObject {
    Q_OBJECT
public:
    static constexpr qint64 kMaxDiscMinutes = 79;

    explicit AudioCDWrapper(BurnDrives* drives = nullptr, QObject* parent = nullptr);
    ~AudioCDWrapper() override;

    void vlBurnAudioCDWithArrayNotification(const QVariant& files);
    // The shell whose ignore-insert flag the setup sheet holds while it is open.
    void setShell(MyController* shell) { shell_ = shell; }
    // The setup sheet's answer to setupRequested().
    void handleSetupSheet(bool confirmed, const BurnSetup& setup);
    // The whole burn of files to setup, as one started job (the request's first
    // step included): null when no file is left to burn.
    std::shared_ptr<Job> burnAudioCD(const QStringList& files, const BurnSetup& setup);

    // The steps, in the order the burn takes them.
    static QStringList withoutProtected(const QStringList& files);
    // Per lower-cased extension: whether the burner takes such files as they are.
    static QHash<QString, bool> quicktimeCanHandleTheseTracks(const QStringList& files);
    static bool quicktimeCanOpen(const QString& path);
    // The files, with those needsWAV picks replaced by 44.1 kHz WAV copies made
    // in cacheFolder; a file that cannot be converted is left out, its reason in
    // *leftOut. *originals: the file each result stands for. Cancelling the job
    // cancels the conversion under way.
    static QStringList replaceUnsupportedWithWAV(Job& job, const QStringList& files,
                                                 const std::function<bool(const QString& file)>& needsWAV,
                                                 const QString& cacheFolder, QStringList* leftOut,
                                                 QStringList* originals);
    // Tracks for the files in order while the disc stays within 79 minutes;
    // CD-Text comes from tagSources (the files as the user chose them).
    static AudioDiscLayout createAudioDiscWithArray(Job& job, const QStringList& files,
                                                    const QStringList& tagSources, QStringList* leftOut);
    static std::unique_ptr<AudioTrackProducer> createTrack(const QString& path, const std::atomic<bool>* cancelled);

signals:
    // The setup sheet should open for the request in hand.
    void setupRequested(const QString& description);
    // A burn job has started (the window shows its progress).
    void burnStarted(quint64 jobId);
    // How it went, in a line for the status bar (from the job's thread).
    void burnEnded(const QString& summary);

private:
    JobResult burn(Job& job, const QStringList& files, const BurnSetup& setup);

    BurnDrives* drives_;
    MyController* shell_ = nullptr;
    QStringList pending_;
    BurnJobs burns_;
};
