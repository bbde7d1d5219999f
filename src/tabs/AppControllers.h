#pragma once
#include <memory>

class AudioCDWrapper;
class AudioDVDWrapper;
class BurnDrives;
class ClipSourcesWrapper;
class ExportJobs;
class FlashWriter;
class HPlayListDataSource;
class LameWrapper;
class MediaDataSource;
class MusicSourcesWrapper;
class MyController;
class OpticalMediaWrapper;
class eraser;
class PlayListDataSource;
class PlaySourcesWrapper;
class RipSourcesWrapper;
class VolumeMonitor;
class TagSourcesWrapper;
class iTunesManager;
class m3uManager;
class mounted_cd_wrapper;

// The long-lived controllers of the application, made together with the main
// window (and by velmora-cli, which drives the same ones without it). Each
// registers on the notification bus when it wakes; the shell's launch notice
// then starts their own start-up work.
class AppControllers {
public:
    AppControllers();
    ~AppControllers();

    // Wakes every controller (before the shell posts its launch notice).
    void awakeFromNib();

    ExportJobs& exportJobs() { return *exportJobs_; }
    LameWrapper& lame() { return *lame_; }
    PlayListDataSource& playlists() { return *playlists_; }
    MediaDataSource& media() { return *media_; }
    HPlayListDataSource& hiddenPlaylists() { return *hidden_; }
    m3uManager& m3u() { return *m3u_; }
    mounted_cd_wrapper& cdWatcher() { return *cdWatcher_; }
    MusicSourcesWrapper& musicSources() { return *music_; }
    PlaySourcesWrapper& play();
    RipSourcesWrapper& ripSources() { return *rip_; }
    // Made on first use (the window makes it at once): it watches the mounted
    // volumes, which commands that never copy to a player need not do.
    FlashWriter& flashWriter();
    ClipSourcesWrapper& clip();
    TagSourcesWrapper& tagSources();
    BurnDrives& burnDrives() { return *burnDrives_; }
    AudioCDWrapper& audioCD() { return *audioCD_; }
    AudioDVDWrapper& audioDVD() { return *audioDVD_; }
    OpticalMediaWrapper& opticalMedia() { return *opticalMedia_; }
    eraser& discEraser() { return *eraser_; }

private:
    std::unique_ptr<ExportJobs> exportJobs_;
    std::unique_ptr<LameWrapper> lame_;
    // Outlive the stores and tabs that copy through the writer.
    std::unique_ptr<VolumeMonitor> volumes_;
    std::unique_ptr<FlashWriter> flash_;
    std::unique_ptr<HPlayListDataSource> hidden_;
    std::unique_ptr<MediaDataSource> media_;
    std::unique_ptr<PlayListDataSource> playlists_;
    std::unique_ptr<iTunesManager> itunes_;
    std::unique_ptr<m3uManager> m3u_;
    std::unique_ptr<mounted_cd_wrapper> cdWatcher_;
    // The burners feed the export jobs while caching, so they go before them.
    std::unique_ptr<BurnDrives> burnDrives_;
    std::unique_ptr<AudioCDWrapper> audioCD_;
    std::unique_ptr<AudioDVDWrapper> audioDVD_;
    std::unique_ptr<OpticalMediaWrapper> opticalMedia_;
    std::unique_ptr<eraser> eraser_;
    // Last: the tabs go first, while the export jobs they feed still listen.
    std::unique_ptr<MusicSourcesWrapper> music_;
    std::unique_ptr<PlaySourcesWrapper> play_;  // shows the watcher's discs: made after it, gone before it
    std::unique_ptr<RipSourcesWrapper> rip_;
    std::unique_ptr<ClipSourcesWrapper> clip_;  // made on first use, as the Play tab's
    std::unique_ptr<TagSourcesWrapper> tag_;
};
