#include "tags/Mp4AtomTree.h"

#include "tags/ID3Tables.h"

#include <QFile>
#include <QUuid>

#include <algorithm>
#include <cstring>
#include <limits>

namespace mp4 {
namespace {

const QString kBadFileText =
    QStringLiteral("\nAtomicParsley error: bad mpeg4 file (ftyp atom missing or alignment error).\n\n");
// The largest 64-bit atom the rewriting side can cope with.
constexpr uint64_t kLargest64BitAtom = 0xFE363C80;
constexpr char kJpeg2000Signature[12] = {0x00, 0x00, 0x00, 0x0C, 0x6A, 0x50, 0x20, 0x20,
                                         0x0D, 0x0A, char(0x87), 0x0A};
// Brands are only classified; a huge "ftyp" is not read whole.
constexpr uint64_t kMaxCompatibleBrands = 1024;

uint16_t be16(const char* p)
{
    return uint16_t((uint8_t(p[0]) << 8) | uint8_t(p[1]));
}
uint32_t be32(const char* p)
{
    return (uint32_t(uint8_t(p[0])) << 24) | (uint32_t(uint8_t(p[1])) << 16) | (uint32_t(uint8_t(p[2])) << 8)
        | uint32_t(uint8_t(p[3]));
}
uint64_t be64(const char* p)
{
    return (uint64_t(be32(p)) << 32) | be32(p + 4);
}

// Four type characters as one number: types compare without a call to memcmp.
uint32_t typeCode(const char* type)
{
    return (uint32_t(uint8_t(type[0])) << 24) | (uint32_t(uint8_t(type[1])) << 16) | (uint32_t(uint8_t(type[2])) << 8) |
           uint8_t(type[3]);
}

bool sameType(const char* a, const char* b)
{
    return typeCode(a) == typeCode(b);
}

// The UUID AtomicParsley derives from a 4-character atom name (version 5, SHA-1,
// in the namespace named "AtomicParsley.sf.net").
QByteArray namedUuid(const char* name)
{
    static const QUuid kNamespace = QUuid::createUuidV5(QUuid(), QByteArrayLiteral("AtomicParsley.sf.net"));
    return QUuid::createUuidV5(kNamespace, QByteArray(name, 4)).toRfc4122();
}

bool isAudioSampleEntry(std::string_view type)
{
    for (std::string_view audio : {"mp4a", "alac", "enca", "samr", "sawb", "sawp", "sevc", "sqcp", "drms"})
        if (type == audio)
            return true;
    return false;
}
bool isVisualSampleEntry(std::string_view type)
{
    for (std::string_view visual : {"avc1", "avcp", "mp4v", "encv", "s263", "jpeg", "mjp2", "drmi"})
        if (type == visual)
            return true;
    return false;
}

} // namespace

AtomTree::AtomTree() = default;
AtomTree::~AtomTree() = default;

bool AtomTree::scan(const QString& path, bool deepScan)
{
    auto file = std::make_unique<QFile>(path);
    m_ownedDevice.reset();
    m_device = nullptr;
    if (!file->open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        m_atoms.clear();
        return fail(QStringLiteral("cannot open %1: %2").arg(path, file->errorString()));
    }
    m_ownedDevice = std::move(file);
    m_device = m_ownedDevice.get();
    return scanDevice(deepScan);
}

bool AtomTree::scan(QIODevice* device, bool deepScan)
{
    m_ownedDevice.reset();
    m_device = device;
    return scanDevice(deepScan);
}

void AtomTree::closeSource()
{
    m_ownedDevice.reset();
    m_device = nullptr;
}

bool AtomTree::fail(const QString& text)
{
    m_errorText = text;
    return false;
}

bool AtomTree::readExact(uint64_t offset, char* buffer, qint64 length) const
{
    if (!m_device || offset > m_fileSize || uint64_t(length) > m_fileSize - offset)
        return false;
    return m_device->seek(qint64(offset)) && m_device->read(buffer, length) == length;
}

QByteArray AtomTree::readAt(uint64_t offset, uint64_t length) const
{
    if (!m_device || offset >= m_fileSize)
        return {};
    length = std::min(length, m_fileSize - offset);
    QByteArray bytes(qsizetype(length), Qt::Uninitialized);
    if (!readExact(offset, bytes.data(), qint64(length)))
        return {};
    return bytes;
}

bool AtomTree::hasCompatibleBrand(std::string_view brand) const
{
    return std::any_of(m_compatibleBrands.begin(), m_compatibleBrands.end(),
                       [&](const std::array<char, 4>& b) { return brand == std::string_view(b.data(), 4); });
}

int AtomTree::parentFor(uint64_t start, uint64_t length) const
{
    for (int i = int(m_atoms.size()) - 1; i >= 0; --i) {
        const AtomRecord& atom = m_atoms[size_t(i)];
        if (atom.start < start && atom.length > length && atom.end() >= start + length && atom.mayHoldChildren())
            return i;
        // Nothing that starts before the top-level atom holding `start` can be its parent.
        if (atom.level == 1 && atom.start < start)
            break;
    }
    return -1;
}

int AtomTree::containerAt(uint64_t offset) const
{
    for (int i = int(m_atoms.size()) - 1; i >= 0; --i) {
        const AtomRecord& atom = m_atoms[size_t(i)];
        if (atom.mayHoldChildren() && atom.start < offset && atom.end() > offset)
            return i;
        if (atom.level == 1 && atom.start < offset)
            break;
    }
    return -1;
}

const KnownAtom& AtomTree::matchKnownAtom(const char* type, int parent) const
{
    const char* parentType = parent < 0 ? "FILE_LEVEL" : m_atoms[size_t(parent)].name;
    const int grandparent = parent < 0 ? -1 : findParentAtom(parent, m_atoms[size_t(parent)].level);
    const bool parentIsItem = grandparent >= 0 && m_atoms[size_t(grandparent)].isType("ilst");
    const bool parentIsSampleEntry = grandparent >= 0 && m_atoms[size_t(grandparent)].isType("stsd");
    auto parentMatches = [&](const KnownAtom& row) {
        for (const char* allowed : row.parents) {
            if (!allowed)
                break;
            if (std::strcmp(allowed, "_ANY_LEVEL") == 0 || (parentIsItem && std::strcmp(allowed, "ITUNES_METADATA") == 0)
                || (parentIsSampleEntry && std::strcmp(allowed, "SAMPLE_DESC") == 0))
                return true;
            if (parent < 0 ? std::strcmp(allowed, "FILE_LEVEL") == 0
                           : std::strlen(allowed) == 4 && sameType(allowed, parentType))
                return true;
        }
        return false;
    };
    // The rows by type, each type's rows in table order: a lookup, not a walk of the table.
    using Entry = std::pair<uint32_t, uint16_t>;
    static const std::array<Entry, kKnownAtomCount> byType = [] {
        std::array<Entry, kKnownAtomCount> table{};
        for (size_t i = 0; i < table.size(); ++i)
            table[i] = {typeCode(kKnownAtoms[i].name), uint16_t(i)};
        std::sort(table.begin(), table.end());
        return table;
    }();
    auto firstMatch = [&](uint32_t code) -> const KnownAtom* {
        const auto rows = std::equal_range(byType.begin(), byType.end(), Entry{code, 0},
                                           [](const Entry& a, const Entry& b) { return a.first < b.first; });
        for (auto row = rows.first; row != rows.second; ++row)
            if (parentMatches(kKnownAtoms[row->second]))
                return &kKnownAtoms[row->second];
        return nullptr;
    };
    if (const KnownAtom* row = firstMatch(typeCode(type)))
        return *row;
    // Any item under "ilst", any entry under "dref".
    const KnownAtom* item = firstMatch(typeCode("(..)"));
    const KnownAtom* entry = firstMatch(typeCode(".><."));
    if (item || entry)
        return !entry || (item && item < entry) ? *item : *entry;
    return kKnownAtoms[0];
}

uint64_t AtomTree::firstChildOffset(const AtomRecord& atom, uint32_t headerLength, bool deepScan) const
{
    const uint64_t body = atom.start + headerLength;
    const std::string_view type = atom.type();
    const int parent = findParentAtom(atom.number, atom.level);
    const bool isSampleEntry = parent >= 0 && m_atoms[size_t(parent)].isType("stsd");
    if (isSampleEntry) {
        if (!deepScan)
            return atom.end();
        if (isAudioSampleEntry(type))
            return body + 28;
        if (isVisualSampleEntry(type))
            return body + 78;
        if (type == "mp4s" || type == "encs")
            return body + 8;
        return atom.end();
    }
    if (type == "stsd")
        return deepScan ? body + 8 : atom.end();  // version, flags, entry count
    if (type == "dref")
        return body + 8;
    if (type == "ipro")
        return body + 6;  // version, flags, 16-bit count
    if (type == "iinf") {
        char version = 0;
        readExact(body, &version, 1);
        return body + (version == 0 ? 6 : 8);
    }
    if (type == "meta") {
        // QuickTime writes "meta" without version and flags: the handler follows at once.
        char probe[8];
        if (readExact(body, probe, 8) && sameType(probe + 4, "hdlr"))
            return body;
        return body + 4;
    }
    if (type == "sinf" || type == "schi")
        return body;
    if (atom.containerState == kDualStateAtom)
        return body + 4;
    return body;
}

void AtomTree::classifyUuid(AtomRecord& atom)
{
    atom.uuidStyle = kUuidOther;
    char uuid[16];
    if (atom.length < 24 || !readExact(atom.start + 8, uuid, 16))
        return;
    std::memcpy(atom.name, uuid, 16);
    atom.name[16] = 0;
    char named[8];
    if ((uint8_t(uuid[6]) >> 4) != 5 || atom.length < 28 || !readExact(atom.start + 24, named, atom.length >= 32 ? 8 : 4))
        return;
    if (namedUuid(named) != QByteArray(uuid, 16))
        return;
    std::memset(atom.name, 0, sizeof atom.name);
    std::memcpy(atom.name, named, 4);
    atom.uuidStyle = kUuidNamed;
    if (atom.length >= 32)
        atom.versionFlags = be32(named + 4);
}

bool AtomTree::scanDevice(bool deepScan)
{
    m_atoms.clear();
    m_compatibleBrands.clear();
    m_warnings.clear();
    m_errorText.clear();
    m_bytesBeforeMdat = 0;
    m_passedMdat = false;
    m_unsupported64Bit = false;
    m_fileSize = m_device && m_device->isOpen() ? uint64_t(std::max<qint64>(m_device->size(), 0)) : 0;
    m_atoms.reserve(64);

    char head[16];
    uint64_t offset = 0;
    if (!readExact(0, head, 12))
        return fail(kBadFileText);
    if (std::memcmp(head, kJpeg2000Signature, 12) == 0) {
        AtomRecord signature;
        std::memcpy(signature.name, "jP  ", 4);
        signature.length = 12;
        signature.containerState = kChildAtom;
        signature.classification = kSimpleAtom;
        m_atoms.push_back(signature);
        m_bytesBeforeMdat += 12;
        offset = 12;
        if (!readExact(offset, head, 12))
            return fail(kBadFileText);
    }
    if (!sameType(head + 4, "ftyp") || be32(head) < 8)
        return fail(kBadFileText);

    AtomRecord ftyp;
    ftyp.number = int16_t(m_atoms.size());
    ftyp.start = uint32_t(offset);
    ftyp.length = uint32_t(std::min<uint64_t>(be32(head), m_fileSize - offset));
    std::memcpy(ftyp.name, "ftyp", 4);
    ftyp.containerState = kChildAtom;
    ftyp.classification = kSimpleAtom;
    if (ftyp.length >= 12)
        ftyp.ancillaryData = be32(head + 8);
    if (ftyp.length > 16) {
        const QByteArray brands = readAt(offset + 16, std::min<uint64_t>(ftyp.length - 16, kMaxCompatibleBrands * 4));
        for (qsizetype i = 0; i + 4 <= brands.size(); i += 4)
            m_compatibleBrands.push_back({brands[i], brands[i + 1], brands[i + 2], brands[i + 3]});
    }
    m_atoms.push_back(ftyp);
    m_bytesBeforeMdat += ftyp.length;
    offset = ftyp.end();

    while (offset < m_fileSize) {
        if (m_fileSize - offset < 8)
            break;  // a few stray bytes after the last atom
        const qint64 headLength = qint64(std::min<uint64_t>(16, m_fileSize - offset));
        if (!readExact(offset, head, headLength))
            return fail(QStringLiteral("read error at offset %1").arg(offset));
        uint64_t size = be32(head);
        uint32_t headerLength = 8;
        uint64_t extendedLength = 0;
        if (size == 0) {
            if (be32(head + 4) == 0)
                break;  // the rest of the file is zeros
            size = m_fileSize - offset;  // the last atom runs to the end of the file
        } else if (size == 1) {
            if (headLength < 16)
                return fail(QStringLiteral("truncated 64-bit atom header at offset %1").arg(offset));
            extendedLength = be64(head + 8);
            if (extendedLength >= kLargest64BitAtom) {
                m_unsupported64Bit = true;
                return fail(QString::asprintf("You must be off your block thinking I'm going to tag a file that is "
                                              "at LEAST %llu bytes long.\n",
                                              static_cast<unsigned long long>(extendedLength))
                            + QStringLiteral("AtomicParsley doesn't have full 64-bit support"));
            }
            if (extendedLength < 16)
                return fail(QStringLiteral("bad 64-bit atom size %1 at offset %2").arg(extendedLength).arg(offset));
            size = extendedLength;
            headerLength = 16;
        } else if (size < 8) {
            return fail(QStringLiteral("bad atom size %1 at offset %2").arg(size).arg(offset));
        }
        size = std::min(size, m_fileSize - offset);
        if (offset > std::numeric_limits<uint32_t>::max())
            return fail(QStringLiteral("AtomicParsley doesn't have full 64-bit support"));
        if (m_atoms.size() > size_t(std::numeric_limits<int16_t>::max()))
            return fail(QStringLiteral("too many atoms (more than %1)").arg(std::numeric_limits<int16_t>::max()));

        if (sameType(head + 4, "data")) {
            const int container = containerAt(offset);
            if (container >= 0 && offset + size > m_atoms[size_t(container)].end()) {
                const AtomRecord& item = m_atoms[size_t(container)];
                m_warnings << QStringLiteral("AtomicParsley warning: the 'data' child of the '%1' atom seems to be "
                                             "corrupted.\n")
                                  .arg(QString::fromLatin1(item.name, 4));
                size = item.end() - offset;
            }
        }

        const int parent = parentFor(offset, size);
        AtomRecord atom;
        atom.number = int16_t(m_atoms.size());
        atom.start = uint32_t(offset);
        atom.length = uint32_t(size);
        atom.extendedLength = extendedLength;
        std::memcpy(atom.name, head + 4, 4);
        if (parent >= 0) {
            if (m_atoms[size_t(parent)].level == std::numeric_limits<uint8_t>::max())
                return fail(QStringLiteral("atoms nested too deeply at offset %1").arg(offset));
            atom.level = uint8_t(m_atoms[size_t(parent)].level + 1);
        }
        const KnownAtom& row = matchKnownAtom(atom.name, parent);
        atom.containerState = row.containerState;
        atom.classification = row.headerKind;
        if ((row.headerKind == kVersionedAtom || row.headerKind == kPackedLanguageAtom)
            && size >= uint64_t(headerLength) + 4) {
            char flags[4];
            if (headerLength == 8 && headLength >= 12)
                atom.versionFlags = be32(head + 8);
            else if (readExact(offset + headerLength, flags, 4))
                atom.versionFlags = be32(flags);
        }
        if (row.headerKind == kPackedLanguageAtom) {
            // Ratings and classifications carry 8 more bytes ahead of the language.
            const uint64_t at = headerLength + 4 + ((atom.isType("rtng") || atom.isType("clsf")) ? 8 : 0);
            char language[2];
            if (size >= at + 2 && readExact(offset + at, language, 2))
                atom.language = be16(language);
        }
        if (row.headerKind == kExtendedAtom)
            classifyUuid(atom);

        if (atom.level == 1 && !m_passedMdat) {
            if (atom.isType("mdat"))
                m_passedMdat = true;
            else
                m_bytesBeforeMdat += atom.length;
        }
        m_atoms.push_back(atom);

        uint64_t next = atom.end();
        if (atom.mayHoldChildren())
            next = std::min(firstChildOffset(m_atoms.back(), headerLength, deepScan), atom.end());
        offset = next;
    }
    return true;
}

const AtomRecord* AtomTree::findAtom(std::string_view dottedPath) const
{
    int parent = -1;
    uint8_t level = 1;
    while (!dottedPath.empty()) {
        const size_t dot = dottedPath.find('.');
        std::string_view element = dottedPath.substr(0, dot);
        dottedPath = dot == std::string_view::npos ? std::string_view() : dottedPath.substr(dot + 1);

        int wanted = 1;
        const size_t index = element.find(":[");
        if (index != std::string_view::npos) {
            wanted = 0;
            for (char c : element.substr(index + 2)) {
                if (c == ']')
                    break;
                if (c < '0' || c > '9' || wanted > 100000)
                    return nullptr;
                wanted = wanted * 10 + (c - '0');
            }
            element = element.substr(0, index);
        }
        bool byUuidName = false;
        if (element.substr(0, 5) == "uuid=") {
            byUuidName = true;
            element = element.substr(5);
        }
        if (element.size() != 4)
            return nullptr;

        int found = -1;
        for (size_t i = size_t(parent + 1); i < m_atoms.size(); ++i) {
            const AtomRecord& atom = m_atoms[i];
            if (atom.level < level)
                break;  // past the end of the parent
            if (atom.level != level || atom.type() != element)
                continue;
            if (byUuidName != (atom.uuidStyle == kUuidNamed))
                continue;
            if (--wanted == 0) {
                found = int(i);
                break;
            }
        }
        if (found < 0)
            return nullptr;
        parent = found;
        if (level == std::numeric_limits<uint8_t>::max())
            return dottedPath.empty() ? &m_atoms[size_t(parent)] : nullptr;
        ++level;
    }
    return parent < 0 ? nullptr : &m_atoms[size_t(parent)];
}

int AtomTree::findParentAtom(int number, uint8_t level) const
{
    if (level <= 1 || number <= 0 || size_t(number) > m_atoms.size())
        return -1;
    for (int i = number - 1; i >= 0; --i)
        if (m_atoms[size_t(i)].level == level - 1)
            return i;
    return -1;
}

std::optional<MovieDetails> AtomTree::movieDetails() const
{
    const AtomRecord* mvhd = findAtom("moov.mvhd");
    if (!mvhd)
        return std::nullopt;
    const QByteArray bytes = readAt(mvhd->start, std::min<uint32_t>(mvhd->length, 40));
    MovieDetails details;
    if (bytes.size() >= 9 && bytes[8] == 1) {
        if (bytes.size() < 40)
            return std::nullopt;
        details.timeScale = be32(bytes.constData() + 28);
        details.duration = be64(bytes.constData() + 32);
    } else {
        if (bytes.size() < 28)
            return std::nullopt;
        details.timeScale = be32(bytes.constData() + 20);
        details.duration = be32(bytes.constData() + 24);
    }
    if (details.timeScale == 0)
        return std::nullopt;
    return details;
}

QString dataAtomText(std::string_view item, uint32_t dataClass, const QByteArray& payload)
{
    const char* p = payload.constData();
    if (item == "trkn" || item == "disk") {
        if (payload.size() < 4)
            return {};
        const unsigned short number = be16(p + 2);
        const unsigned short total = payload.size() >= 6 ? be16(p + 4) : 0;
        return total ? QString::asprintf("%hu/%hu", number, total) : QString::asprintf("%hu", number);
    }
    if (item == "gnre") {
        if (payload.size() < 2)
            return {};
        const int number = be16(p);
        return number >= 1 && number <= ID3_v1_genre_count ? QString::fromLatin1(ID3_v1_genre_description[number - 1])
                                                         : QStringLiteral("unknown");
    }
    if (dataClass == 1) {
        // Texts go through a 2,048-byte buffer and end at the first zero byte.
        QByteArray text = payload.left(2047);
        const qsizetype zero = text.indexOf('\0');
        if (zero >= 0)
            text.truncate(zero);
        return QString::fromUtf8(text);
    }
    if (dataClass != 0 && dataClass != 21)
        return {};
    switch (payload.size()) {
    case 1: {
        const auto value = uint8_t(p[0]);
        if (item == "cpil" || item == "pgap" || item == "pcst")
            return value ? QStringLiteral("true") : QStringLiteral("false");
        if (item == "rtng")
            return value == 0 ? QStringLiteral("Inoffensive")
                 : value == 2 ? QStringLiteral("Clean Content")
                              : QStringLiteral("Explicit Content");
        return QString::asprintf("%hhu", value);
    }
    case 2:
        return QString::asprintf("%hu", be16(p));
    case 4:
        return QString::asprintf("%u", be32(p));
    case 8:
        return QString::asprintf("%llu", static_cast<unsigned long long>(be64(p)));
    default:
        return {};
    }
}

} // namespace mp4
