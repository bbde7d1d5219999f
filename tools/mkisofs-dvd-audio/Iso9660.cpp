#include "Iso9660.h"

#include "Bytes.h"

#include <cstdio>
#include <cstring>

using namespace bytes;

namespace iso9660 {
namespace {

constexpr std::uint8_t kDirectoryFlag = 0x02;

std::tm utc(std::time_t t)
{
    std::tm parts{};
    gmtime_r(&t, &parts);
    return parts;
}

// Seven-byte recording time of a directory record, in UTC.
void recordTime(std::uint8_t* p, std::time_t t)
{
    const std::tm parts = utc(t);
    p[0] = std::uint8_t(parts.tm_year);
    p[1] = std::uint8_t(parts.tm_mon + 1);
    p[2] = std::uint8_t(parts.tm_mday);
    p[3] = std::uint8_t(parts.tm_hour);
    p[4] = std::uint8_t(parts.tm_min);
    p[5] = std::uint8_t(parts.tm_sec);
    p[6] = 0;
}

// Seventeen-byte volume time: "YYYYMMDDHHMMSScc" and the zone offset.
void volumeTime(std::uint8_t* p, std::time_t t)
{
    const std::tm parts = utc(t);
    char digits[64];
    std::snprintf(digits, sizeof digits, "%04d%02d%02d%02d%02d%02d00", parts.tm_year + 1900, parts.tm_mon + 1,
                  parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
    std::memcpy(p, digits, 16);
    p[16] = 0;
}

void unsetVolumeTime(std::uint8_t* p)
{
    std::memset(p, '0', 16);
    p[16] = 0;
}

std::size_t recordLength(std::size_t identifierLength)
{
    return 33 + identifierLength + (identifierLength % 2 == 0 ? 1 : 0);
}

std::size_t writeRecord(std::uint8_t* p, const std::string& identifier, const Node& node)
{
    const std::size_t length = recordLength(identifier.size());
    p[0] = std::uint8_t(length);
    both32(p + 2, node.sector);
    both32(p + 10, node.isDirectory ? node.isoDirBytes : std::uint32_t(node.size));
    recordTime(p + 18, node.modified);
    p[25] = node.isDirectory ? kDirectoryFlag : 0;
    both16(p + 28, 1);
    p[32] = std::uint8_t(identifier.size());
    text(p + 33, identifier);
    return length;
}

struct Record {
    std::string identifier;
    const Node* node;
};

std::vector<Record> recordsOf(const Node& folder)
{
    std::vector<Record> records{{std::string(1, '\0'), &folder},
                                {std::string(1, '\1'), folder.parent ? folder.parent : &folder}};
    for (const auto& child : folder.children)
        records.push_back({child->isoName, child.get()});
    return records;
}

// Lays the records out sector by sector; writes them when `at` is given.
std::uint32_t layOut(const Node& folder, std::uint8_t* at)
{
    std::size_t offset = 0;
    for (const Record& record : recordsOf(folder)) {
        const std::size_t length = recordLength(record.identifier.size());
        if (offset % kSectorSize + length > kSectorSize)
            offset += kSectorSize - offset % kSectorSize;
        if (at)
            writeRecord(at + offset, record.identifier, *record.node);
        offset += length;
    }
    return std::uint32_t(sectorsFor(offset) * kSectorSize);
}

std::string pathTableIdentifier(const Node& folder)
{
    return folder.parent ? folder.isoName : std::string(1, '\0');
}

}  // namespace

std::uint32_t directoryBytes(const Node& folder)
{
    return layOut(folder, nullptr);
}

std::uint32_t pathTableBytes(const std::vector<Node*>& folders)
{
    std::uint32_t total = 0;
    for (const Node* folder : folders) {
        const std::size_t length = pathTableIdentifier(*folder).size();
        total += std::uint32_t(8 + length + length % 2);
    }
    return total;
}

void writePathTable(std::uint8_t* at, const std::vector<Node*>& folders, bool bigEndian)
{
    for (const Node* folder : folders) {
        const std::string identifier = pathTableIdentifier(*folder);
        const std::uint16_t parentNumber = folder->parent ? folder->parent->pathTableNumber : 1;
        at[0] = std::uint8_t(identifier.size());
        if (bigEndian) {
            be32(at + 2, folder->sector);
            be16(at + 6, parentNumber);
        } else {
            le32(at + 2, folder->sector);
            le16(at + 6, parentNumber);
        }
        text(at + 8, identifier);
        at += 8 + identifier.size() + identifier.size() % 2;
    }
}

void writeDirectory(std::uint8_t* at, const Node& folder)
{
    layOut(folder, at);
}

void writeVolumeDescriptors(std::uint8_t* sector16, const Volume& volume, const Node& root)
{
    std::uint8_t* p = sector16;
    p[0] = 1;
    text(p + 1, "CD001");
    p[6] = 1;
    padded(p + 8, 32, "LINUX");
    padded(p + 40, 32, volume.id);
    both32(p + 80, volume.totalSectors);
    both16(p + 120, 1);
    both16(p + 124, 1);
    both16(p + 128, kSectorSize);
    both32(p + 132, volume.pathTableBytes);
    le32(p + 140, volume.littleEndianPathTable);
    be32(p + 148, volume.bigEndianPathTable);
    writeRecord(p + 156, std::string(1, '\0'), root);
    padded(p + 190, 128, "");
    padded(p + 318, 128, "");
    padded(p + 446, 128, "");
    padded(p + 574, 128, "VELMORA MKISOFS-DVD-AUDIO");
    padded(p + 702, 37, "");
    padded(p + 739, 37, "");
    padded(p + 776, 37, "");
    volumeTime(p + 813, volume.created);
    volumeTime(p + 830, volume.created);
    unsetVolumeTime(p + 847);
    volumeTime(p + 864, volume.created);
    p[881] = 1;

    std::uint8_t* terminator = sector16 + kSectorSize;
    terminator[0] = 255;
    text(terminator + 1, "CD001");
    terminator[6] = 1;
}

}  // namespace iso9660
