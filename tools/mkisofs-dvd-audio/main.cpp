// mkisofs-dvd-audio: builds a UDF 1.02 / ISO 9660 bridge image of a DVD-Audio
// folder, the AUDIO_TS files first and each in one run of sectors.
//
//   mkisofs-dvd-audio -V NAME -o IMAGE -dvd-audio DIR
#include "Bytes.h"
#include "ImageLayout.h"
#include "OutputImage.h"
#include "SourceTree.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

namespace {

constexpr const char* kUsage = "Usage: mkisofs-dvd-audio -V NAME -o IMAGE -dvd-audio DIR\n"
                               "Writes IMAGE, a UDF/ISO 9660 bridge disc image of DIR (its AUDIO_TS folder\n"
                               "and a VIDEO_TS folder if it has one) with the volume name NAME. The AUDIO_TS\n"
                               "files come first, in the order DVD-Audio players read them, each in one\n"
                               "piece. Prints \"Progress: N%\" lines, then \"Wrote IMAGE SECTORS sectors\".\n";

struct Arguments {
    std::string volumeId;
    std::string image;
    std::string folder;
};

bool parse(int argc, char** argv, Arguments& arguments)
{
    for (int i = 1; i < argc; ++i) {
        const std::string option = argv[i];
        std::string* value = option == "-V"           ? &arguments.volumeId
                             : option == "-o"         ? &arguments.image
                             : option == "-dvd-audio" ? &arguments.folder
                                                      : nullptr;
        if (!value || i + 1 >= argc)
            return false;
        *value = argv[++i];
    }
    return !arguments.image.empty() && !arguments.folder.empty();
}

class PercentPrinter {
public:
    explicit PercentPrinter(std::uint64_t total) : total_(total) {}
    void advance(std::uint64_t bytes)
    {
        done_ += bytes;
        const int percent = int(done_ * 100 / total_);
        if (percent != shown_) {
            shown_ = percent;
            std::printf("Progress: %d%%\n", percent);
            std::fflush(stdout);
        }
    }

private:
    std::uint64_t total_;
    std::uint64_t done_ = 0;
    int shown_ = -1;
};

void makeImage(const Arguments& arguments)
{
    const auto root = readTree(arguments.folder);
    const ImageLayout layout = planImage(*root);
    const std::vector<std::uint8_t> metadata = buildMetadata(layout, *root, arguments.volumeId, std::time(nullptr));

    PercentPrinter percent(std::uint64_t(layout.totalSectors) * bytes::kSectorSize);
    OutputImage image(arguments.image, [&](std::uint64_t bytes) { percent.advance(bytes); });
    image.create();
    image.write(metadata.data(), metadata.size());
    for (const Node* file : layout.files)
        image.copyFile(file->source, file->size);
    const std::vector<std::uint8_t> anchor = buildClosingAnchor(layout);
    image.write(anchor.data(), anchor.size());
    image.commit();
    std::printf("Wrote %s %u sectors\n", arguments.image.c_str(), layout.totalSectors);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0)) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    Arguments arguments;
    if (!parse(argc, argv, arguments)) {
        std::fputs(kUsage, stderr);
        return 1;
    }
    try {
        makeImage(arguments);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "mkisofs-dvd-audio: %s\n", error.what());
        return 1;
    }
    return 0;
}
