#pragma once
#include "disc/QuenlorFileProducer.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <memory>
#include <vector>

class Job;
struct burn_source;

// The folders and files of a data disc, laid out before the image is made.
// Each MP3 is fed by its producer; M3U files are held in memory.
struct DataDiscFolder {
    struct MemoryFile {
        QString name;
        QByteArray bytes;
    };
    QString name;
    std::vector<std::unique_ptr<DataDiscFolder>> folders;
    std::vector<std::unique_ptr<QuenlorFileProducer>> files;
    std::vector<MemoryFile> memoryFiles;

    // Folders and files so far, which numbers a new folder under preserve-order.
    int childCount() const { return int(folders.size() + files.size() + memoryFiles.size()); }
    DataDiscFolder* childFolder(const QString& name, bool preserveOrder);
};

struct DataDiscOptions {
    bool preserveOrder = false;
    bool stripID3v2 = false;
    bool appendID3v1 = true;
    bool joliet = true;
};

// The image of a data disc as libisofs makes it from the tree: Rock Ridge
// names always, Joliet names as set.
class DataDiscImage {
public:
    // Prepares every file (its disc name and size) and builds the image; false,
    // with the reason in *error, when it cannot be made. Files that cannot be
    // read are left out, each with a line in *leftOut.
    bool build(DataDiscFolder& root, bool joliet, QStringList* leftOut, QString* error);
    ~DataDiscImage();

    // The image as a source of 2048-byte blocks for a burner (the caller owns it).
    burn_source* source(QString* error);
    static void freeSource(burn_source* source);
    // Writes the image into a new file renamed over path once whole. "" on success.
    QString writeTo(Job& job, const QString& path);

private:
    struct Image;
    Image* image_ = nullptr;
};

// Finds or makes the folder a file goes into: each component of path is taken
// by a folder of the same name (under preserve-order, also one whose name is
// that name after its 3-digit prefix), the first missing one and every one
// after it made new ("%03d" of the parent's child count before the name under
// preserve-order). An empty path is the folder itself.
DataDiscFolder* createVirtualFoldersOnRoot(DataDiscFolder* root, QStringList components, bool preserveOrder);
