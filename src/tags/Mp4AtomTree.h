#pragma once
#include <QByteArray>
#include <QIODevice>
#include <QString>
#include <QStringList>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

// The atom tree of an ISO base media file (MP4, M4A, M4B, M4P, M4R): a flat,
// file-ordered list of atoms with their nesting depth. Each scan is its own
// object, so several files can be read at once on different threads.
namespace mp4 {

// Whether an atom holds children, data, or both.
enum ContainerState : uint8_t {
    kParentAtom = 0,
    kSimpleParentAtom = 1,
    kDualStateAtom = 2,  // a versioned header followed by children
    kChildAtom = 3,      // holds data only
    kUnknownAtomType = 4,
};

// How often an atom may occur under its parent (informative only).
enum Presence : uint8_t {
    kRequiredOnce = 30,
    kRequiredOne = 31,
    kRequiredFamilialOne = 32,
    kOptionalOnce = 33,
    kOptionalOne = 34,
    kOptionalMany = 35,
    kParentSpecific = 36,
    kRequiredVariable = 37,
    kUnknownRequirements = 38,
};

// The shape of an atom's header.
enum HeaderKind : uint8_t {
    kSimpleAtom = 50,
    kVersionedAtom = 51,      // 4 bytes of version and flags after the header
    kExtendedAtom = 52,       // uuid
    kPackedLanguageAtom = 53, // 3GP asset with a packed language code
    kUnknownAtom = 59,
};

enum UuidStyle : uint8_t {
    kNoUuid = 0,
    kUuidNamed = 1,  // version-5 UUID in the AtomicParsley namespace, recorded under its name
    kUuidOther = 2,
};

// One row of the known-atom table. Parents name atom types or one of
// "FILE_LEVEL", "_ANY_LEVEL", "ITUNES_METADATA" (any item under "ilst") and
// "SAMPLE_DESC" (any sample entry under "stsd").
struct KnownAtom {
    const char* name;  // 4 characters, or a pattern: "<()>" unknown, "(..)" any item, ".><." any dref entry
    std::array<const char*, 5> parents;
    ContainerState containerState;
    Presence presence;
    HeaderKind headerKind;
};
constexpr int kKnownAtomCount = 187;
extern const std::array<KnownAtom, kKnownAtomCount> kKnownAtoms;

struct AtomRecord {
    int16_t number = 0;
    uint32_t start = 0;
    uint32_t length = 0;          // clamped to the file (and to a corrupt "data" atom's parent)
    uint64_t extendedLength = 0;  // the 64-bit size when the size field was 1
    char name[20] = {};           // the type; a named uuid's name; the raw UUID of another uuid
    uint8_t containerState = kUnknownAtomType;
    uint8_t classification = kUnknownAtom;
    uint32_t versionFlags = 0;    // for "data" atoms: the class (0 implicit, 1 UTF-8, 21 integer, 13/14 pictures)
    uint16_t language = 0;
    uint8_t level = 1;            // top of the file is 1
    uint8_t uuidStyle = kNoUuid;
    uint32_t ancillaryData = 0;   // "ftyp": the major brand

    uint64_t end() const { return uint64_t(start) + length; }
    bool mayHoldChildren() const { return containerState <= kDualStateAtom; }
    std::string_view type() const { return {name, 4}; }
    bool isType(std::string_view fourCharacters) const { return type() == fourCharacters; }
    uint32_t dataClass() const { return versionFlags & 0x00FFFFFF; }
};

struct MovieDetails {
    uint32_t timeScale = 0;
    uint64_t duration = 0;
    uint64_t seconds() const { return duration / timeScale; }
};

class AtomTree {
public:
    AtomTree();
    ~AtomTree();
    AtomTree(const AtomTree&) = delete;
    AtomTree& operator=(const AtomTree&) = delete;

    // Reads the atom list of a file; false with errorText() when it is not an
    // MPEG-4 file or cannot be handled. The file stays open for the payload
    // readers until closeSource().
    bool scan(const QString& path, bool deepScan = false);
    // The same over a device the caller owns (open for reading, seekable).
    bool scan(QIODevice* device, bool deepScan = false);
    void closeSource();

    // The reason of a failed scan, and the repairs made while scanning.
    const QString& errorText() const { return m_errorText; }
    const QStringList& warnings() const { return m_warnings; }

    const std::vector<AtomRecord>& atoms() const { return m_atoms; }
    // "moov.udta.meta.ilst": one type per level from the top of the file; the
    // first atom in file order at each level. An element may be "uuid=NAME"
    // (a named uuid atom) and may end in ":[N]" (the Nth of its type, from 1).
    // Names are Latin-1 bytes ("\xA9nam").
    const AtomRecord* findAtom(std::string_view dottedPath) const;
    // The nearest earlier atom one level above `level`; -1 for the top of the file.
    int findParentAtom(int number, uint8_t level) const;
    // Time scale and duration from a "moov.mvhd" atom.
    std::optional<MovieDetails> movieDetails() const;

    // Up to `length` bytes at `offset`, never past the end of the file.
    QByteArray readAt(uint64_t offset, uint64_t length) const;
    uint64_t fileSize() const { return m_fileSize; }
    uint64_t bytesBeforeMdat() const { return m_bytesBeforeMdat; }
    bool passedMdat() const { return m_passedMdat; }
    bool unsupported64BitAtom() const { return m_unsupported64Bit; }
    uint32_t majorBrand() const { return m_atoms.empty() ? 0 : m_atoms.front().ancillaryData; }
    bool hasCompatibleBrand(std::string_view brand) const;

private:
    bool scanDevice(bool deepScan);
    bool fail(const QString& text);
    bool readExact(uint64_t offset, char* buffer, qint64 length) const;
    int parentFor(uint64_t start, uint64_t length) const;
    int containerAt(uint64_t offset) const;
    const KnownAtom& matchKnownAtom(const char* type, int parent) const;
    uint64_t firstChildOffset(const AtomRecord& atom, uint32_t headerLength, bool deepScan) const;
    void classifyUuid(AtomRecord& atom);

    std::unique_ptr<QIODevice> m_ownedDevice;
    QIODevice* m_device = nullptr;
    std::vector<AtomRecord> m_atoms;
    std::vector<std::array<char, 4>> m_compatibleBrands;
    QString m_errorText;
    QStringList m_warnings;
    uint64_t m_fileSize = 0;
    uint64_t m_bytesBeforeMdat = 0;
    bool m_passedMdat = false;
    bool m_unsupported64Bit = false;
};

// The text of an ilst item's "data" atom: `item` is the item's 4-byte name,
// `dataClass` the data atom's class, `payload` the bytes from 16 bytes into
// the data atom. Empty when the payload has no text form.
QString dataAtomText(std::string_view item, uint32_t dataClass, const QByteArray& payload);

} // namespace mp4
