#include "ImageLayout.h"

#include "Bytes.h"
#include "Iso9660.h"
#include "Udf.h"

using namespace bytes;

namespace {

// UDF keeps unique ids 1 to 15 for other uses; the root has 0.
constexpr std::uint32_t kFirstUniqueId = 16;
constexpr std::uint64_t kMaxSectors = 0xFFFFFFFFull;

class SectorCursor {
public:
    explicit SectorCursor(std::uint64_t start) : next_(start) {}
    std::uint32_t take(std::uint64_t sectors)
    {
        const std::uint64_t first = next_;
        next_ += sectors;
        if (next_ >= kMaxSectors)
            throw TreeError("the files are too large for one disc image");
        return std::uint32_t(first);
    }
    std::uint32_t next() const { return std::uint32_t(next_); }

private:
    std::uint64_t next_;
};

std::uint8_t* sectorAt(std::vector<std::uint8_t>& image, std::uint32_t sector)
{
    return image.data() + std::size_t(sector) * kSectorSize;
}

}  // namespace

ImageLayout planImage(Node& root)
{
    ImageLayout layout;
    layout.folders = foldersInPathTableOrder(root);
    layout.files = filesInDataOrder(root);
    if (layout.folders.size() > 0xFFFF)
        throw TreeError("more than 65,535 folders; an ISO 9660 path table cannot number them");

    std::uint32_t uniqueId = kFirstUniqueId;
    std::uint16_t pathTableNumber = 1;
    for (Node* folder : layout.folders) {
        folder->uniqueId = folder == &root ? 0 : uniqueId++;
        folder->pathTableNumber = pathTableNumber++;
    }
    for (Node* file : layout.files)
        file->uniqueId = uniqueId++;

    // Inside the partition: the file set and its terminator, each folder's
    // entry followed by its identifiers, then the files' entries.
    SectorCursor block(udf::kFileSetBlock + 2);
    for (Node* folder : layout.folders) {
        folder->entryBlock = block.take(1);
        folder->udfDirBytes = udf::directoryBytes(*folder);
        folder->udfDirBlock = block.take(sectorsFor(folder->udfDirBytes));
    }
    for (Node* file : layout.files)
        file->entryBlock = block.take(1);

    // Then the ISO 9660 path tables and directories, then the data.
    SectorCursor sector(std::uint64_t(udf::kPartitionStart) + block.next());
    layout.pathTableBytes = iso9660::pathTableBytes(layout.folders);
    layout.littleEndianPathTable = sector.take(sectorsFor(layout.pathTableBytes));
    layout.bigEndianPathTable = sector.take(sectorsFor(layout.pathTableBytes));
    for (Node* folder : layout.folders) {
        folder->isoDirBytes = iso9660::directoryBytes(*folder);
        folder->sector = sector.take(folder->isoDirBytes / kSectorSize);
    }
    layout.metadataSectors = sector.next();
    for (Node* file : layout.files)
        file->sector = sector.take(sectorsFor(file->size));
    layout.totalSectors = sector.take(1) + 1;
    return layout;
}

std::vector<std::uint8_t> buildMetadata(const ImageLayout& layout, const Node& root, const std::string& volumeId,
                                        std::time_t created)
{
    std::vector<std::uint8_t> image(std::size_t(layout.metadataSectors) * kSectorSize);

    const iso9660::Volume isoVolume{
        volumeId, layout.totalSectors, layout.pathTableBytes, layout.littleEndianPathTable, layout.bigEndianPathTable,
        created};
    iso9660::writeVolumeDescriptors(sectorAt(image, 16), isoVolume, root);
    iso9660::writePathTable(sectorAt(image, layout.littleEndianPathTable), layout.folders, false);
    iso9660::writePathTable(sectorAt(image, layout.bigEndianPathTable), layout.folders, true);
    for (const Node* folder : layout.folders)
        iso9660::writeDirectory(sectorAt(image, folder->sector), *folder);

    udf::writeRecognitionSequence(sectorAt(image, 18));
    const udf::Volume udfVolume{volumeId,
                                created,
                                layout.closingAnchorSector() - udf::kPartitionStart,
                                root.entryBlock,
                                std::uint32_t(layout.files.size()),
                                std::uint32_t(layout.folders.size()),
                                kFirstUniqueId + std::uint32_t(layout.folders.size() - 1 + layout.files.size())};
    udf::writeVolumeStructures(image.data(), udfVolume);
    std::uint8_t* partition = sectorAt(image, udf::kPartitionStart);
    udf::writeFileSet(partition, udfVolume);
    for (const Node* folder : layout.folders) {
        udf::writeFileEntry(partition + std::size_t(folder->entryBlock) * kSectorSize, *folder);
        udf::writeDirectory(partition + std::size_t(folder->udfDirBlock) * kSectorSize, *folder);
    }
    for (const Node* file : layout.files)
        udf::writeFileEntry(partition + std::size_t(file->entryBlock) * kSectorSize, *file);
    return image;
}

std::vector<std::uint8_t> buildClosingAnchor(const ImageLayout& layout)
{
    std::vector<std::uint8_t> sector(kSectorSize);
    udf::writeAnchor(sector.data(), layout.closingAnchorSector());
    return sector;
}
