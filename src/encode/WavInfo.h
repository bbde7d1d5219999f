#pragma once
#include <QString>

// Whether a file is a RIFF/WAVE file, and its bits per sample (0 when the
// format chunk is missing or cut short).
bool getWAVInfo(const QString& path, int* sampleBits);
