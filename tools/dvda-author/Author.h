#pragma once
#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace dvda {

// An AOB holds at most 1 GiB: 512 Ki packs.
constexpr std::uint32_t kAobSectorLimit = 512 * 1024;

struct AuthorOptions {
    std::string outputDir;           // AUDIO_TS goes inside it
    std::vector<std::string> inputs; // WAV files, one track each, in order
    std::uint32_t ppSector = 0;      // AUDIO_PP.IFO's sector in the finished image, 0 when unknown
    std::uint32_t aobSectorLimit = kAobSectorLimit;
    std::function<void(int percent)> progress;  // called each time the whole percentage changes
};

struct AuthorResult {
    enum Status { Written = 0, Failed = 1, Refused = 2 };
    Status status = Failed;
    std::string message;  // why it was refused or failed
    // The files written, relative to the output folder, with their sizes.
    std::vector<std::pair<std::string, std::uint64_t>> files;
};

// Authors one group (title set 1) holding one title, each input a track.
// Every input is checked before anything is written; a refusal leaves the
// output folder as it was. The new AUDIO_TS is built beside the old one and
// replaces it only once complete and on disk.
AuthorResult author(const AuthorOptions& options);

} // namespace dvda
