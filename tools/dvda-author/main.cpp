// dvda-author: authors a DVD-Audio AUDIO_TS folder from WAV files.
//
//   dvda-author [-pp SECTOR] -o DIR -g FILE...
//
// All FILEs form group 1, one title, one track per file. SECTOR is where
// AUDIO_PP.IFO lies in the disc image built from DIR (isoinfo tells it after a
// first build); the audio-only players' track table points at absolute
// sectors, so a second run with it makes that table right for the image.
// Progress goes to stdout as "Progress: N%" lines, then one "Wrote PATH SIZE"
// line per file. Exit status: 0 written, 1 failed, 2 refused (bad arguments or
// input; nothing written).
#include "Author.h"

#include <charconv>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

int usage(const char* problem)
{
    if (problem)
        std::fprintf(stderr, "dvda-author: %s\n", problem);
    std::fprintf(stderr, "usage: dvda-author [-pp SECTOR] -o DIR -g FILE...\n");
    return 2;
}

} // namespace

int main(int argc, char** argv)
{
    dvda::AuthorOptions options;
    bool haveOutput = false;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            std::printf("usage: dvda-author [-pp SECTOR] -o DIR -g FILE...\n"
                        "Authors DIR/AUDIO_TS: one group, one title, each WAV file (16- or 24-bit,\n"
                        "44.1 to 192 kHz, 1 to 6 channels) a track of LPCM audio.\n"
                        "  -pp SECTOR  the sector of AUDIO_PP.IFO in the disc image\n");
            return 0;
        }
        if (arg == "-pp") {
            if (++i == argc)
                return usage("-pp needs a sector number");
            const char* text = argv[i];
            const char* end = text + std::strlen(text);
            auto [rest, error] = std::from_chars(text, end, options.ppSector);
            if (error != std::errc() || rest != end)
                return usage("-pp needs a sector number");
        } else if (arg == "-o") {
            if (++i == argc)
                return usage("-o needs a folder");
            options.outputDir = argv[i];
            haveOutput = true;
        } else if (arg == "-g") {
            for (++i; i < argc; ++i)
                options.inputs.emplace_back(argv[i]);
        } else {
            return usage(("unknown option " + arg).c_str());
        }
    }
    if (!haveOutput || options.outputDir.empty())
        return usage("no output folder (-o DIR)");
    if (options.inputs.empty())
        return usage("no audio files (-g FILE...)");

    options.progress = [](int percent) {
        std::printf("Progress: %d%%\n", percent);
        std::fflush(stdout);
    };
    const dvda::AuthorResult result = dvda::author(options);
    if (result.status != dvda::AuthorResult::Written) {
        std::fprintf(stderr, "dvda-author: %s\n", result.message.c_str());
        return result.status;
    }
    for (const auto& [name, size] : result.files)
        std::printf("Wrote %s %llu\n", name.c_str(), static_cast<unsigned long long>(size));
    std::fflush(stdout);
    return std::ferror(stdout) ? 1 : 0;
}
