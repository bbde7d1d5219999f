#include "tags/vcedit.h"

#include <ogg/ogg.h>

#include <cstring>
#include <string>
#include <vector>

namespace {
constexpr long kChunk = 4096;

const char* const kTruncated = "Input truncated or empty.";
const char* const kNotOgg = "Input is not an Ogg bitstream.";
const char* const kFirstPage = "Error reading first page of Ogg bitstream.";
const char* const kInitialHeader = "Error reading initial header packet.";
const char* const kNotVorbis = "Ogg bitstream does not contain vorbis data.";
const char* const kCorruptSecondary = "Corrupt secondary header.";
const char* const kEofInHeaders = "EOF before end of vorbis headers.";
const char* const kCorruptData = "Corrupt or missing data, continuing...";
const char* const kWriteFailed = "Error writing stream to output. Output stream may be corrupted or truncated.";

// An ogg_packet that owns its bytes (packets handed out by libogg live only
// until the next page is submitted).
struct OwnedPacket {
    std::vector<unsigned char> bytes;
    ogg_packet packet {};

    explicit OwnedPacket(const ogg_packet& source)
        : bytes(source.packet, source.packet + source.bytes), packet(source)
    {
        packet.packet = bytes.data();
    }
    OwnedPacket(const OwnedPacket&) = delete;
    OwnedPacket& operator=(const OwnedPacket&) = delete;
};
} // namespace

struct vcedit_state {
    ogg_sync_state sync {};
    std::string vendor;  // kept from the input: the comment list may be cleared and refilled
    ogg_stream_state stream {};
    bool streamOpen = false;
    vorbis_info info {};
    vorbis_comment comments {};
    bool vorbisOpen = false;
    OwnedPacket* identification = nullptr;
    OwnedPacket* setup = nullptr;
    std::vector<OwnedPacket*> leftover;  // audio packets that shared the last header page
    long serial = 0;
    FILE* in = nullptr;
    const char* lastError = nullptr;
};

namespace {
void releaseStreams(vcedit_state* state)
{
    if (state->streamOpen)
        ogg_stream_clear(&state->stream);
    ogg_sync_clear(&state->sync);
    if (state->vorbisOpen) {
        vorbis_comment_clear(&state->comments);
        vorbis_info_clear(&state->info);
    }
    delete state->identification;
    delete state->setup;
    for (OwnedPacket* packet : state->leftover)
        delete packet;
    state->leftover.clear();
    state->identification = nullptr;
    state->setup = nullptr;
    state->streamOpen = false;
    state->vorbisOpen = false;
}

// Feeds the next chunk of the input to the sync layer; the byte count read.
long readChunk(vcedit_state* state)
{
    char* buffer = ogg_sync_buffer(&state->sync, kChunk);
    const size_t bytes = std::fread(buffer, 1, size_t(kChunk), state->in);
    ogg_sync_wrote(&state->sync, long(bytes));
    return long(bytes);
}

bool writePage(const vcedit_sink& out, const ogg_page& page)
{
    return out(page.header, page.header_len) && out(page.body, page.body_len);
}

bool flushStream(ogg_stream_state* stream, const vcedit_sink& out)
{
    ogg_page page;
    while (ogg_stream_flush(stream, &page) != 0) {
        if (!writePage(out, page))
            return false;
    }
    return true;
}

bool isSetupHeader(const ogg_packet& packet)
{
    return packet.bytes > 7 && packet.packet[0] == 5 && std::memcmp(packet.packet + 1, "vorbis", 6) == 0;
}

// The comment header packet, built in one buffer: libvorbis grows its packet
// 256 bytes at a time, which takes minutes for a picture of a few megabytes.
std::vector<unsigned char> commentHeader(const std::string& vendor, const vorbis_comment& comments)
{
    std::vector<unsigned char> packet;
    size_t size = 7 + 4 + vendor.size() + 4 + 1;
    for (int i = 0; i < comments.comments; ++i)
        size += 4 + size_t(comments.comment_lengths[i]);
    packet.reserve(size);
    auto append = [&](const void* bytes, size_t length) {
        const auto* begin = static_cast<const unsigned char*>(bytes);
        packet.insert(packet.end(), begin, begin + length);
    };
    auto appendLength = [&](size_t length) {
        for (int i = 0; i < 4; ++i)
            packet.push_back(static_cast<unsigned char>((length >> (8 * i)) & 0xFF));
    };
    packet.push_back(3);
    append("vorbis", 6);
    appendLength(vendor.size());
    append(vendor.data(), vendor.size());
    appendLength(size_t(comments.comments));
    for (int i = 0; i < comments.comments; ++i) {
        appendLength(size_t(comments.comment_lengths[i]));
        append(comments.user_comments[i], size_t(comments.comment_lengths[i]));
    }
    packet.push_back(1);  // framing bit
    return packet;
}

void setPageSequence(ogg_page* page, long sequence)
{
    for (int i = 0; i < 4; ++i)
        page->header[18 + i] = static_cast<unsigned char>((static_cast<unsigned long>(sequence) >> (8 * i)) & 0xFF);
    ogg_page_checksum_set(page);
}
} // namespace

vcedit_state* vcedit_new_state()
{
    auto* state = new vcedit_state;
    ogg_sync_init(&state->sync);
    return state;
}

vorbis_comment* vcedit_comments(vcedit_state* state)
{
    return state && state->vorbisOpen ? &state->comments : nullptr;
}

const vorbis_info* vcedit_info(vcedit_state* state)
{
    return state && state->vorbisOpen ? &state->info : nullptr;
}

long vcedit_serial(vcedit_state* state)
{
    return state ? state->serial : 0;
}

const char* vcedit_error(vcedit_state* state)
{
    return state ? state->lastError : nullptr;
}

void vcedit_clear(vcedit_state* state)
{
    if (!state)
        return;
    releaseStreams(state);
    delete state;
}

int vcedit_open(vcedit_state* state, FILE* in)
{
    releaseStreams(state);
    ogg_sync_init(&state->sync);
    state->in = in;
    state->lastError = nullptr;

    ogg_page page;
    long total = 0;
    int result = 0;
    while ((result = ogg_sync_pageout(&state->sync, &page)) != 1) {
        const long bytes = readChunk(state);
        total += bytes;
        // A first page never needs more than 64 KiB of input.
        if (bytes == 0 || total > 65536) {
            state->lastError = total < kChunk ? kTruncated : kNotOgg;
            return -1;
        }
    }
    state->serial = ogg_page_serialno(&page);
    ogg_stream_init(&state->stream, int(state->serial));
    state->streamOpen = true;
    vorbis_info_init(&state->info);
    vorbis_comment_init(&state->comments);
    state->vorbisOpen = true;

    if (ogg_stream_pagein(&state->stream, &page) < 0) {
        state->lastError = kFirstPage;
        return -1;
    }
    ogg_packet packet;
    if (ogg_stream_packetout(&state->stream, &packet) != 1) {
        state->lastError = kInitialHeader;
        return -1;
    }
    if (vorbis_synthesis_headerin(&state->info, &state->comments, &packet) < 0) {
        state->lastError = kNotVorbis;
        return -1;
    }
    state->identification = new OwnedPacket(packet);

    int headers = 0;  // comment and setup headers read so far
    while (headers < 2) {
        while (headers < 2) {
            result = ogg_sync_pageout(&state->sync, &page);
            if (result == 0)
                break;  // needs more input
            if (result < 0 || ogg_page_serialno(&page) != state->serial)
                continue;
            ogg_stream_pagein(&state->stream, &page);
            while (headers < 2) {
                result = ogg_stream_packetout(&state->stream, &packet);
                if (result == 0)
                    break;
                // The setup header is copied, not decoded: unpacking its codebooks
                // costs more than everything else here and nothing needs them.
                const bool valid = result > 0
                    && (headers == 0 ? vorbis_synthesis_headerin(&state->info, &state->comments, &packet) == 0
                                     : isSetupHeader(packet));
                if (!valid) {
                    state->lastError = kCorruptSecondary;
                    return -1;
                }
                if (headers == 0)
                    state->vendor = state->comments.vendor ? state->comments.vendor : "";
                if (headers == 1)
                    state->setup = new OwnedPacket(packet);
                ++headers;
            }
        }
        if (headers < 2 && readChunk(state) == 0) {
            state->lastError = kEofInHeaders;
            return -1;
        }
    }
    // Audio packets completed on the setup header's page go out again after the headers.
    while (ogg_stream_packetout(&state->stream, &packet) == 1)
        state->leftover.push_back(new OwnedPacket(packet));
    return 0;
}

int vcedit_write(vcedit_state* state, const vcedit_sink& out)
{
    if (!state || !state->vorbisOpen || !state->identification || !state->setup)
        return -1;
    ogg_stream_state stream;
    ogg_stream_init(&stream, int(state->serial));
    std::vector<unsigned char> commentBytes = commentHeader(state->vendor, state->comments);
    ogg_packet comments {};
    comments.packet = commentBytes.data();
    comments.bytes = long(commentBytes.size());
    comments.packetno = 1;

    // The identification header alone on the first page, the other two after it.
    ogg_stream_packetin(&stream, &state->identification->packet);
    bool ok = flushStream(&stream, out);
    ogg_stream_packetin(&stream, &comments);
    ogg_stream_packetin(&stream, &state->setup->packet);
    ok = ok && flushStream(&stream, out);
    for (OwnedPacket* packet : state->leftover)
        ogg_stream_packetin(&stream, &packet->packet);
    ok = ok && flushStream(&stream, out);
    long sequence = stream.pageno;
    ogg_stream_clear(&stream);
    if (!ok) {
        state->lastError = kWriteFailed;
        return -1;
    }

    // The rest of the pages unchanged, but for the sequence numbers of this
    // stream, which follow on from the new header pages.
    bool streamEnded = false;
    ogg_page page;
    while (true) {
        const int result = ogg_sync_pageout(&state->sync, &page);
        if (result == 0) {
            if (readChunk(state) == 0)
                break;
            continue;
        }
        if (result < 0) {
            state->lastError = kCorruptData;
            continue;
        }
        if (!streamEnded && ogg_page_serialno(&page) == state->serial) {
            setPageSequence(&page, sequence++);
            streamEnded = ogg_page_eos(&page) != 0;
        }
        if (!writePage(out, page)) {
            state->lastError = kWriteFailed;
            return -1;
        }
    }
    return 0;
}
