#pragma once
// The UDF 1.02 side of the image: recognition sequence, volume descriptors,
// anchors, the file set and the file entries. One partition starts right after
// the anchor at sector 256; its blocks are the image's sectors.
#include "SourceTree.h"

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>

namespace udf {

constexpr std::uint32_t kAnchorSector = 256;
constexpr std::uint32_t kMainSequenceSector = 32;
constexpr std::uint32_t kReserveSequenceSector = 48;
constexpr std::uint32_t kIntegritySector = 64;
constexpr std::uint32_t kPartitionStart = kAnchorSector + 1;
constexpr std::uint32_t kFileSetBlock = 0;  // then its terminator at block 1

// CRC-CCITT of descriptor bodies (x^16 + x^12 + x^5 + 1, starting at 0).
std::uint16_t crc(const std::uint8_t* data, std::size_t length);

struct Volume {
    std::string id;
    std::time_t created = 0;
    std::uint32_t partitionLength = 0;  // blocks
    std::uint32_t rootEntryBlock = 0;
    std::uint32_t fileCount = 0;
    std::uint32_t folderCount = 0;
    std::uint32_t nextUniqueId = 0;
};

// BEA01, NSR02, TEA01 in the three sectors from here.
void writeRecognitionSequence(std::uint8_t* firstSector);
// Both volume descriptor sequences, the integrity sequence and the anchor at 256;
// `image` is the start of the image.
void writeVolumeStructures(std::uint8_t* image, const Volume& volume);
void writeAnchor(std::uint8_t* sector, std::uint32_t location);
// The file set descriptor and its terminator, at the partition's first two blocks.
void writeFileSet(std::uint8_t* partition, const Volume& volume);

// Bytes of a folder's file identifiers (its parent's first).
std::uint32_t directoryBytes(const Node& folder);
void writeDirectory(std::uint8_t* at, const Node& folder);
void writeFileEntry(std::uint8_t* block, const Node& node);

}  // namespace udf
