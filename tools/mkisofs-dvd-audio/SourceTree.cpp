#include "SourceTree.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

// ISO 9660 level 2 allows 31 characters for a folder, 30 for a file's name and extension.
constexpr std::size_t kMaxIsoFolder = 31;
constexpr std::size_t kMaxIsoFile = 30;
// The ISO 9660 side records sizes in 32 bits.
constexpr std::uint64_t kMaxFileSize = 0xFFFFFFFFull;

char dCharacter(char c)
{
    if (c >= 'a' && c <= 'z')
        return char(c - 'a' + 'A');
    if ((c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_')
        return c;
    return '_';
}

std::string dCharacters(const std::string& s)
{
    std::string out;
    out.reserve(s.size());
    for (char c : s)
        if ((static_cast<unsigned char>(c) & 0xC0) != 0x80)  // one "_" for a whole UTF-8 sequence
            out += dCharacter(c);
    return out;
}

std::string upper(std::string s)
{
    for (char& c : s)
        if (c >= 'a' && c <= 'z')
            c = char(c - 'a' + 'A');
    return s;
}

[[noreturn]] void refuse(const std::string& path, const std::string& why)
{
    throw TreeError(path + ": " + why);
}

std::unique_ptr<Node> readEntry(const std::string& path, const std::string& name, Node* parent);

void readChildren(Node& folder)
{
    DIR* listing = ::opendir(folder.source.c_str());
    if (!listing)
        refuse(folder.source, std::strerror(errno));
    std::vector<std::string> names;
    errno = 0;
    while (dirent* entry = ::readdir(listing)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..")
            names.push_back(name);
    }
    const int readError = errno;
    ::closedir(listing);
    if (readError)
        refuse(folder.source, std::strerror(readError));

    for (const std::string& name : names)
        folder.children.push_back(readEntry(folder.source + "/" + name, name, &folder));
    std::sort(folder.children.begin(), folder.children.end(),
              [](const auto& a, const auto& b) { return isoLess(a->isoName, b->isoName); });
    for (std::size_t i = 1; i < folder.children.size(); ++i) {
        if (folder.children[i - 1]->isoName == folder.children[i]->isoName)
            refuse(folder.source, "\"" + folder.children[i - 1]->name + "\" and \"" + folder.children[i]->name +
                                      "\" would both be called " + folder.children[i]->isoName + " on the disc");
    }
}

std::unique_ptr<Node> readEntry(const std::string& path, const std::string& name, Node* parent)
{
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0)
        refuse(path, std::strerror(errno));
    auto node = std::make_unique<Node>();
    node->name = name;
    node->source = path;
    node->parent = parent;
    node->modified = info.st_mtime;
    node->device = info.st_dev;
    node->inode = info.st_ino;
    if (S_ISDIR(info.st_mode)) {
        for (const Node* above = parent; above; above = above->parent)
            if (above->device == node->device && above->inode == node->inode)
                refuse(path, "a link back to a folder that holds it");
        node->isDirectory = true;
        node->isoName = isoFolderName(name);
        readChildren(*node);
    } else if (S_ISREG(info.st_mode)) {
        if (std::uint64_t(info.st_size) > kMaxFileSize)
            refuse(path, "4 GiB or larger; a file on this disc must be smaller");
        if (::access(path.c_str(), R_OK) != 0)
            refuse(path, std::strerror(errno));
        node->size = std::uint64_t(info.st_size);
        node->isoName = isoFileName(name);
    } else {
        refuse(path, "not a plain file or folder");
    }
    return node;
}

void padCompare(const std::string& a, const std::string& b, int& order)
{
    for (std::size_t i = 0; order == 0 && i < std::max(a.size(), b.size()); ++i) {
        const unsigned char ca = i < a.size() ? a[i] : ' ';
        const unsigned char cb = i < b.size() ? b[i] : ' ';
        order = ca < cb ? -1 : (ca > cb ? 1 : 0);
    }
}

std::pair<std::string, std::string> splitIdentifier(const std::string& id)
{
    const std::string withoutVersion = id.substr(0, id.find(';'));
    const std::size_t dot = withoutVersion.find('.');
    if (dot == std::string::npos)
        return {withoutVersion, {}};
    return {withoutVersion.substr(0, dot), withoutVersion.substr(dot + 1)};
}

Node* childFolder(Node& root, const std::string& name)
{
    for (const auto& child : root.children)
        if (child->isDirectory && upper(child->name) == name)
            return child.get();
    return nullptr;
}

std::vector<Node*> filesInDiscOrder(Node* folder)
{
    std::vector<Node*> files;
    if (!folder)
        return files;
    for (const auto& child : folder->children)
        if (!child->isDirectory)
            files.push_back(child.get());
    std::stable_sort(files.begin(), files.end(),
                     [](const Node* a, const Node* b) { return discOrderKey(a->name) < discOrderKey(b->name); });
    return files;
}

}  // namespace

std::string isoFileName(const std::string& name)
{
    const std::size_t dot = name.rfind('.');
    std::string base = dCharacters(name.substr(0, dot));
    std::string extension = dot == std::string::npos ? std::string() : dCharacters(name.substr(dot + 1));
    if (extension.size() > kMaxIsoFile - 1)
        extension.resize(kMaxIsoFile - 1);
    if (base.size() + extension.size() > kMaxIsoFile)
        base.resize(kMaxIsoFile - extension.size());
    return base + "." + extension + ";1";
}

std::string isoFolderName(const std::string& name)
{
    std::string iso = dCharacters(name);
    if (iso.size() > kMaxIsoFolder)
        iso.resize(kMaxIsoFolder);
    return iso;
}

bool isoLess(const std::string& a, const std::string& b)
{
    const auto [baseA, extensionA] = splitIdentifier(a);
    const auto [baseB, extensionB] = splitIdentifier(b);
    int order = 0;
    padCompare(baseA, baseB, order);
    padCompare(extensionA, extensionB, order);
    return order < 0;
}

std::string discOrderKey(const std::string& name)
{
    const std::string u = upper(name);
    static const std::pair<const char*, const char*> kFixed[] = {
        {"AUDIO_TS.IFO", "A0"}, {"AUDIO_TS.VOB", "A1"}, {"AUDIO_TS.BUP", "A2"}, {"AUDIO_PP.IFO", "A3"},
        {"AUDIO_SV.IFO", "A4"}, {"AUDIO_SV.VOB", "A5"}, {"AUDIO_SV.BUP", "A6"}, {"VIDEO_TS.IFO", "A0"},
        {"VIDEO_TS.VOB", "A1"}, {"VIDEO_TS.BUP", "A2"},
    };
    for (const auto& [fixedName, key] : kFixed)
        if (u == fixedName)
            return key;

    // Title sets: ATS_nn_0.IFO, ATS_nn_1.AOB ..., ATS_nn_0.BUP (VTS_ and .VOB alike),
    // so each set's information file leads its audio and its backup closes it.
    const auto digit = [&](std::size_t i) { return u[i] >= '0' && u[i] <= '9'; };
    const bool titleSet = u.size() == 12 && (u.compare(0, 4, "ATS_") == 0 || u.compare(0, 4, "VTS_") == 0) &&
                          digit(4) && digit(5) && u[6] == '_' && digit(7) && u[8] == '.';
    if (titleSet) {
        const std::string set = u.substr(4, 2), extension = u.substr(9);
        if (extension == "IFO" && u[7] == '0')
            return "B" + set + "0";
        if (extension == "AOB" || extension == "VOB")
            return "B" + set + "1" + u[7];
        if (extension == "BUP" && u[7] == '0')
            return "B" + set + "2";
    }
    return "Z" + u;
}

std::unique_ptr<Node> readTree(const std::string& folder)
{
    struct stat info {};
    if (::stat(folder.c_str(), &info) != 0)
        refuse(folder, std::strerror(errno));
    if (!S_ISDIR(info.st_mode))
        refuse(folder, "not a folder");
    auto root = std::make_unique<Node>();
    root->source = folder;
    root->isDirectory = true;
    root->modified = info.st_mtime;
    root->device = info.st_dev;
    root->inode = info.st_ino;
    readChildren(*root);
    return root;
}

std::vector<Node*> foldersInPathTableOrder(Node& root)
{
    std::vector<Node*> folders;
    std::deque<Node*> waiting{&root};
    while (!waiting.empty()) {
        Node* folder = waiting.front();
        waiting.pop_front();
        folders.push_back(folder);
        for (const auto& child : folder->children)
            if (child->isDirectory)
                waiting.push_back(child.get());
    }
    return folders;
}

std::vector<Node*> filesInDataOrder(Node& root)
{
    Node* audio = childFolder(root, "AUDIO_TS");
    Node* video = childFolder(root, "VIDEO_TS");
    std::vector<Node*> files = filesInDiscOrder(audio);
    const std::vector<Node*> videoFiles = filesInDiscOrder(video);
    files.insert(files.end(), videoFiles.begin(), videoFiles.end());
    for (Node* folder : foldersInPathTableOrder(root)) {
        if (folder == audio || folder == video)
            continue;
        for (const auto& child : folder->children)
            if (!child->isDirectory)
                files.push_back(child.get());
    }
    return files;
}
