#include "tabs/AppControllers.h"

#include "core/LibraryModel.h"
#include "disc/AudioCDWrapper.h"
#include "disc/AudioDVDWrapper.h"
#include "disc/BurnDrives.h"
#include "disc/CdDrives.h"
#include "disc/Eraser.h"
#include "disc/FlashWriter.h"
#include "disc/LibburnDrives.h"
#include "disc/MountedCDWrapper.h"
#include "disc/OpticalMediaWrapper.h"
#include "encode/ExportJobs.h"
#include "encode/LameWrapper.h"
#include "platform/VolumeMonitor.h"
#include "playlists/HPlayListDataSource.h"
#include "playlists/ITunesManager.h"
#include "playlists/M3uManager.h"
#include "playlists/MediaDataSource.h"
#include "playlists/PlayListDataSource.h"
#include "tabs/ClipSourcesWrapper.h"
#include "tabs/MusicSourcesWrapper.h"
#include "tabs/PlaySourcesWrapper.h"
#include "tabs/RipSourcesWrapper.h"
#include "tabs/TagSourcesWrapper.h"
#include "tags/TagFacade.h"

AppControllers::AppControllers()
    : exportJobs_(std::make_unique<ExportJobs>()),
      lame_(std::make_unique<LameWrapper>()),
      hidden_(std::make_unique<HPlayListDataSource>()),
      media_(std::make_unique<MediaDataSource>()),
      playlists_(std::make_unique<PlayListDataSource>()),
      itunes_(std::make_unique<iTunesManager>()),
      m3u_(std::make_unique<m3uManager>()),
      cdWatcher_(std::make_unique<mounted_cd_wrapper>(std::make_unique<SystemCdDrives>())),
      burnDrives_(std::make_unique<LibburnDrives>()),
      audioCD_(std::make_unique<AudioCDWrapper>(burnDrives_.get())),
      audioDVD_(std::make_unique<AudioDVDWrapper>(burnDrives_.get())),
      opticalMedia_(std::make_unique<OpticalMediaWrapper>(burnDrives_.get())),
      eraser_(std::make_unique<eraser>(*burnDrives_)),
      music_(std::make_unique<MusicSourcesWrapper>()),
      rip_(std::make_unique<RipSourcesWrapper>(*cdWatcher_))
{
    playlists_->setMediaSource(media_.get());
    playlists_->setHiddenSource(hidden_.get());
    // The library columns show what the tag facade reads.
    LibraryModel::setTagReader([](const QString& path) { return getComments(path); });
}

AppControllers::~AppControllers()
{
    // A copy handed to the Music tab runs on the writer's worker: it stops
    // before the tab goes.
    if (flash_ && flash_->isBusy()) {
        flash_->erasingMediaPanelCancel();
        music_->terminateSave();
        flash_->waitForWorkers();
    }
}

void AppControllers::awakeFromNib()
{
    hidden_->awakeFromNib();
    media_->awakeFromNib();
    playlists_->awakeFromNib();
    itunes_->awakeFromNib();
    m3u_->awakeFromNib();
    cdWatcher_->awakeFromNib();
}

PlaySourcesWrapper& AppControllers::play()
{
    // Made on first use: commands that never play do not read, or store, the library's roots.
    if (!play_) {
        play_ = std::make_unique<PlaySourcesWrapper>();
        play_->setCdWatcher(cdWatcher_.get());
        if (flash_)
            play_->setFlashPlayers(flash_->mountedVolumes());
    }
    return *play_;
}

FlashWriter& AppControllers::flashWriter()
{
    if (!flash_) {
        volumes_ = std::make_unique<VolumeMonitor>();
        flash_ = std::make_unique<FlashWriter>(*volumes_);
        QObject::connect(flash_.get(), &FlashWriter::volumesChanged, flash_.get(), [this] {
            if (play_)
                play_->setFlashPlayers(flash_->mountedVolumes());
            if (clip_)
                clip_->setFlashPlayers(flash_->mountedVolumes());
            if (tag_)
                tag_->setFlashPlayers(flash_->mountedVolumes());
        });
        flash_->awakeFromNib();
        playlists_->setFlashWriter(flash_.get());
        media_->setFlashWriter(flash_.get());
    }
    return *flash_;
}

ClipSourcesWrapper& AppControllers::clip()
{
    if (!clip_) {
        clip_ = std::make_unique<ClipSourcesWrapper>();
        clip_->setCdWatcher(cdWatcher_.get());
        if (flash_)
            clip_->setFlashPlayers(flash_->mountedVolumes());
        // A disc the Rip tab is reading stays in, and so does a player being erased or written.
        clip_->setMediumInUseCheck([this](const QString& path) {
            if (flash_ && flash_->mountedVolumes().contains(path))
                return flash_->isBusy();
            return rip_->isSaving() && rip_->currentDisc() == path;
        });
        clip_->setFlashEjector([this](const QString& mountPoint) { flashWriter().ejectVolume(mountPoint); });
    }
    return *clip_;
}

TagSourcesWrapper& AppControllers::tagSources()
{
    // Made on first use, as the Play tab's: commands that never tag do not read the library's roots.
    if (!tag_) {
        tag_ = std::make_unique<TagSourcesWrapper>();
        if (flash_)
            tag_->setFlashPlayers(flash_->mountedVolumes());
    }
    return *tag_;
}
