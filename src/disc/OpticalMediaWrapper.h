#pragma once
#include "core/Job.h"
#include "disc/BurnJobs.h"
#include "disc/BurnSetup.h"
#include "disc/DataDiscTree.h"

#include <QObject>
#include <QVariantMap>

#include <memory>

class BurnDrives;
class MyController;

// Burns a data disc (CD or DVD) of music files laid out in folders, with the
// M3U files of the chosen playlists on its root
// (VLBurnOpticalMediaWithDictionaryNotification). A request too small or too
// large for the size warnings asks first; files that are not MP3 are converted
// in a private cache when the request says so; each file is fed to the image
// by its producer. The burn is one job.
class OpticalMediaWrapper : public QObject {
    Q_OBJECT
public:
    enum class SizeWarning { None, NotEnough, TooMuch };

    explicit OpticalMediaWrapper(BurnDrives* drives = nullptr, QObject* parent = nullptr);
    ~OpticalMediaWrapper() override;

    void vlBurnOpticalMediaWithDictionaryNotification(const QVariantMap& request);
    // The size warning's answer ("Yes" goes on to the setup sheet).
    void handleNotFullSheet(bool yes);
    // The shell whose ignore-insert flag the setup sheet holds while it is open.
    void setShell(MyController* shell) { shell_ = shell; }
    // The setup sheet's answer.
    void handleSetupSheet(bool confirmed, const BurnSetup& setup);
    // The whole burn of a request, as one started job; null for an empty request.
    std::shared_ptr<Job> burnMP3CD(const QVariantMap& request, const BurnSetup& setup, const DataDiscOptions& options);

    // Decimal megabytes of the files (a file that cannot be read counts 0).
    static qint64 computeSize(const QStringList& files);
    // The warning the Music tab's size settings give for that size.
    static SizeWarning sizeWarning(qint64 megabytes);
    static QString warningTitle(SizeWarning warning);
    // The options as the preferences set them.
    static DataDiscOptions optionsFromPreferences();

    // The tree of the disc: root named cdTitle, the files in their folders, the
    // M3U files of the playlists on the root. Missing files are left out.
    static std::unique_ptr<DataDiscFolder> burnMP3CD_2(const QVariantMap& request, const DataDiscOptions& options,
                                                       QStringList* leftOut);
    // The M3U file that belongs to a playlist file: "M3U" beside its folder.
    static QString m3uPathFor(const QString& playlistPath);

signals:
    // A size warning sheet should open (title; "Yes"/"No" answer handleNotFullSheet).
    void sizeWarningRequested(const QString& title, const QString& text);
    void setupRequested(const QString& description);
    void burnStarted(quint64 jobId);
    // How it went, in a line for the status bar (from the job's thread).
    void burnEnded(const QString& summary);

private:
    JobResult burn(Job& job, QVariantMap request, const BurnSetup& setup, const DataDiscOptions& options);
    // The files with those that are not MP3 replaced by MP3 copies made in cacheFolder.
    static QStringList replaceUnsupportedWithMP3(Job& job, const QStringList& files, const QString& cacheFolder,
                                                 QStringList* leftOut);

    BurnDrives* drives_;
    MyController* shell_ = nullptr;
    QVariantMap pending_;
    BurnJobs burns_;
};
