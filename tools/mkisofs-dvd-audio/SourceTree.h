#pragma once
// The folder tree that goes onto the disc, read once before anything is written.
#include <cstdint>
#include <ctime>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

struct TreeError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Node {
    std::string name;     // the name as on disk; the UDF side keeps it
    std::string isoName;  // upper-case ISO 9660 identifier ("ATS_01_0.IFO;1", "AUDIO_TS")
    std::string source;   // full path to read the contents from
    bool isDirectory = false;
    std::uint64_t size = 0;
    std::time_t modified = 0;
    std::uint64_t device = 0, inode = 0;  // folders: to notice a link back to one of their parents
    Node* parent = nullptr;
    std::vector<std::unique_ptr<Node>> children;  // in ISO 9660 directory order

    // Placement, filled in by the layout.
    std::uint32_t sector = 0;       // files: first data sector; folders: ISO directory extent
    std::uint32_t isoDirBytes = 0;  // folders: size of the ISO directory extent
    std::uint32_t entryBlock = 0;   // UDF file entry, in partition blocks
    std::uint32_t udfDirBlock = 0;  // folders: UDF directory data, in partition blocks
    std::uint32_t udfDirBytes = 0;  // folders: length of the UDF directory data
    std::uint32_t uniqueId = 0;
    std::uint16_t pathTableNumber = 0;  // folders: 1-based number in the ISO path table
};

// Reads DIR into a tree; refuses what cannot go onto the disc with a TreeError
// that names the file (unreadable, not a plain file or folder, 4 GiB or more,
// two names that become the same ISO 9660 name).
std::unique_ptr<Node> readTree(const std::string& folder);

// The ISO 9660 form of a name: upper case, letters, digits and "_" only.
std::string isoFileName(const std::string& name);
std::string isoFolderName(const std::string& name);
// Strict ISO 9660 order of two identifiers of one directory.
bool isoLess(const std::string& a, const std::string& b);

// Folders, breadth first, root first; the ISO path table's order.
std::vector<Node*> foldersInPathTableOrder(Node& root);
// Files in the order their data is laid out: AUDIO_TS's files first, in the
// order DVD-Audio players read them, then VIDEO_TS's in DVD-Video order, then
// everything else folder by folder.
std::vector<Node*> filesInDataOrder(Node& root);
// Where a name of an AUDIO_TS or VIDEO_TS folder goes among its neighbours.
// Unknown names sort after the known ones.
std::string discOrderKey(const std::string& name);
