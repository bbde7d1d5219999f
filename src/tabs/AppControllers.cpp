#include "tabs/AppControllers.h"

#include "core/LibraryModel.h"
#include "disc/AudioCDWrapper.h"
#include "disc/BurnDrives.h"
#include "disc/CdDrives.h"
#include "disc/Eraser.h"
#include "disc/LibburnDrives.h"
#include "disc/MountedCDWrapper.h"
#include "disc/OpticalMediaWrapper.h"
#include "encode/ExportJobs.h"
#include "encode/LameWrapper.h"
#include "playlists/HPlayListDataSource.h"
#include "playlists/ITunesManager.h"
#include "playlists/M3uManager.h"
#include "playlists/MediaDataSource.h"
#include "playlists/PlayListDataSource.h"
#include "tabs/MusicSourcesWrapper.h"
#include "tabs/PlaySourcesWrapper.h"
#include "tabs/RipSourcesWrapper.h"
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

AppControllers::~AppControllers() = default;

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
    }
    return *play_;
}
