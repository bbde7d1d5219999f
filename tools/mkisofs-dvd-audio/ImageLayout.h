#pragma once
// Where everything goes in the image. The structures of both file systems
// come first, then each file's data in one run of sectors, AUDIO_TS first, and
// a closing UDF anchor in the last sector.
#include "SourceTree.h"

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

struct ImageLayout {
    std::vector<Node*> folders;  // path table order
    std::vector<Node*> files;    // data order
    std::uint32_t pathTableBytes = 0;
    std::uint32_t littleEndianPathTable = 0;
    std::uint32_t bigEndianPathTable = 0;
    std::uint32_t metadataSectors = 0;  // file data starts here
    std::uint32_t totalSectors = 0;     // the last one is the closing anchor

    std::uint32_t closingAnchorSector() const { return totalSectors - 1; }
};

// Gives every node its sectors. Throws TreeError when the image would be too
// large to address.
ImageLayout planImage(Node& root);

// Sectors [0, metadataSectors) of the image.
std::vector<std::uint8_t> buildMetadata(const ImageLayout& layout, const Node& root, const std::string& volumeId,
                                        std::time_t created);
// The image's last sector.
std::vector<std::uint8_t> buildClosingAnchor(const ImageLayout& layout);
