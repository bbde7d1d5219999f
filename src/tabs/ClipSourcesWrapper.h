#pragma once
#include "tabs/PlaySourcesWrapper.h"
#include "tabs/Waveform.h"

#include <QHash>
#include <QObject>
#include <QStringList>
#include <QTimer>
#include <QVariantMap>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>

class Job;
class mounted_cd_wrapper;

// The Clip tab's logic: the same sources and song table as the Play tab (its
// own browser of them, answering the Clip tab's notices), the five clip
// parameters of each listed song, playing the song or only its clip, the
// waveform of the selected song, and the save: one job per clip, which decodes
// the song, has sox cut the clip and hands it to the export job of the format.
class ClipSourcesWrapper : public QObject {
    Q_OBJECT
public:
    // The clip parameters, as the song table shows them (strings of seconds;
    // the volume in dB).
    static constexpr const char* kStart = "clipstart";
    static constexpr const char* kLength = "cliplength";
    static constexpr const char* kFadeIn = "fadein";
    static constexpr const char* kFadeOut = "fadeout";
    static constexpr const char* kVolume = "volume";
    static const QStringList& parameterKeys();  // in the table's order
    // The convert actions: WAV OGG MP3 MP2 M4A M4B M4R AAC WMA.
    static const QStringList& formatKeys();

    // A song's parameters before any edit: the whole song, no fades, no gain.
    static QVariantMap defaultParameters(const QVariantMap& record);
    // Negative times become 0; the start stays within the song, the length
    // within what follows the start, the fade-in within the clip and the
    // fade-out within what the fade-in leaves. songSeconds <= 0: the song's
    // length is unknown and only the clip itself bounds the fades. The volume
    // keeps its sign (a negative gain makes the clip quieter) within +-60 dB.
    static QVariantMap clamped(const QVariantMap& parameters, double songSeconds);
    // "12.5", "0": seconds to the millisecond without trailing zeros.
    static QString secondsText(double seconds);

    explicit ClipSourcesWrapper(QObject* parent = nullptr);
    ~ClipSourcesWrapper() override;

    // Sources, songs and the player: the browser the widget shows.
    PlaySourcesWrapper& browser() { return *browser_; }
    void setCdWatcher(mounted_cd_wrapper* watcher);
    void setFlashPlayers(const QStringList& mountPoints);
    // Lists the songs of a source. A request while a scan runs is dropped
    // (false): one scan at a time, taken with a try-lock.
    bool selectSource(int row);

    // The parameters of a listed song, and edits of them (clamped, then kept).
    QVariantMap clipParameters(int row) const;
    void setClipValue(int row, const QString& key, double value);
    // The song's length in seconds: measured by its waveform once drawn, else its tags'.
    double songSeconds(int row) const;

    bool includeTags() const { return includeTags_; }
    void toggleIncludeTags(bool on);

    // Playing through the Play tab's engine: the whole song, or its clip only
    // (from the start to the end of the clip, then it stops).
    void playThisSong(int row);
    void playClip(int row);
    void pausePlaying();
    void stopPlayingSong();
    bool isPlayingClip() const { return clipTimer_.isActive() || clipPaused_; }

    // The waveform of a listed song at columns pixel columns, computed in a job;
    // waveformChanged follows as it fills in.
    void showWaveform(int row, int columns);
    const WaveformPeaks& waveform() const { return waveform_; }
    int waveformRow() const { return waveformRow_; }

    // Ejecting the selected disc or flash player; the alert {title, message}
    // when it is in use and stays.
    struct Alert {
        QString title;
        QString message;
    };
    std::optional<Alert> ejectSelectedMedium();
    static Alert cdInUseAlert();
    static Alert flashInUseAlert();
    // Whether something else (a rip, a copy to the player) uses a disc or flash folder.
    void setMediumInUseCheck(std::function<bool(const QString& path)> check) { inUse_ = std::move(check); }
    // Unmounts and powers off the flash player mounted at a path (the flash writer's eject).
    void setFlashEjector(std::function<void(const QString& mountPoint)> eject) { ejectFlash_ = std::move(eject); }

    // Saving. The window asks for the folder (chooseFolderRequested), then the
    // save runs on a thread of its own.
    void convertTo(const QString& type);
    void chooseSaveFolderDidEnd(bool confirmed, const QString& folder, const QString& type, const QList<int>& rows);
    // The save request of rows (all songs when empty): "selectedfiles",
    // "clipsettings", "comments", "destinationfolder", "destinationpaths", "type",
    // and "includetags" (false: the clips carry no tags).
    QVariantMap saveRequest(const QString& type, const QString& folder, const QList<int>& rows) const;
    // The save thread as a job ("Saving M4R clips"); each clip is a job of its own
    // whose result names the file made. madeHandler hears of each file made,
    // failureHandler of each that was not (from the save's thread).
    static std::shared_ptr<Job> makeSaveJob(const QVariantMap& request,
                                            std::function<void(const QString& made)> madeHandler = {},
                                            std::function<void(const QString& failure)> failureHandler = {});
    void terminateSave();
    bool isSaving() const;
    void waitForSaveThread();

signals:
    void songsChanged();
    void parametersChanged(int row);
    void waveformChanged();
    void chooseFolderRequested(const QString& type);
    void saveFinished(const QStringList& made, const QStringList& failures);
    void message(const QString& text);

private:
    QString songPath(int row) const;
    void clipEnded();
    void takeWaveform(quint64 generation, const WaveformPeaks& peaks);
    void cancelWaveform();

    std::unique_ptr<PlaySourcesWrapper> browser_;
    std::mutex scanLock_;  // held from a scan's start until its songs are listed
    bool scanning_ = false;
    QHash<QString, QVariantMap> edited_;  // parameters by song path, once edited
    QHash<QString, double> measured_;     // song lengths the waveform found
    bool includeTags_ = true;
    std::function<bool(const QString&)> inUse_;
    std::function<void(const QString&)> ejectFlash_;

    QTimer clipTimer_;  // ends the clip being played
    int clipRemainingMs_ = 0;
    bool clipPaused_ = false;

    std::shared_ptr<Job> waveformJob_;
    quint64 waveformGeneration_ = 0;
    int waveformRow_ = -1;
    WaveformPeaks waveform_;

    mutable std::mutex saveMutex_;
    std::shared_ptr<Job> saveJob_;
};
