#include "tags/AudioPayload.h"

#include <QFile>
#include <QtEndian>

#include <ogg/ogg.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <functional>
#include <memory>
#include <optional>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace AudioPayload {

namespace {

constexpr qint64 kBlock = 1 << 20;

// A file read at given offsets; no read reaches past its end. A file that
// nobody else can change (the new version a write made) may be mapped, and is
// then compared in place; only a large one is, as mapping and unmapping a
// small file costs more than reading it.
class Source {
public:
    explicit Source(const QString& path, bool mapped = false)
        : fd_(::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC))
    {
        struct stat info {};
        if (fd_ >= 0 && ::fstat(fd_, &info) == 0 && S_ISREG(info.st_mode))
            size_ = info.st_size;
        if (mapped && size_ >= kBlock) {
            void* map = ::mmap(nullptr, size_t(size_), PROT_READ, MAP_SHARED, fd_, 0);
            if (map != MAP_FAILED) {
                map_ = static_cast<const char*>(map);
                ::madvise(map, size_t(size_), MADV_SEQUENTIAL);
            }
        }
    }
    ~Source()
    {
        if (map_)
            ::munmap(const_cast<char*>(map_), size_t(size_));
        if (fd_ >= 0)
            ::close(fd_);
    }
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    bool isOpen() const { return fd_ >= 0 && size_ >= 0; }
    qint64 size() const { return size_; }

    bool read(qint64 offset, qint64 length, char* out) const
    {
        if (offset < 0 || length < 0 || offset > size_ || length > size_ - offset)
            return false;
        if (map_) {
            std::memcpy(out, map_ + offset, size_t(length));
            return true;
        }
        while (length > 0) {
            const ssize_t got = ::pread(fd_, out, size_t(length), off_t(offset));
            if (got < 0 && errno == EINTR)
                continue;
            if (got <= 0)
                return false;
            out += got;
            offset += got;
            length -= got;
        }
        return true;
    }

    // The bytes at an offset: in place when mapped, else read into `scratch`
    // (which holds at least `length` bytes); null when they are not all there.
    const char* view(qint64 offset, qint64 length, char* scratch) const
    {
        if (map_)
            return offset >= 0 && length >= 0 && offset <= size_ && length <= size_ - offset ? map_ + offset : nullptr;
        return read(offset, length, scratch) ? scratch : nullptr;
    }

    QByteArray bytes(qint64 offset, qint64 length) const
    {
        QByteArray data(length, Qt::Uninitialized);
        return read(offset, length, data.data()) ? data : QByteArray();
    }

private:
    int fd_;
    qint64 size_ = -1;
    const char* map_ = nullptr;
};

// A stretch of a file's bytes.
struct Run {
    qint64 offset;
    qint64 length;
};

qint64 totalLength(const std::vector<Run>& runs)
{
    qint64 total = 0;
    for (const Run& run : runs)
        total += run.length;
    return total;
}

// Whether the runs of one file hold the same bytes as those of the other,
// compared a block at a time.
bool sameBytes(const Source& a, const std::vector<Run>& runsA, const Source& b, const std::vector<Run>& runsB)
{
    const qint64 total = totalLength(runsA);
    if (total != totalLength(runsB))
        return false;
    const size_t block = size_t(std::min(kBlock, total));
    std::unique_ptr<char[]> scratchA(new char[block]), scratchB(new char[block]);
    size_t runA = 0, runB = 0;
    qint64 withinA = 0, withinB = 0;
    while (runA < runsA.size() && runB < runsB.size()) {
        const Run& a0 = runsA[runA];
        const Run& b0 = runsB[runB];
        const qint64 take = std::min({qint64(block), a0.length - withinA, b0.length - withinB});
        const char* bytesA = a.view(a0.offset + withinA, take, scratchA.get());
        const char* bytesB = b.view(b0.offset + withinB, take, scratchB.get());
        if (!bytesA || !bytesB || std::memcmp(bytesA, bytesB, size_t(take)) != 0)
            return false;
        withinA += take;
        withinB += take;
        if (withinA == a0.length) {
            ++runA;
            withinA = 0;
        }
        if (withinB == b0.length) {
            ++runB;
            withinB = 0;
        }
    }
    return true;
}

QString cannotOpen()
{
    return QStringLiteral("it cannot be read");
}

// --- MPEG -----------------------------------------------------------------

// The bytes between the leading ID3v2 tags and the trailing ID3v1 and APE tags.
std::optional<Run> mpegAudio(const Source& file, QString* why)
{
    if (!file.isOpen()) {
        *why = cannotOpen();
        return std::nullopt;
    }
    qint64 start = 0;
    unsigned char header[10];
    while (file.read(start, 10, reinterpret_cast<char*>(header)) && std::memcmp(header, "ID3", 3) == 0) {
        // A version byte of 0xFF or a size byte with its top bit set is no tag header.
        if (header[3] == 0xFF || header[4] == 0xFF || ((header[6] | header[7] | header[8] | header[9]) & 0x80))
            break;
        const qint64 body =
            (qint64(header[6]) << 21) | (qint64(header[7]) << 14) | (qint64(header[8]) << 7) | header[9];
        const qint64 size = 10 + body + ((header[5] & 0x10) ? 10 : 0);
        if (size > file.size() - start) {
            *why = QStringLiteral("its ID3v2 tag runs past the end of the file");
            return std::nullopt;
        }
        start += size;
    }
    qint64 end = file.size();
    for (bool found = true; found;) {
        found = false;
        char tail[32];
        if (end - start >= 128 && file.read(end - 128, 3, tail) && std::memcmp(tail, "TAG", 3) == 0) {
            end -= 128;
            found = true;
        } else if (end - start >= 32 && file.read(end - 32, 32, tail) && std::memcmp(tail, "APETAGEX", 8) == 0) {
            // The size counts the items and this footer; a header may stand before them.
            const qint64 size = qFromLittleEndian<quint32>(tail + 12);
            const quint32 flags = qFromLittleEndian<quint32>(tail + 20);
            const qint64 length = size + ((flags & 0x80000000u) ? 32 : 0);
            if (size < 32 || length > end - start) {
                *why = QStringLiteral("its APE tag is longer than the file");
                return std::nullopt;
            }
            end -= length;
            found = true;
        }
    }
    if (end <= start) {
        *why = QStringLiteral("it holds no MPEG audio");
        return std::nullopt;
    }
    return Run{start, end - start};
}

// --- Ogg ------------------------------------------------------------------

struct Packet {
    int stream = 0;     // the logical stream, numbered in the order their pages first appear
    bool hole = false;  // data was missing before this point
    qint64 granule = -1;
    QByteArray bytes;

    // Only a packet that ends a page carries its granule position, so where
    // the pages were laid out anew one side may not know it.
    bool matches(const Packet& other) const
    {
        return stream == other.stream && hole == other.hole && bytes == other.bytes &&
               (granule == other.granule || granule < 0 || other.granule < 0);
    }
};

// The packets of an Ogg file in the order they complete, without the three
// Vorbis headers of its first stream. libogg finds and checks the pages; the
// packets are put together here from the lacing values, so a header packet of
// megabytes (a picture) is only counted, never copied.
class OggPackets {
public:
    explicit OggPackets(const Source& file) : file_(file) { ogg_sync_init(&sync_); }
    ~OggPackets() { ogg_sync_clear(&sync_); }
    OggPackets(const OggPackets&) = delete;
    OggPackets& operator=(const OggPackets&) = delete;

    // False at the end of the file (or when it cannot be read: failed() tells).
    bool next(Packet* packet)
    {
        while (ready_.empty()) {
            ogg_page page;
            const int result = ogg_sync_pageout(&sync_, &page);
            if (result > 0) {
                takePage(page);
            } else if (result == 0 && !readMore()) {
                return false;
            }
        }
        *packet = std::move(ready_.front());
        ready_.pop_front();
        return true;
    }

    bool failed() const { return failed_; }
    int headersSeen() const { return headers_; }

private:
    struct Stream {
        long serial = 0;
        long nextSequence = -1;
        bool inPacket = false;  // a packet continues on the next page
        bool skipping = false;  // the rest of a packet whose start is lost
        bool hole = false;
        QByteArray partial;
    };

    bool readMore()
    {
        const qint64 take = std::min<qint64>(65536, file_.size() - at_);
        if (take <= 0)
            return false;
        char* buffer = ogg_sync_buffer(&sync_, long(take));
        if (!buffer || !file_.read(at_, take, buffer)) {
            failed_ = true;
            return false;
        }
        ogg_sync_wrote(&sync_, long(take));
        at_ += take;
        return true;
    }

    void takePage(const ogg_page& page)
    {
        const long serial = ogg_page_serialno(&page);
        size_t index = 0;
        while (index < streams_.size() && streams_[index].serial != serial)
            ++index;
        if (index == streams_.size()) {
            streams_.emplace_back();
            streams_.back().serial = serial;
        }
        Stream& stream = streams_[index];
        // A missing page loses the packet in progress, and so does a page that
        // does not continue it; the rest of a packet whose start was lost is skipped.
        const long sequence = ogg_page_pageno(&page);
        const bool continued = ogg_page_continued(&page) != 0;
        if ((stream.nextSequence >= 0 && sequence != stream.nextSequence) || continued != stream.inPacket) {
            stream.hole = true;
            stream.skipping = continued;
            stream.partial.clear();
        }
        stream.nextSequence = sequence + 1;
        // A lacing value below 255 ends a packet; libogg checked that the
        // values add up to the body's length.
        const int segments = page.header[26];
        int lastEnd = -1;
        for (int i = 0; i < segments; ++i)
            lastEnd = page.header[27 + i] < 255 ? i : lastEnd;
        qint64 at = 0;
        for (int i = 0; i < segments; ++i) {
            const int lacing = page.header[27 + i];
            const bool header = index == 0 && headers_ < 3;
            if (!stream.skipping && !header)
                stream.partial.append(reinterpret_cast<const char*>(page.body + at), lacing);
            at += lacing;
            stream.inPacket = lacing == 255;
            if (stream.inPacket)
                continue;
            if (stream.skipping) {
                stream.skipping = false;
            } else if (header) {
                ++headers_;
            } else {
                Packet packet;
                packet.stream = int(index);
                packet.hole = stream.hole;
                packet.granule = i == lastEnd ? ogg_page_granulepos(&page) : -1;
                packet.bytes = std::move(stream.partial);
                stream.partial = QByteArray();
                stream.hole = false;
                ready_.push_back(std::move(packet));
            }
        }
    }

    const Source& file_;
    qint64 at_ = 0;
    ogg_sync_state sync_{};
    std::vector<Stream> streams_;
    std::deque<Packet> ready_;
    int headers_ = 0;
    bool failed_ = false;
};

QString oggUnreadable(const Source& file)
{
    if (!file.isOpen())
        return cannotOpen();
    OggPackets packets(file);
    Packet packet;
    qint64 count = 0;
    while (packets.next(&packet))
        ++count;
    if (packets.failed())
        return cannotOpen();
    if (packets.headersSeen() < 3)
        return QStringLiteral("it holds no complete Vorbis headers");
    return count == 0 ? QStringLiteral("it holds no audio packets") : QString();
}

// The same packets in the same order, agreeing on every granule position both
// sides know and on the last one of each stream (the length of the audio).
bool sameOggPackets(const Source& before, const Source& after)
{
    OggPackets a(before);
    OggPackets b(after);
    std::vector<std::pair<qint64, qint64>> lastGranules;  // per stream: before, after
    Packet packetA, packetB;
    for (;;) {
        const bool moreA = a.next(&packetA);
        const bool moreB = b.next(&packetB);
        if (moreA != moreB)
            return false;
        if (!moreA)
            break;
        if (!packetA.matches(packetB))
            return false;
        if (size_t(packetA.stream) >= lastGranules.size())
            lastGranules.resize(size_t(packetA.stream) + 1, {-1, -1});
        auto& [lastA, lastB] = lastGranules[size_t(packetA.stream)];
        if (packetA.granule >= 0)
            lastA = packetA.granule;
        if (packetB.granule >= 0)
            lastB = packetB.granule;
    }
    for (const auto& [lastA, lastB] : lastGranules) {
        if (lastA != lastB)
            return false;
    }
    return !a.failed() && !b.failed() && a.headersSeen() == 3 && b.headersSeen() == 3;
}

// --- MP4 ------------------------------------------------------------------

// Bytes in memory, read front to back with every length checked against what is left.
struct Span {
    const uchar* data = nullptr;
    qint64 size = 0;

    bool has(qint64 bytes) const { return bytes >= 0 && bytes <= size; }
    quint32 be32(qint64 at) const { return qFromBigEndian<quint32>(data + at); }
    quint64 be64(qint64 at) const { return qFromBigEndian<quint64>(data + at); }
    Span from(qint64 at) const { return {data + at, size - at}; }
};

// Calls visit for each atom of a span; false when an atom does not fit in it.
bool eachAtom(Span span, const std::function<bool(const char* type, Span body)>& visit)
{
    qint64 at = 0;
    while (at < span.size) {
        const Span rest = span.from(at);
        if (!rest.has(8))
            return false;
        qint64 size = rest.be32(0);
        qint64 header = 8;
        if (size == 1) {
            if (!rest.has(16) || rest.be64(8) > quint64(rest.size))
                return false;
            size = qint64(rest.be64(8));
            header = 16;
        }
        if (size < header || size > rest.size)
            return false;
        if (!visit(reinterpret_cast<const char*>(rest.data + 4), Span{rest.data + header, size - header}))
            return false;
        at += size;
    }
    return true;
}

// The first child atom of a type; an empty span when there is none.
std::optional<Span> child(Span parent, const char* type)
{
    std::optional<Span> found;
    const bool whole = eachAtom(parent, [&](const char* name, Span body) {
        if (!found && std::memcmp(name, type, 4) == 0)
            found = body;
        return true;
    });
    return whole ? found : std::nullopt;
}

struct Track {
    quint32 fixedSize = 0;  // every sample's size, or 0 when `sizes` lists them
    Span sizes;             // big-endian 32-bit sizes
    qint64 samples = 0;
    std::vector<Run> runs;  // the chunks, as stretches of the file

    qint64 sampleSize(qint64 index) const { return fixedSize ? fixedSize : sizes.be32(index * 4); }
    bool sameSizes(const Track& other) const
    {
        if (samples != other.samples)
            return false;
        if (fixedSize && other.fixedSize)
            return fixedSize == other.fixedSize;
        for (qint64 i = 0; i < samples; ++i) {
            if (sampleSize(i) != other.sampleSize(i))
                return false;
        }
        return true;
    }
};

// The chunks of one track from its sample sizes (stsz), sample-to-chunk table
// (stsc) and chunk offsets (stco or co64).
std::optional<Track> trackOf(Span trak, qint64 fileSize, int number, QString* why)
{
    auto fail = [&](const QString& text) {
        *why = QStringLiteral("track %1: %2").arg(number).arg(text);
        return std::nullopt;
    };
    std::optional<Span> stbl;
    if (auto mdia = child(trak, "mdia"))
        if (auto minf = child(*mdia, "minf"))
            stbl = child(*minf, "stbl");
    if (!stbl)
        return fail(QStringLiteral("no sample table"));
    const std::optional<Span> stsz = child(*stbl, "stsz");
    const std::optional<Span> stsc = child(*stbl, "stsc");
    std::optional<Span> offsets = child(*stbl, "stco");
    const bool wide = !offsets;
    if (wide)
        offsets = child(*stbl, "co64");
    if (!stsz || !stsc || !offsets)
        return fail(QStringLiteral("its sample table is incomplete"));

    Track track;
    if (!stsz->has(12))
        return fail(QStringLiteral("its sample sizes are cut short"));
    track.fixedSize = stsz->be32(4);
    track.samples = stsz->be32(8);
    if (!track.fixedSize) {
        track.sizes = stsz->from(12);
        if (!track.sizes.has(track.samples * 4))
            return fail(QStringLiteral("its sample sizes are cut short"));
    }
    if (!stsc->has(8) || !stsc->from(8).has(qint64(stsc->be32(4)) * 12))
        return fail(QStringLiteral("its sample-to-chunk table is cut short"));
    const qint64 entries = stsc->be32(4);
    const int offsetBytes = wide ? 8 : 4;
    if (!offsets->has(8) || !offsets->from(8).has(qint64(offsets->be32(4)) * offsetBytes))
        return fail(QStringLiteral("its chunk offsets are cut short"));
    const qint64 chunks = offsets->be32(4);
    auto chunkOffset = [&](qint64 chunk) {
        return wide ? qint64(qMin<quint64>(offsets->be64(8 + chunk * 8), quint64(fileSize) + 1))
                    : qint64(offsets->be32(8 + chunk * 4));
    };

    qint64 sample = 0;
    for (qint64 entry = 0; entry < entries; ++entry) {
        const Span row = stsc->from(8 + entry * 12);
        const qint64 first = row.be32(0);
        const qint64 perChunk = row.be32(4);
        const qint64 last = entry + 1 < entries ? qint64(stsc->be32(8 + (entry + 1) * 12)) - 1 : chunks;
        if (first < 1 || first > last + 1 || last > chunks || (entry == 0 && first != 1))
            return fail(QStringLiteral("its sample-to-chunk table is out of order"));
        for (qint64 chunk = first; chunk <= last; ++chunk) {
            if (perChunk > track.samples - sample)
                return fail(QStringLiteral("its chunks hold more samples than it has"));
            qint64 length = 0;
            if (track.fixedSize) {
                if (perChunk > fileSize / track.fixedSize)
                    return fail(QStringLiteral("a chunk is longer than the file"));
                length = perChunk * track.fixedSize;
            } else {
                for (qint64 i = 0; i < perChunk && length <= fileSize; ++i)
                    length += track.sampleSize(sample + i);
            }
            const qint64 offset = chunkOffset(chunk - 1);
            if (offset > fileSize || length > fileSize - offset)
                return fail(QStringLiteral("chunk %1 lies past the end of the file").arg(chunk));
            sample += perChunk;
            if (length == 0)
                continue;
            if (!track.runs.empty() && track.runs.back().offset + track.runs.back().length == offset)
                track.runs.back().length += length;
            else
                track.runs.push_back({offset, length});
        }
    }
    if (sample != track.samples)
        return fail(QStringLiteral("its chunks hold fewer samples than it has"));
    return track;
}

// The movie atom's bytes and the tracks they describe.
struct Movie {
    QByteArray moov;
    std::vector<Track> tracks;
};

std::optional<Movie> movieOf(const Source& file, QString* why)
{
    if (!file.isOpen()) {
        *why = cannotOpen();
        return std::nullopt;
    }
    auto fail = [&](const QString& text) {
        *why = text;
        return std::nullopt;
    };
    // The top-level atoms are walked on disk: "mdat" may be gigabytes.
    qint64 at = 0;
    Run moov{-1, 0};
    while (at < file.size()) {
        char header[16];
        const qint64 left = file.size() - at;
        if (left < 8 || !file.read(at, 8, header))
            return fail(QStringLiteral("it ends inside an atom header"));
        qint64 size = qFromBigEndian<quint32>(header);
        qint64 headerSize = 8;
        if (size == 1) {
            if (left < 16 || !file.read(at, 16, header))
                return fail(QStringLiteral("it ends inside an atom header"));
            const quint64 wide = qFromBigEndian<quint64>(header + 8);
            size = wide > quint64(left) ? left + 1 : qint64(wide);
            headerSize = 16;
        } else if (size == 0) {
            size = left;  // the last atom runs to the end of the file
        }
        if (size < headerSize || size > left)
            return fail(QStringLiteral("an atom at byte %1 is longer than the file").arg(at));
        if (std::memcmp(header + 4, "moov", 4) == 0) {
            if (moov.offset >= 0)
                return fail(QStringLiteral("it has two movie atoms"));
            moov = {at + headerSize, size - headerSize};
        }
        at += size;
    }
    if (moov.offset < 0)
        return fail(QStringLiteral("it has no movie atom"));
    Movie movie;
    movie.moov = file.bytes(moov.offset, moov.length);
    if (movie.moov.size() != moov.length)
        return fail(cannotOpen());
    const Span body{reinterpret_cast<const uchar*>(movie.moov.constData()), movie.moov.size()};
    int number = 0;
    const bool whole = eachAtom(body, [&](const char* type, Span trak) {
        if (std::memcmp(type, "trak", 4) != 0)
            return true;
        std::optional<Track> track = trackOf(trak, file.size(), ++number, why);
        if (track)
            movie.tracks.push_back(std::move(*track));
        return bool(track);
    });
    if (!whole)
        return why->isEmpty() ? fail(QStringLiteral("its movie atom is damaged")) : std::nullopt;
    qint64 samples = 0;
    for (const Track& track : movie.tracks)
        samples += track.samples;
    if (samples == 0)
        return fail(QStringLiteral("it holds no audio samples"));
    return movie;
}

bool sameSamples(const Source& before, const Source& after)
{
    QString why;
    const std::optional<Movie> a = movieOf(before, &why);
    const std::optional<Movie> b = movieOf(after, &why);
    if (!a || !b || a->tracks.size() != b->tracks.size())
        return false;
    for (size_t i = 0; i < a->tracks.size(); ++i) {
        const Track& trackA = a->tracks[i];
        const Track& trackB = b->tracks[i];
        if (!trackA.sameSizes(trackB) || !sameBytes(before, trackA.runs, after, trackB.runs))
            return false;
    }
    return true;
}

} // namespace

QString unreadable(Format format, const QString& path)
{
    const Source file(path);
    QString why;
    switch (format) {
    case Format::Mpeg:
        mpegAudio(file, &why);
        break;
    case Format::Ogg:
        why = oggUnreadable(file);
        break;
    case Format::Mp4:
        movieOf(file, &why);
        break;
    }
    return why;
}

std::optional<ByteRange> mpegFrames(const QString& path, QString* why)
{
    const Source file(path);
    QString reason;
    const std::optional<Run> run = mpegAudio(file, &reason);
    if (why)
        *why = reason;
    if (!run)
        return std::nullopt;
    return ByteRange{run->offset, run->length};
}

QString difference(Format format, const QString& before, const QString& after)
{
    const Source a(before);
    const Source b(after, true);
    if (!a.isOpen() || !b.isOpen())
        return cannotOpen();
    switch (format) {
    case Format::Mpeg: {
        QString why;
        const std::optional<Run> runA = mpegAudio(a, &why);
        const std::optional<Run> runB = mpegAudio(b, &why);
        if (runA && runB && sameBytes(a, {*runA}, b, {*runB}))
            return {};
        return why.isEmpty() ? QStringLiteral("the MPEG audio differs") : why;
    }
    case Format::Ogg:
        return sameOggPackets(a, b) ? QString() : QStringLiteral("the Ogg audio packets differ");
    case Format::Mp4:
        return sameSamples(a, b) ? QString() : QStringLiteral("the MP4 samples differ");
    }
    return {};
}

} // namespace AudioPayload
