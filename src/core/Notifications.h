#pragma once
// Every name carried by the notification bus, defined once for the whole program.
// A component that posts or observes a name uses these constants, never a literal.

inline constexpr char VLAACExportCancelNotification[] = "VLAACExportCancelNotification";
inline constexpr char VLAACExportNotification[] = "VLAACExportNotification";
inline constexpr char VLAIFExportNotification[] = "VLAIFExportNotification";
inline constexpr char VLAudioCDHaveCDInfoNotification[] = "VLAudioCDHaveCDInfoNotification";
inline constexpr char VLBurnAudioCDWithArrayNotification[] = "VLBurnAudioCDWithArrayNotification";
inline constexpr char VLBurnAudioDVDWithArrayNotification[] = "VLBurnAudioDVDWithArrayNotification";
inline constexpr char VLBurnOpticalMediaWithDictionaryNotification[] = "VLBurnOpticalMediaWithDictionaryNotification";
inline constexpr char VLCLPWAVExportCancelNotification[] = "VLCLPWAVExportCancelNotification";
inline constexpr char VLCLPWAVExportNotification[] = "VLCLPWAVExportNotification";
inline constexpr char VLCOPYExportNotification[] = "VLCOPYExportNotification";
inline constexpr char VLCSWFileDropNotification[] = "VLCSWFileDropNotification";
inline constexpr char VLCliperCleanupBeforeTerminationNotification[] = "VLCliperCleanupBeforeTerminationNotification";
inline constexpr char VLCliperEjectCDNotification[] = "VLCliperEjectCDNotification";
inline constexpr char VLConvertItunesPlaylistNotification[] = "VLConvertItunesPlaylistNotification";
inline constexpr char VLConvertMediaIfNeededNotification[] = "VLConvertMediaIfNeededNotification";
inline constexpr char VLCopyToFlashV20Notification[] = "VLCopyToFlashV20Notification";
inline constexpr char VLDidAddMediaNotification[] = "VLDidAddMediaNotification";
inline constexpr char VLDidAddPlaylistNotification[] = "VLDidAddPlaylistNotification";
inline constexpr char VLDidChangeMediaNotification[] = "VLDidChangeMediaNotification";
inline constexpr char VLDidChangePlaylistNotification[] = "VLDidChangePlaylistNotification";
inline constexpr char VLDidCreateFileNotification[] = "VLDidCreateFileNotification";
inline constexpr char VLDidHidePlaylistNotification[] = "VLDidHidePlaylistNotification";
inline constexpr char VLDidLaunchNotification[] = "VLDidLaunchNotification";
inline constexpr char VLDidPreparseItunesNotification[] = "VLDidPreparseItunesNotification";
inline constexpr char VLDidSelectMediaNotification[] = "VLDidSelectMediaNotification";
inline constexpr char VLDidSelectPlaylistNotification[] = "VLDidSelectPlaylistNotification";
inline constexpr char VLEjectableMediaPlayingNotification[] = "VLEjectableMediaPlayingNotification";
inline constexpr char VLFileDropNotification[] = "VLFileDropNotification";
inline constexpr char VLFileOpenNotification[] = "VLFileOpenNotification";
inline constexpr char VLFreeDBDiscIDNotification[] = "VLFreeDBDiscIDNotification";
inline constexpr char VLHaveAlbumsInfoNotification[] = "VLHaveAlbumsInfoNotification";
inline constexpr char VLHaveCDInfoNotification[] = "VLHaveCDInfoNotification";
inline constexpr char VLHaveReqestedAlbumsInfoNotification[] = "VLHaveReqestedAlbumsInfoNotification";
inline constexpr char VLHaveReqestedCDInfoNotification[] = "VLHaveReqestedCDInfoNotification";
inline constexpr char VLLameFoundNewNotification[] = "VLLameFoundNewNotification";
inline constexpr char VLLameFoundNotification[] = "VLLameFoundNotification";
inline constexpr char VLM3UPlaylistNotification[] = "VLM3UPlaylistNotification";
inline constexpr char VLM4AExportNotification[] = "VLM4AExportNotification";
inline constexpr char VLM4BExportNotification[] = "VLM4BExportNotification";
inline constexpr char VLM4RExportNotification[] = "VLM4RExportNotification";
inline constexpr char VLMP2ExportCancelNotification[] = "VLMP2ExportCancelNotification";
inline constexpr char VLMP2ExportNotification[] = "VLMP2ExportNotification";
inline constexpr char VLMP3ExportCancelNotification[] = "VLMP3ExportCancelNotification";
inline constexpr char VLMP3ExportNotification[] = "VLMP3ExportNotification";
inline constexpr char VLMSWFileDropNotification[] = "VLMSWFileDropNotification";
inline constexpr char VLMountedCDWrapperNotification[] = "VLMountedCDWrapperNotification";
inline constexpr char VLNeedCDInfoNotification[] = "VLNeedCDInfoNotification";
inline constexpr char VLNeedSizeNotification[] = "VLNeedSizeNotification";
inline constexpr char VLOGGExportCancelNotification[] = "VLOGGExportCancelNotification";
inline constexpr char VLOGGExportNotification[] = "VLOGGExportNotification";
inline constexpr char VLPSWFileDropNotification[] = "VLPSWFileDropNotification";
inline constexpr char VLPlayListGroupInfoNotification[] = "VLPlayListGroupInfoNotification";
inline constexpr char VLPlayPlaylistNotification[] = "VLPlayPlaylistNotification";
inline constexpr char VLPlayerCleanupBeforeTerminationNotification[] = "VLPlayerCleanupBeforeTerminationNotification";
inline constexpr char VLPlayerEjectCDNotification[] = "VLPlayerEjectCDNotification";
inline constexpr char VLPlaylistInfoNotification[] = "VLPlaylistInfoNotification";
inline constexpr char VLReloadLibraryNotification[] = "VLReloadLibraryNotification";
inline constexpr char VLShouldCopyFilesNotification[] = "VLShouldCopyFilesNotification";
inline constexpr char VLTSWFileDropNotification[] = "VLTSWFileDropNotification";
inline constexpr char VLUnmountNotification[] = "VLUnmountNotification";
inline constexpr char VLV20CopyToFlashSetupNotification[] = "VLV20CopyToFlashSetupNotification";
inline constexpr char VLWAVExportCancelNotification[] = "VLWAVExportCancelNotification";
inline constexpr char VLWAVExportNotification[] = "VLWAVExportNotification";
inline constexpr char VLWMAExportCancelNotification[] = "VLWMAExportCancelNotification";
inline constexpr char VLWMAExportNotification[] = "VLWMAExportNotification";

// The export request of a target format key travels as "VL<key>ExportNotification".
#include <QString>
inline QString exportNotificationName(const QString& formatKey)
{
    return QStringLiteral("VL%1ExportNotification").arg(formatKey);
}
