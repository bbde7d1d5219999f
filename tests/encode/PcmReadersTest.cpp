// The WAV and AIFF readers of the Ogg encoder on hand-made headers: what they
// accept, what they refuse with which message, and the samples they hand out.
#include "encode/PcmReaders.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <algorithm>
#include <string>
#include <thread>
#include <vector>

namespace {

using Bytes = std::string;

void putLe(Bytes& b, uint32_t value, int size)
{
    for (int i = 0; i < size; ++i)
        b += char((value >> (8 * i)) & 0xff);
}
void putBe(Bytes& b, uint32_t value, int size)
{
    for (int i = size - 1; i >= 0; --i)
        b += char((value >> (8 * i)) & 0xff);
}
Bytes chunk(const char* type, const Bytes& body, bool bigEndian, long declared = -1)
{
    Bytes b(type, 4);
    const uint32_t length = declared < 0 ? uint32_t(body.size()) : uint32_t(declared);
    bigEndian ? putBe(b, length, 4) : putLe(b, length, 4);
    b += body;
    if (body.size() & 1)
        b += '\0';
    return b;
}

struct WavSpec {
    int tag = 1, channels = 2, rate = 44100, bits = 16;
    int blockAlign = -1;        // -1: bits / 8 * channels
    int fmtLength = 16;
    long dataLength = -1;       // -1: the payload's size
    Bytes before;               // chunks before "fmt "
    Bytes between;              // chunks between "fmt " and "data"
};

Bytes wav(const WavSpec& s, const Bytes& payload)
{
    Bytes fmt;
    putLe(fmt, uint32_t(s.tag), 2);
    putLe(fmt, uint32_t(s.channels), 2);
    putLe(fmt, uint32_t(s.rate), 4);
    const int align = s.blockAlign >= 0 ? s.blockAlign : s.bits / 8 * s.channels;
    putLe(fmt, uint32_t(s.rate * align), 4);
    putLe(fmt, uint32_t(align), 2);
    putLe(fmt, uint32_t(s.bits), 2);
    fmt.resize(size_t(s.fmtLength), '\0');
    const Bytes body = Bytes("WAVE") + s.before + chunk("fmt ", fmt, false) + s.between +
                       chunk("data", payload, false, s.dataLength);
    Bytes b("RIFF");
    putLe(b, uint32_t(body.size()), 4);
    return b + body;
}

// An 80-bit IEEE extended number holding a whole rate.
Bytes extended(uint32_t rate)
{
    int exponent = 31;
    while (!(rate & (1u << exponent)))
        --exponent;
    Bytes b;
    putBe(b, uint32_t(16383 + exponent), 2);
    putBe(b, rate << (31 - exponent), 4);
    putBe(b, 0, 4);
    return b;
}

struct AiffSpec {
    bool aifc = false;
    int channels = 2, bits = 16;
    uint32_t frames = 0;
    Bytes rate = extended(44100);
    const char* compression = "NONE";
    uint32_t offset = 0, blockSize = 0;
    int commLength = -1; // -1: the natural length
    Bytes before;        // chunks before "COMM"
};

Bytes aiff(const AiffSpec& s, const Bytes& samples)
{
    Bytes comm;
    putBe(comm, uint32_t(s.channels), 2);
    putBe(comm, s.frames, 4);
    putBe(comm, uint32_t(s.bits), 2);
    comm += s.rate;
    if (s.aifc) {
        comm += Bytes(s.compression, 4);
        comm += Bytes("\x0enot compressed", 15);
    }
    if (s.commLength >= 0)
        comm.resize(size_t(s.commLength));
    Bytes ssnd;
    putBe(ssnd, s.offset, 4);
    putBe(ssnd, s.blockSize, 4);
    ssnd += Bytes(s.offset, '\x55') + samples;
    const Bytes body = Bytes(s.aifc ? "AIFC" : "AIFF") + s.before + chunk("COMM", comm, true) + chunk("SSND", ssnd, true);
    Bytes b("FORM");
    putBe(b, uint32_t(body.size()), 4);
    return b + body;
}

// An input stream over bytes: a temporary file (seekable) or a pipe (not).
class Stream {
public:
    Stream(const Bytes& bytes, bool pipe)
    {
        if (!pipe) {
            file = std::tmpfile();
            std::fwrite(bytes.data(), 1, bytes.size(), file);
            std::rewind(file);
            return;
        }
        int fds[2];
        if (::pipe(fds) != 0)
            return;
        file = fdopen(fds[0], "rb");
        writer = std::thread([fd = fds[1], bytes] {
            size_t done = 0;
            while (done < bytes.size()) {
                const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
                if (n <= 0)
                    break;
                done += size_t(n);
            }
            ::close(fd);
        });
    }
    ~Stream()
    {
        if (file)
            std::fclose(file); // before joining: a writer blocked on a full pipe gets EPIPE
        if (writer.joinable())
            writer.join();
    }
    FILE* file = nullptr;
    std::thread writer;
};

struct Opened {
    const PcmInputFormat* format = nullptr;
    OggEncInput input;
    std::string messages;
    std::vector<std::vector<float>> samples; // per channel, everything read
};

Opened openAndRead(const Bytes& bytes, bool pipe = false, int chunkSize = 1024)
{
    Stream stream(bytes, pipe);
    Opened result;
    testing::internal::CaptureStderr();
    result.format = open_audio_file(stream.file, &result.input);
    result.messages = testing::internal::GetCapturedStderr();
    if (!result.format)
        return result;
    const int channels = result.input.channels;
    std::vector<std::vector<float>> buffers(static_cast<size_t>(channels), std::vector<float>(static_cast<size_t>(chunkSize)));
    std::vector<float*> pointers;
    for (auto& b : buffers)
        pointers.push_back(b.data());
    result.samples.resize(size_t(channels));
    long got;
    while ((got = result.input.readSamples(result.input.readState, pointers.data(), chunkSize)) > 0)
        for (int c = 0; c < channels; ++c)
            result.samples[size_t(c)].insert(result.samples[size_t(c)].end(), buffers[size_t(c)].begin(),
                                             buffers[size_t(c)].begin() + got);
    result.format->close(result.input.readState);
    return result;
}

Bytes le16Samples(std::initializer_list<int> values)
{
    Bytes b;
    for (int v : values)
        putLe(b, uint32_t(v) & 0xffff, 2);
    return b;
}

TEST(PcmReaders, WavSixteenBitSamplesAndFormatChunkLengths)
{
    const Bytes payload = le16Samples({0, 16384, -32768, 32767, -16384, 1});
    for (int fmtLength : {16, 18}) {
        WavSpec spec;
        spec.fmtLength = fmtLength;
        const Opened o = openAndRead(wav(spec, payload));
        ASSERT_NE(o.format, nullptr) << fmtLength;
        EXPECT_STREQ(o.format->format, "wav");
        EXPECT_STREQ(o.format->description, "WAV file reader");
        EXPECT_EQ(o.messages, "");
        EXPECT_EQ(o.input.rate, 44100);
        EXPECT_EQ(o.input.channels, 2);
        EXPECT_EQ(o.input.totalSamplesPerChannel, 3);
        EXPECT_EQ(o.samples[0], (std::vector<float>{0.0f, -1.0f, -0.5f}));
        EXPECT_EQ(o.samples[1], (std::vector<float>{0.5f, 32767 / 32768.0f, 1 / 32768.0f}));
    }
    WavSpec odd;
    odd.fmtLength = 20;
    const Opened o = openAndRead(wav(odd, payload));
    ASSERT_NE(o.format, nullptr);
    EXPECT_EQ(o.messages, "Warning: INVALID format chunk in wav header.\n Trying to read anyway (may not work)...\n");
    EXPECT_EQ(o.samples[1].size(), 3u);
}

TEST(PcmReaders, WavChunksBeforeFormatAndDataAreSkippedEvenOnAPipe)
{
    WavSpec spec;
    spec.before = chunk("LIST", "abcd", false);
    spec.between = chunk("fact", "xyz", false) + chunk("junk", Bytes(3000, 'j'), false);
    for (bool pipe : {false, true}) {
        const Opened o = openAndRead(wav(spec, le16Samples({100, -100})), pipe);
        ASSERT_NE(o.format, nullptr);
        EXPECT_EQ(o.messages, "Skipping chunk of type \"LIST\", length 4\n"
                              "Skipping chunk of type \"fact\", length 3\n"
                              "Skipping chunk of type \"junk\", length 3000\n");
        ASSERT_EQ(o.samples[0].size(), 1u);
        EXPECT_FLOAT_EQ(o.samples[1][0], -100 / 32768.0f);
    }
}

TEST(PcmReaders, WavDataLengthThatIsZeroOrLies)
{
    Bytes payload;
    for (int i = 0; i < 5000; ++i)
        payload += le16Samples({i, -i});

    // Zero: measured from the file on a seekable stream, unknown on a pipe; all is read.
    WavSpec unknown;
    unknown.dataLength = 0;
    Opened o = openAndRead(wav(unknown, payload));
    EXPECT_EQ(o.input.totalSamplesPerChannel, 5000);
    EXPECT_EQ(o.samples[0].size(), 5000u);
    o = openAndRead(wav(unknown, payload), true);
    EXPECT_EQ(o.input.totalSamplesPerChannel, 0);
    EXPECT_EQ(o.samples[0].size(), 5000u);

    // Claiming more than there is: read up to the real end.
    WavSpec tooLong;
    tooLong.dataLength = 0x7ffffff0;
    o = openAndRead(wav(tooLong, payload));
    ASSERT_NE(o.format, nullptr);
    EXPECT_EQ(o.samples[0].size(), 5000u);
    EXPECT_FLOAT_EQ(o.samples[0].back(), 4999 / 32768.0f);

    // Claiming less: stop where the header says, even with more bytes behind.
    WavSpec tooShort;
    tooShort.dataLength = 400;
    o = openAndRead(wav(tooShort, payload), false, 64);
    EXPECT_EQ(o.samples[1].size(), 100u);

    // A trailing half frame is not delivered.
    o = openAndRead(wav(WavSpec{}, payload + "\x01\x02\x03"));
    EXPECT_EQ(o.samples[0].size(), 5000u);
}

TEST(PcmReaders, WavSampleFormats)
{
    WavSpec eight;
    eight.bits = 8;
    eight.channels = 1;
    Opened o = openAndRead(wav(eight, Bytes("\x80\xff\x00\x40", 4)));
    ASSERT_NE(o.format, nullptr);
    EXPECT_EQ(o.samples[0], (std::vector<float>{0.0f, 127 / 128.0f, -1.0f, -0.5f}));

    WavSpec twentyFour;
    twentyFour.bits = 24;
    twentyFour.channels = 1;
    o = openAndRead(wav(twentyFour, Bytes("\x00\x00\x40\xff\xff\xff\x00\x00\x80", 9)));
    ASSERT_NE(o.format, nullptr);
    EXPECT_EQ(o.samples[0], (std::vector<float>{0.5f, -1 / 8388608.0f, -1.0f}));

    WavSpec floats;
    floats.tag = 3;
    floats.bits = 32;
    floats.channels = 1;
    Bytes payload;
    for (float f : {0.25f, -0.75f, 1.5f}) {
        uint32_t bits;
        std::memcpy(&bits, &f, 4);
        putLe(payload, bits, 4);
    }
    o = openAndRead(wav(floats, payload));
    ASSERT_NE(o.format, nullptr);
    EXPECT_EQ(o.samples[0], (std::vector<float>{0.25f, -0.75f, 1.5f}));

    // WAVE_FORMAT_EXTENSIBLE with six 16-bit channels, as sox and ffmpeg write them.
    WavSpec extensible;
    extensible.tag = 0xfffe;
    extensible.channels = 6;
    extensible.fmtLength = 40;
    Bytes wave = wav(extensible, le16Samples({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
    const size_t fmtBody = wave.find("fmt ") + 8;
    wave[fmtBody + 16] = 22;   // cbSize
    wave[fmtBody + 24] = 1;    // sub-format: integer PCM
    o = openAndRead(wave);
    ASSERT_NE(o.format, nullptr) << o.messages;
    EXPECT_EQ(o.messages, "");
    EXPECT_EQ(o.input.channels, 6);
    EXPECT_FLOAT_EQ(o.samples[5][1], 12 / 32768.0f);
}

TEST(PcmReaders, WavHeadersThatAreRefused)
{
    struct Case {
        const char* name;
        Bytes bytes;
        const char* message;
    };
    WavSpec shortFmt;
    shortFmt.fmtLength = 14;
    WavSpec adpcm;
    adpcm.tag = 2;
    WavSpec badAlign;
    badAlign.blockAlign = 3;
    WavSpec twelveBit;
    twelveBit.bits = 12;
    WavSpec noChannels;
    noChannels.channels = 0;
    const Bytes good = wav(WavSpec{}, le16Samples({1, 2}));
    const Case cases[] = {
        {"short fmt", wav(shortFmt, ""), "Warning: Unrecognised format chunk in WAV header\n"},
        {"adpcm", wav(adpcm, ""),
         "ERROR: Wav file is unsupported type (must be standard PCM\n or type 3 floating point PCM\n"},
        {"align", wav(badAlign, ""),
         "ERROR: Wav file is unsupported subformat (must be 16 bit PCM\nor floating point PCM\n"},
        {"12 bit", wav(twelveBit, ""),
         "ERROR: Wav file is unsupported subformat (must be 16 bit PCM\nor floating point PCM\n"},
        {"no channels", wav(noChannels, ""),
         "ERROR: Wav file is unsupported subformat (must be 16 bit PCM\nor floating point PCM\n"},
        {"ends in fmt", good.substr(0, 30), "Warning: Unexpected EOF in reading WAV header\n"},
        {"no data", good.substr(0, 36), "Warning: Unexpected EOF in reading WAV header\n"},
    };
    for (const Case& c : cases) {
        const Opened o = openAndRead(c.bytes);
        EXPECT_EQ(o.format, nullptr) << c.name;
        EXPECT_EQ(o.messages, c.message) << c.name;
    }
    // Neither reader knows it.
    EXPECT_EQ(openAndRead("RIFF\0\0\0\0AVI LIST").format, nullptr);
    EXPECT_EQ(openAndRead("RIFF").format, nullptr);
    EXPECT_EQ(openAndRead("").format, nullptr);
}

TEST(PcmReaders, AiffAndAiffcSamples)
{
    Bytes be16;
    for (int v : {16384, -32768, 1, -1})
        putBe(be16, uint32_t(v) & 0xffff, 2);
    AiffSpec plain;
    plain.frames = 2;
    plain.before = chunk("COMT", "odd", true); // odd length: one pad byte follows
    Opened o = openAndRead(aiff(plain, be16));
    ASSERT_NE(o.format, nullptr) << o.messages;
    EXPECT_STREQ(o.format->format, "aiff");
    EXPECT_STREQ(o.format->description, "AIFF/AIFC file reader");
    EXPECT_EQ(o.messages, "Skipping chunk of type \"COMT\", length 3\n");
    EXPECT_EQ(o.input.rate, 44100);
    EXPECT_EQ(o.input.totalSamplesPerChannel, 2);
    EXPECT_EQ(o.samples[0], (std::vector<float>{0.5f, 1 / 32768.0f}));
    EXPECT_EQ(o.samples[1], (std::vector<float>{-1.0f, -1 / 32768.0f}));

    AiffSpec compressedNone;
    compressedNone.aifc = true;
    compressedNone.frames = 2;
    compressedNone.offset = 6; // bytes before the first sample frame
    compressedNone.rate = extended(48000);
    compressedNone.before = chunk("FVER", Bytes("\xa2\x80\x51\x40", 4), true);
    for (bool pipe : {false, true}) {
        o = openAndRead(aiff(compressedNone, be16), pipe);
        ASSERT_NE(o.format, nullptr) << o.messages;
        EXPECT_EQ(o.input.rate, 48000);
        EXPECT_EQ(o.samples[1], (std::vector<float>{-1.0f, -1 / 32768.0f}));
    }

    // 8-bit data is taken as unsigned, as in WAV files.
    AiffSpec eight;
    eight.bits = 8;
    eight.channels = 1;
    eight.frames = 3;
    o = openAndRead(aiff(eight, Bytes("\x80\x00\xc0", 3)));
    ASSERT_NE(o.format, nullptr);
    EXPECT_EQ(o.samples[0], (std::vector<float>{0.0f, -1.0f, 0.5f}));

    // More frames announced than stored: read to the real end.
    AiffSpec lying = plain;
    lying.frames = 1000000;
    o = openAndRead(aiff(lying, be16));
    EXPECT_EQ(o.samples[0].size(), 2u);
}

TEST(PcmReaders, AiffSampleRates)
{
    for (uint32_t rate : {8000u, 11025u, 22050u, 44100u, 96000u, 192000u}) {
        AiffSpec spec;
        spec.rate = extended(rate);
        EXPECT_EQ(openAndRead(aiff(spec, "")).input.rate, long(rate));
    }
    // Infinity and not-a-number.
    AiffSpec infinite;
    infinite.rate = Bytes("\x7f\xff\x80\0\0\0\0\0\0\0", 10);
    EXPECT_EQ(openAndRead(aiff(infinite, "")).input.rate, 0x7fffffffL);
    infinite.rate = Bytes("\x7f\xff\x40\0\0\0\0\0\0\0", 10);
    EXPECT_EQ(openAndRead(aiff(infinite, "")).input.rate, long(0x80000000UL));
    // Finite but absurd: no overflow.
    infinite.rate = Bytes("\x43\xff\x80\0\0\0\0\0\0\0", 10);
    EXPECT_EQ(openAndRead(aiff(infinite, "")).input.rate, 0x7fffffffL);
}

TEST(PcmReaders, AiffHeadersThatAreRefused)
{
    struct Case {
        const char* name;
        Bytes bytes;
        const char* message;
    };
    AiffSpec sowt;
    sowt.aifc = true;
    sowt.compression = "sowt";
    AiffSpec floats = sowt;
    floats.compression = "fl32";
    AiffSpec shortAifc;
    shortAifc.aifc = true;
    shortAifc.commLength = 20;
    AiffSpec shortComm;
    shortComm.commLength = 16;
    AiffSpec blocked;
    blocked.blockSize = 4096;
    AiffSpec twelve;
    twelve.bits = 12;
    const Bytes good = aiff(AiffSpec{}, "");
    const Bytes noComm = Bytes("FORM\0\0\0\x10" "AIFF", 12) + chunk("SSND", Bytes(8, '\0'), true);
    const Bytes noSsnd = good.substr(0, good.find("SSND"));
    Bytes tinySsnd = noSsnd + chunk("SSND", "1234", true);
    const char* unsupported = "Warning: OggEnc does not support this type of AIFF/AIFC file\n Must be 8 or 16 bit PCM.\n";
    const Case cases[] = {
        {"sowt", aiff(sowt, ""), "Warning: Can't handle compressed AIFF-C\n"},
        {"fl32", aiff(floats, ""), "Warning: Can't handle compressed AIFF-C\n"},
        {"short aifc", aiff(shortAifc, ""), "Warning: AIFF-C header truncated.\n"},
        {"short comm", aiff(shortComm, ""), "Warning: Truncated common chunk in AIFF header\n"},
        {"block size", aiff(blocked, ""), unsupported},
        {"12 bit", aiff(twelve, ""), unsupported},
        {"no comm", noComm,
         "Skipping chunk of type \"SSND\", length 8\nWarning: Unexpected EOF in AIFF chunk\n"
         "Warning: No common chunk found in AIFF file\n"},
        {"comm cut", good.substr(0, 30), "Warning: Unexpected EOF in reading AIFF header\n"},
        {"no ssnd", noSsnd, "Warning: Unexpected EOF in AIFF chunk\nWarning: No SSND chunk found in AIFF file\n"},
        {"tiny ssnd", tinySsnd, "Warning: Corrupted SSND chunk in AIFF header\n"},
        {"ssnd cut", good.substr(0, good.size() - 4), "Warning: Unexpected EOF reading AIFF header\n"},
    };
    for (const Case& c : cases) {
        const Opened o = openAndRead(c.bytes);
        EXPECT_EQ(o.format, nullptr) << c.name;
        EXPECT_EQ(o.messages, c.message) << c.name;
    }
    EXPECT_EQ(openAndRead("FORM\0\0\0\0AIFX").format, nullptr);
}

TEST(PcmReaders, DamagedHeadersNeverReadOutOfBounds)
{
    // Valid files of every kind, then bytes of their headers changed and their
    // ends cut off; the sanitizers watch the parsing and the reading.
    WavSpec floats;
    floats.tag = 3;
    floats.bits = 32;
    WavSpec six;
    six.tag = 0xfffe;
    six.channels = 6;
    six.fmtLength = 40;
    AiffSpec aifc;
    aifc.aifc = true;
    aifc.frames = 10;
    AiffSpec eight;
    eight.bits = 8;
    eight.frames = 20;
    const Bytes payload(480, '\x5a');
    const Bytes originals[] = {wav(WavSpec{}, payload), wav(floats, payload), wav(six, payload),
                               aiff(aifc, payload), aiff(eight, payload)};
    std::mt19937 random(20261121);
    for (int round = 0; round < 1500; ++round) {
        Bytes bytes = originals[size_t(round) % std::size(originals)];
        const size_t headerEnd = std::min<size_t>(bytes.size(), 90);
        const int changes = 1 + int(random() % 4);
        for (int i = 0; i < changes; ++i)
            bytes[random() % headerEnd] = char(random() % 4 == 0 ? 0xff : random());
        if (random() % 3 == 0)
            bytes.resize(random() % bytes.size());
        const Opened o = openAndRead(bytes, false, 1 + int(random() % 700));
        if (!o.format)
            continue;
        ASSERT_GE(o.input.channels, 1);
        size_t delivered = 0;
        for (const auto& channel : o.samples)
            delivered += channel.size();
        EXPECT_LE(delivered, bytes.size()) << "round " << round;
    }
}

} // namespace
