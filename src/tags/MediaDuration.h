#pragma once
#include <QString>

// The play time of any audio file in whole seconds: TagLib's audio properties,
// else GStreamer's discoverer. -1 when neither can open the file.
int mediaDurationSeconds(const QString& path);
