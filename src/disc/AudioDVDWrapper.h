#pragma once
#include "core/Job.h"
#include "disc/BurnJobs.h"
#include "disc/BurnSetup.h"

#include <QByteArray>
#include <QMap>
#include <QObject>
#include <QStringList>
#include <QVariant>

#include <memory>
#include <optional>

class BurnDrives;
class MyController;

// Burns a DVD-Audio disc from a list of files (VLBurnAudioDVDWithArrayNotification):
// protected files are dropped, files the authoring tool cannot take are
// converted to 44.1 kHz WAV in a private cache, dvda-author writes the
// AUDIO_TS folder, mkisofs-dvd-audio makes the image, and when isoinfo finds
// AUDIO_PP.IFO in it both run again with that sector. The image then goes to a
// burner, or through libburn's file drive to an image file. All of it is one job.
class AudioDVDWrapper : public QObject {
    Q_OBJECT
public:
    // The authoring command line takes the quoted file names up to this length;
    // the file that crosses it is the last one passed.
    static constexpr qsizetype kFileListLimit = 202753;
    // ...and never past the buffer that holds them.
    static constexpr qsizetype kFileListBuffer = 204800;

    explicit AudioDVDWrapper(BurnDrives* drives = nullptr, QObject* parent = nullptr);
    ~AudioDVDWrapper() override;

    void vlBurnAudioDVDWithArrayNotification(const QVariant& files);
    // The shell whose ignore-insert flag the setup sheet holds while it is open.
    void setShell(MyController* shell) { shell_ = shell; }
    // The setup sheet's answer to setupRequested().
    void handleSetupSheet(bool confirmed, const BurnSetup& setup);
    // The whole burn of files to setup as one started job; null when no file is left.
    std::shared_ptr<Job> burnAudioDVD(const QStringList& files, const BurnSetup& setup);

    // A received file and whether it has to become a WAV file first.
    struct Track {
        QString path;
        bool needtomakewav = false;
    };
    // The files without the protected ones (.m4p), each marked.
    static QList<Track> receivedTracks(const QStringList& files);
    static bool needToBurnFromWAV(const QString& path);

    // The files whose quoted names fit the authoring command line, in order;
    // the others go to *leftOut.
    static QStringList filesWithinLimit(const QStringList& files, QStringList* leftOut);

    // What building the image made.
    struct ImageBuild {
        QString image;         // the image, empty when none was made
        int ppInfoSector = 0;  // the sector the last authoring pass was given
        int passes = 0;
        QMap<QString, qint64> authored;  // file under the authoring folder -> bytes, as announced
        QString error;                   // why no image was made
    };
    // Authors and builds the image in workFolder for the build request
    // {"patharray", "ppinfosector"}: a second pass follows when the first image
    // shows AUDIO_PP.IFO. The authoring folder is gone before and after each pass.
    static ImageBuild buildDVDImage(Job& job, QVariantMap request, const QString& workFolder);

    // AUDIO_PP.IFO's first sector in the image, as isoinfo lists it; 0 when not found.
    static int getAudioPPInfoSector(const QString& image);
    // The same from isoinfo's listing: the number after the nearest "[" before
    // the name, in any case.
    static int audioPPInfoSectorInListing(const QByteArray& listing);
    // N of a tool's "Progress: N%" line.
    static std::optional<int> progressInLine(const QByteArray& line);

signals:
    // The setup sheet should open for the request in hand.
    void setupRequested(const QString& description);
    // A burn job has started (the window shows its progress).
    void burnStarted(quint64 jobId);
    // How it went, in a line for the status bar (from the job's thread).
    void burnEnded(const QString& summary);

private:
    JobResult burn(Job& job, const QStringList& files, const BurnSetup& setup);
    // The image is made (or not): burn it, or say why there is nothing to burn.
    JobResult buidDVDImageDidEnd(Job& job, const ImageBuild& build, const BurnSetup& setup);
    // Writes the image to the burner, or to the image file through libburn's file drive.
    QString burnLayout(Job& job, const QString& image, const BurnSetup& setup);

    BurnDrives* drives_;
    MyController* shell_ = nullptr;
    QStringList pending_;
    BurnJobs burns_;
};
