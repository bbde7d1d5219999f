#pragma once
// The ISO 9660 side of the image: volume descriptors, path tables, directories.
#include "SourceTree.h"

#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

namespace iso9660 {

// Bytes of a folder's directory extent (whole sectors; records never cross one).
std::uint32_t directoryBytes(const Node& folder);
// Bytes of one path table listing these folders (in path table order).
std::uint32_t pathTableBytes(const std::vector<Node*>& folders);

// The primary volume descriptor (sector 16) and the set terminator (sector 17).
struct Volume {
    std::string id;
    std::uint32_t totalSectors = 0;
    std::uint32_t pathTableBytes = 0;
    std::uint32_t littleEndianPathTable = 0;  // sectors
    std::uint32_t bigEndianPathTable = 0;
    std::time_t created = 0;
};
void writeVolumeDescriptors(std::uint8_t* sector16, const Volume& volume, const Node& root);

void writePathTable(std::uint8_t* at, const std::vector<Node*>& folders, bool bigEndian);
void writeDirectory(std::uint8_t* at, const Node& folder);

}  // namespace iso9660
