#pragma once
#include <optional>
#include <string>

// What a converter settings file asks for. The files are "key=value" lines;
// blank lines and lines starting with '#' are ignored:
//   format=wav|aac   output: 16-bit PCM WAV, or AAC in an MP4 container
//   rate=N           sample rate in Hz (absent: keep the source's)
//   channels=N       channel count (absent: keep the source's)
//   bitrate=N        AAC bit rate in kbit/s (required for aac)
struct ConversionSettings {
    enum class Format { Wav, Aac };
    Format format = Format::Wav;
    int sampleRate = 0;
    int channels = 0;
    int bitrateKbps = 0;
};

// Reads and checks a settings file; on failure returns nothing and says why in *error.
std::optional<ConversionSettings> readConversionSettings(const std::string& path, std::string* error);
