#include "Udf.h"

#include "Bytes.h"

#include <algorithm>
#include <cstdio>

using namespace bytes;

namespace udf {
namespace {

enum TagId : std::uint16_t {
    PrimaryVolume = 1,
    Anchor = 2,
    ImplementationUseVolume = 4,
    Partition = 5,
    LogicalVolume = 6,
    UnallocatedSpace = 7,
    Terminating = 8,
    LogicalVolumeIntegrity = 9,
    FileSet = 256,
    FileIdentifier = 257,
    FileEntry = 261,
};

constexpr std::uint16_t kDescriptorVersion = 2;  // NSR02
constexpr std::uint16_t kUdfRevision = 0x0102;
constexpr std::uint8_t kOsClassUnix = 4, kOsLinux = 5;
constexpr std::uint32_t kSequenceLength = 16 * kSectorSize;
// A short allocation descriptor holds at most 2^30 - 1 bytes, and every extent
// but a file's last must be whole blocks.
constexpr std::uint32_t kMaxExtent = (1u << 30) - kSectorSize;
constexpr std::uint8_t kCharacteristicDirectory = 0x02, kCharacteristicParent = 0x08;
constexpr std::uint8_t kFileTypeDirectory = 4, kFileTypeFile = 5;
// Read for everybody; folders may also be searched.
constexpr std::uint32_t kFilePermissions = 0x04 | 0x04 << 5 | 0x04 << 10;
constexpr std::uint32_t kFolderPermissions = 0x05 | 0x05 << 5 | 0x05 << 10;
constexpr std::uint32_t kNoOwner = 0xFFFFFFFF;
// Short allocation descriptors; the data is contiguous and must not be moved.
constexpr std::uint16_t kContiguousShortAds = 1 << 4 | 1 << 9;

void finishTag(std::uint8_t* d, std::uint16_t id, std::uint32_t location, std::size_t totalLength)
{
    le16(d, id);
    le16(d + 2, kDescriptorVersion);
    le16(d + 8, crc(d + 16, totalLength - 16));
    le16(d + 10, std::uint16_t(totalLength - 16));
    le32(d + 12, location);
    std::uint8_t sum = 0;
    for (int i = 0; i < 16; ++i)
        if (i != 4)
            sum = std::uint8_t(sum + d[i]);
    d[4] = sum;
}

void regid(std::uint8_t* p, std::string_view identifier, std::initializer_list<std::uint8_t> suffix)
{
    text(p + 1, identifier);
    std::copy(suffix.begin(), suffix.end(), p + 24);
}
void implementationId(std::uint8_t* p)
{
    regid(p, "*Velmora", {kOsClassUnix, kOsLinux});
}
void domainId(std::uint8_t* p)
{
    // Revision 1.02, hard and soft write-protected.
    regid(p, "*OSTA UDF Compliant", {std::uint8_t(kUdfRevision), std::uint8_t(kUdfRevision >> 8), 3});
}
void charspec(std::uint8_t* p)
{
    text(p + 1, "OSTA Compressed Unicode");
}

void timestamp(std::uint8_t* p, std::time_t t)
{
    std::tm parts{};
    gmtime_r(&t, &parts);
    le16(p, 0x1000);  // local time, zone offset 0: UTC
    le16(p + 2, std::uint16_t(parts.tm_year + 1900));
    p[4] = std::uint8_t(parts.tm_mon + 1);
    p[5] = std::uint8_t(parts.tm_mday);
    p[6] = std::uint8_t(parts.tm_hour);
    p[7] = std::uint8_t(parts.tm_min);
    p[8] = std::uint8_t(parts.tm_sec);
}

std::u32string decodeUtf8(const std::string& s)
{
    std::u32string out;
    for (std::size_t i = 0; i < s.size();) {
        const unsigned char lead = s[i];
        const int extra = lead < 0x80 ? 0 : (lead >> 5) == 6 ? 1 : (lead >> 4) == 14 ? 2 : (lead >> 3) == 30 ? 3 : -1;
        char32_t c = extra == 0 ? lead : extra == 1 ? lead & 0x1F : extra == 2 ? lead & 0x0F : lead & 0x07;
        bool valid = extra >= 0 && i + std::size_t(extra) < s.size();
        for (int k = 1; valid && k <= extra; ++k) {
            const unsigned char next = s[i + std::size_t(k)];
            valid = (next & 0xC0) == 0x80;
            c = (c << 6) | (next & 0x3F);
        }
        if (!valid) {
            // A name that is not UTF-8: take its bytes as Latin-1.
            out += char32_t(lead);
            ++i;
            continue;
        }
        out += c;
        i += std::size_t(extra) + 1;
    }
    return out;
}

// OSTA compressed Unicode: one byte per character when Latin-1 holds them all,
// else two (big-endian); characters beyond 16 bits become "_".
std::string ostaCompressed(const std::string& utf8)
{
    const std::u32string characters = decodeUtf8(utf8);
    const bool narrow = std::all_of(characters.begin(), characters.end(), [](char32_t c) { return c <= 0xFF; });
    std::string out(1, char(narrow ? 8 : 16));
    for (char32_t c : characters) {
        if (c > 0xFFFF)
            c = '_';
        if (!narrow)
            out += char(c >> 8);
        out += char(c & 0xFF);
    }
    return out;
}

// A fixed-width field whose last byte says how many bytes are used.
void dstring(std::uint8_t* p, std::size_t width, const std::string& utf8)
{
    if (utf8.empty())
        return;
    std::string encoded = ostaCompressed(utf8);
    if (encoded.size() > width - 1) {
        const std::size_t unit = encoded[0] == 8 ? 1 : 2;
        encoded.resize(1 + (width - 2) / unit * unit);
    }
    text(p, encoded);
    p[width - 1] = std::uint8_t(encoded.size());
}

void extentAd(std::uint8_t* p, std::uint32_t length, std::uint32_t location)
{
    le32(p, length);
    le32(p + 4, location);
}

// A long allocation descriptor naming one block of the partition; the
// implementation-use bytes carry the target's unique id.
void longAd(std::uint8_t* p, std::uint32_t length, std::uint32_t block, std::uint32_t uniqueId = 0)
{
    le32(p, length);
    le32(p + 4, block);
    le32(p + 12, uniqueId);
}

std::string volumeSetId(const Volume& volume)
{
    char unique[32];
    std::snprintf(unique, sizeof unique, "%08X%08X", unsigned(volume.created),
                  unsigned(crc(reinterpret_cast<const std::uint8_t*>(volume.id.data()), volume.id.size())));
    return unique;
}

void writeSequence(std::uint8_t* image, std::uint32_t first, const Volume& volume)
{
    std::uint8_t* p = image + std::size_t(first) * kSectorSize;
    std::uint32_t sequenceNumber = 0;

    le32(p + 16, sequenceNumber++);
    dstring(p + 24, 32, volume.id);
    le16(p + 56, 1);
    le16(p + 58, 1);
    le16(p + 60, 2);
    le16(p + 62, 2);
    le32(p + 64, 1);
    le32(p + 68, 1);
    dstring(p + 72, 128, volumeSetId(volume));
    charspec(p + 200);
    charspec(p + 264);
    timestamp(p + 376, volume.created);
    implementationId(p + 388);
    finishTag(p, PrimaryVolume, first, 512);

    p += kSectorSize;
    le32(p + 16, sequenceNumber++);
    regid(p + 20, "*UDF LV Info",
          {std::uint8_t(kUdfRevision), std::uint8_t(kUdfRevision >> 8), kOsClassUnix, kOsLinux});
    charspec(p + 52);
    dstring(p + 116, 128, volume.id);
    implementationId(p + 352);
    finishTag(p, ImplementationUseVolume, first + 1, 512);

    p += kSectorSize;
    le32(p + 16, sequenceNumber++);
    le16(p + 20, 1);  // allocated
    le16(p + 22, 0);  // partition number
    p[24] = 2;        // the contents identifier is protected
    regid(p + 24, "+NSR02", {});
    le32(p + 184, 1);  // read-only
    le32(p + 188, kPartitionStart);
    le32(p + 192, volume.partitionLength);
    implementationId(p + 196);
    finishTag(p, Partition, first + 2, 512);

    p += kSectorSize;
    le32(p + 16, sequenceNumber++);
    charspec(p + 20);
    dstring(p + 84, 128, volume.id);
    le32(p + 212, kSectorSize);
    domainId(p + 216);
    longAd(p + 248, 2 * kSectorSize, kFileSetBlock);
    le32(p + 264, 6);  // one type 1 partition map of 6 bytes
    le32(p + 268, 1);
    implementationId(p + 272);
    extentAd(p + 432, 2 * kSectorSize, kIntegritySector);
    p[440] = 1;
    p[441] = 6;
    le16(p + 442, 1);  // volume sequence number
    le16(p + 444, 0);  // partition number
    finishTag(p, LogicalVolume, first + 3, 446);

    p += kSectorSize;
    le32(p + 16, sequenceNumber++);
    finishTag(p, UnallocatedSpace, first + 4, 24);

    p += kSectorSize;
    finishTag(p, Terminating, first + 5, 512);
}

void writeIntegrity(std::uint8_t* image, const Volume& volume)
{
    std::uint8_t* p = image + std::size_t(kIntegritySector) * kSectorSize;
    timestamp(p + 16, volume.created);
    le32(p + 28, 1);  // closed
    le64(p + 40, volume.nextUniqueId);
    le32(p + 72, 1);   // partitions
    le32(p + 76, 46);  // implementation use bytes
    le32(p + 80, 0);   // free blocks
    le32(p + 84, volume.partitionLength);
    implementationId(p + 88);
    le32(p + 120, volume.fileCount);
    le32(p + 124, volume.folderCount);
    le16(p + 128, kUdfRevision);  // lowest revision that may read,
    le16(p + 130, kUdfRevision);  // write,
    le16(p + 132, kUdfRevision);  // and the highest that wrote
    finishTag(p, LogicalVolumeIntegrity, kIntegritySector, 134);
    finishTag(p + kSectorSize, Terminating, kIntegritySector + 1, 512);
}

std::size_t identifierLength(const std::string& name)
{
    return name.empty() ? 0 : ostaCompressed(name).size();
}

std::size_t fidLength(std::size_t identifierBytes)
{
    return (38 + identifierBytes + 3) / 4 * 4;
}

std::size_t writeFid(std::uint8_t* p, std::uint32_t location, std::uint8_t characteristics, const std::string& name,
                     const Node& target)
{
    const std::string identifier = name.empty() ? std::string() : ostaCompressed(name);
    const std::size_t length = fidLength(identifier.size());
    le16(p + 16, 1);  // file version
    p[18] = characteristics;
    p[19] = std::uint8_t(identifier.size());
    longAd(p + 20, kSectorSize, target.entryBlock, target.uniqueId);
    text(p + 38, identifier);
    finishTag(p, FileIdentifier, location, length);
    return length;
}

}  // namespace

std::uint16_t crc(const std::uint8_t* data, std::size_t length)
{
    std::uint16_t value = 0;
    for (std::size_t i = 0; i < length; ++i) {
        value ^= std::uint16_t(data[i] << 8);
        for (int bit = 0; bit < 8; ++bit)
            value = std::uint16_t(value & 0x8000 ? (value << 1) ^ 0x1021 : value << 1);
    }
    return value;
}

void writeRecognitionSequence(std::uint8_t* firstSector)
{
    const char* const identifiers[] = {"BEA01", "NSR02", "TEA01"};
    for (const char* identifier : identifiers) {
        text(firstSector + 1, identifier);
        firstSector[6] = 1;
        firstSector += kSectorSize;
    }
}

void writeAnchor(std::uint8_t* sector, std::uint32_t location)
{
    extentAd(sector + 16, kSequenceLength, kMainSequenceSector);
    extentAd(sector + 24, kSequenceLength, kReserveSequenceSector);
    finishTag(sector, Anchor, location, 512);
}

void writeVolumeStructures(std::uint8_t* image, const Volume& volume)
{
    writeSequence(image, kMainSequenceSector, volume);
    writeSequence(image, kReserveSequenceSector, volume);
    writeIntegrity(image, volume);
    writeAnchor(image + std::size_t(kAnchorSector) * kSectorSize, kAnchorSector);
}

void writeFileSet(std::uint8_t* partition, const Volume& volume)
{
    std::uint8_t* p = partition + std::size_t(kFileSetBlock) * kSectorSize;
    timestamp(p + 16, volume.created);
    le16(p + 28, 3);  // interchange level
    le16(p + 30, 3);
    le32(p + 32, 1);  // character set list: CS0
    le32(p + 36, 1);
    charspec(p + 48);
    dstring(p + 112, 128, volume.id);
    charspec(p + 240);
    dstring(p + 304, 32, volume.id);
    longAd(p + 400, kSectorSize, volume.rootEntryBlock);
    domainId(p + 416);
    finishTag(p, FileSet, kFileSetBlock, 512);
    finishTag(p + kSectorSize, Terminating, kFileSetBlock + 1, 512);
}

std::uint32_t directoryBytes(const Node& folder)
{
    std::size_t total = fidLength(0);
    for (const auto& child : folder.children)
        total += fidLength(identifierLength(child->name));
    return std::uint32_t(total);
}

void writeDirectory(std::uint8_t* at, const Node& folder)
{
    std::size_t offset = 0;
    const auto location = [&] { return folder.udfDirBlock + std::uint32_t(offset / kSectorSize); };
    offset += writeFid(at, location(), kCharacteristicDirectory | kCharacteristicParent, {},
                       folder.parent ? *folder.parent : folder);
    for (const auto& child : folder.children)
        offset +=
            writeFid(at + offset, location(), child->isDirectory ? kCharacteristicDirectory : 0, child->name, *child);
}

void writeFileEntry(std::uint8_t* block, const Node& node)
{
    std::uint8_t* p = block;
    le16(p + 20, 4);  // strategy 4: a single entry
    le16(p + 24, 1);
    p[27] = node.isDirectory ? kFileTypeDirectory : kFileTypeFile;
    le16(p + 34, kContiguousShortAds);
    le32(p + 36, kNoOwner);
    le32(p + 40, kNoOwner);
    le32(p + 44, node.isDirectory ? kFolderPermissions : kFilePermissions);
    std::uint16_t links = 1;
    for (const auto& child : node.children)
        links = std::uint16_t(links + (child->isDirectory ? 1 : 0));
    le16(p + 48, links);

    const std::uint64_t length = node.isDirectory ? node.udfDirBytes : node.size;
    le64(p + 56, length);
    le64(p + 64, sectorsFor(length));
    for (int at : {72, 84, 96})
        timestamp(p + at, node.modified);
    le32(p + 108, 1);  // checkpoint
    implementationId(p + 128);
    le64(p + 160, node.uniqueId);

    std::uint32_t block0 = node.isDirectory ? node.udfDirBlock : node.sector - kPartitionStart;
    std::uint64_t left = length;
    std::size_t descriptors = 0;
    while (left > 0) {
        const std::uint32_t extent = std::uint32_t(std::min<std::uint64_t>(left, kMaxExtent));
        std::uint8_t* ad = p + 176 + descriptors * 8;
        le32(ad, extent);
        le32(ad + 4, block0);
        block0 += extent / kSectorSize;
        left -= extent;
        ++descriptors;
    }
    le32(p + 172, std::uint32_t(descriptors * 8));
    finishTag(p, FileEntry, node.entryBlock, 176 + descriptors * 8);
}

}  // namespace udf
