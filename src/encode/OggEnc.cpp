#include "encode/OggEnc.h"

#include "encode/PcmReaders.h"

#include <vorbis/vorbisenc.h>

#include <getopt.h>
#include <iconv.h>
#include <langinfo.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <random>
#include <string>
#include <vector>

namespace {

// getopt_long keeps its state in globals, and the serial number generator is
// shared: one parser at a time.
std::mutex parameterMutex;
std::mt19937 serialGenerator;
unsigned serialDraws = 0;

const int samplesPerRead = 1024;

struct EncoderOptions {
    bool quiet = false;
    bool downmix = false;
    int nominalBitrate = -1; // kbit/s
    int minBitrate = -1;
    int maxBitrate = -1;
    float quality = 0.3f;
    std::string output;
    // Per input file, by position; the last given applies to the files beyond.
    std::vector<std::string> titles, artists, albums, tracks, genres, dates;
    std::vector<std::string> inputs;
};

enum LongOnly { optionDownmix = 256 };

const option longOptions[] = {
    {"quiet", no_argument, nullptr, 'Q'},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},
    {"title", required_argument, nullptr, 't'},
    {"artist", required_argument, nullptr, 'a'},
    {"album", required_argument, nullptr, 'l'},
    {"tracknum", required_argument, nullptr, 'N'},
    {"genre", required_argument, nullptr, 'G'},
    {"date", required_argument, nullptr, 'd'},
    {"downmix", no_argument, nullptr, optionDownmix},
    {"bitrate", required_argument, nullptr, 'b'},
    {"min-bitrate", required_argument, nullptr, 'm'},
    {"max-bitrate", required_argument, nullptr, 'M'},
    {"quality", required_argument, nullptr, 'q'},
    {"output", required_argument, nullptr, 'o'},
    {nullptr, 0, nullptr, 0},
};

void printBanner()
{
    std::fprintf(stderr, "OggEnc (Velmora %s, %s)\n", VELMORA_VERSION, vorbis_version_string());
}

void printUsage()
{
    printBanner();
    std::fprintf(stderr,
                 "Usage: oggenc [options] input.wav [...]\n"
                 "  -Q, --quiet          no progress or statistics output\n"
                 "  -b, --bitrate N      nominal bit rate in kbit/s (average, no hard limits)\n"
                 "  -q, --quality N      quality from -1 to 10 (the default, 3, when no bit rate is given)\n"
                 "  -o, --output FILE    output file name (one input only)\n"
                 "  --downmix            mix stereo down to mono\n"
                 "  -t, --title TEXT     title comment        -a, --artist TEXT    artist comment\n"
                 "  -l, --album TEXT     album comment        -N, --tracknum TEXT  track number comment\n"
                 "  -G, --genre TEXT     genre comment        -d, --date TEXT      date comment\n"
                 "Input files are WAV (integer or float PCM) or AIFF/AIFF-C; \"-\" reads standard input.\n");
}

bool parseInteger(const char* text, int* value)
{
    char* end = nullptr;
    errno = 0;
    const long number = std::strtol(text, &end, 10);
    if (end == text || *end != '\0' || errno != 0 || number < -1 || number > 1000000)
        return false;
    *value = static_cast<int>(number);
    return true;
}

// Parses the command line; returns -1 to go on encoding, else the exit status.
int parseOptions(int argc, char** argv, EncoderOptions* options)
{
    // getopt permutes the vector it is given: work on a copy of the caller's,
    // named like the program its messages come from.
    char programName[] = "oggenc";
    std::vector<char*> arguments{programName};
    for (int i = 1; i < argc; ++i)
        arguments.push_back(argv[i]);
    arguments.push_back(nullptr);
    const int count = static_cast<int>(arguments.size()) - 1;

    optind = 0; // reinitialise GNU getopt
    opterr = 1;
    int option;
    while ((option = getopt_long(count, arguments.data(), "Qht:a:l:N:G:d:b:m:M:q:o:V", longOptions, nullptr)) != -1) {
        switch (option) {
        case 'Q':
            options->quiet = true;
            break;
        case 'h':
            printUsage();
            return 0;
        case 'V':
            printBanner();
            return 0;
        case 't':
            options->titles.emplace_back(optarg);
            break;
        case 'a':
            options->artists.emplace_back(optarg);
            break;
        case 'l':
            options->albums.emplace_back(optarg);
            break;
        case 'N':
            options->tracks.emplace_back(optarg);
            break;
        case 'G':
            options->genres.emplace_back(optarg);
            break;
        case 'd':
            options->dates.emplace_back(optarg);
            break;
        case optionDownmix:
            options->downmix = true;
            break;
        case 'b':
            if (!parseInteger(optarg, &options->nominalBitrate)) {
                std::fprintf(stderr, "Warning: nominal bitrate \"%s\" not recognised\n", optarg);
                options->nominalBitrate = -1;
            }
            break;
        case 'm':
            if (!parseInteger(optarg, &options->minBitrate)) {
                std::fprintf(stderr, "Warning: minimum bitrate \"%s\" not recognised\n", optarg);
                options->minBitrate = -1;
            }
            break;
        case 'M':
            if (!parseInteger(optarg, &options->maxBitrate)) {
                std::fprintf(stderr, "Warning: maximum bitrate \"%s\" not recognised\n", optarg);
                options->maxBitrate = -1;
            }
            break;
        case 'q': {
            char* end = nullptr;
            const float quality = std::strtof(optarg, &end);
            if (end == optarg || *end != '\0') {
                std::fprintf(stderr, "Quality option \"%s\" not recognised, ignoring\n", optarg);
            } else {
                options->quality = quality * 0.1f;
                if (options->quality > 1.0f)
                    options->quality = 1.0f;
                if (options->quality < -0.1f)
                    options->quality = -0.1f;
            }
            break;
        }
        case 'o':
            options->output = optarg;
            break;
        default: // getopt has said what was wrong
            return 1;
        }
    }
    for (int i = optind; i < count; ++i)
        options->inputs.emplace_back(arguments[static_cast<size_t>(i)]);

    if (options->inputs.empty()) {
        printBanner();
        std::fprintf(stderr, "ERROR: No input files specified. Use -h for help.\n");
        return 1;
    }
    if (options->inputs.size() > 1) {
        if (!options->output.empty()) {
            std::fprintf(stderr, "ERROR: Multiple input files with specified output filename: suggest using -n\n");
            return 1;
        }
        for (const std::string& input : options->inputs)
            if (input == "-") {
                std::fprintf(stderr, "ERROR: Multiple files specified when using stdin\n");
                return 1;
            }
    }
    return -1;
}

std::string systemReason(int error)
{
    char buffer[256];
    // GNU strerror_r: the message may or may not be put into the buffer.
    return strerror_r(error, buffer, sizeof buffer);
}

bool isUtf8(const std::string& text)
{
    const auto* p = reinterpret_cast<const unsigned char*>(text.data());
    const auto* end = p + text.size();
    while (p < end) {
        int following;
        unsigned long code;
        if (*p < 0x80) {
            ++p;
            continue;
        } else if ((*p & 0xe0) == 0xc0) {
            following = 1, code = *p & 0x1f;
        } else if ((*p & 0xf0) == 0xe0) {
            following = 2, code = *p & 0x0f;
        } else if ((*p & 0xf8) == 0xf0) {
            following = 3, code = *p & 0x07;
        } else {
            return false;
        }
        if (end - p <= following)
            return false;
        for (int i = 1; i <= following; ++i) {
            if ((p[i] & 0xc0) != 0x80)
                return false;
            code = (code << 6) | (p[i] & 0x3f);
        }
        static const unsigned long smallest[] = {0, 0x80, 0x800, 0x10000};
        if (code < smallest[following] || code > 0x10ffff || (code >= 0xd800 && code <= 0xdfff))
            return false;
        p += following + 1;
    }
    return true;
}

// Comments arrive as UTF-8 from the export job; anything else is taken to be in
// the locale's character set.
bool toUtf8(const std::string& text, std::string* converted)
{
    if (isUtf8(text)) {
        *converted = text;
        return true;
    }
    iconv_t conversion = iconv_open("UTF-8", nl_langinfo(CODESET));
    if (conversion == reinterpret_cast<iconv_t>(-1))
        return false;
    std::string result(text.size() * 4 + 4, '\0');
    char* in = const_cast<char*>(text.data());
    size_t inLeft = text.size();
    char* out = result.data();
    size_t outLeft = result.size();
    const bool ok = iconv(conversion, &in, &inLeft, &out, &outLeft) != static_cast<size_t>(-1) && inLeft == 0;
    iconv_close(conversion);
    if (!ok)
        return false;
    result.resize(result.size() - outLeft);
    *converted = result;
    return true;
}

const std::string* forFile(const std::vector<std::string>& values, size_t index)
{
    if (values.empty())
        return nullptr;
    return index < values.size() ? &values[index] : &values.back();
}

void addComments(const EncoderOptions& options, size_t index, vorbis_comment* comment)
{
    const struct {
        const std::vector<std::string>& values;
        const char* tag;
    } sources[] = {{options.titles, "title"},  {options.artists, "artist"}, {options.albums, "album"},
                   {options.tracks, "tracknumber"}, {options.genres, "genre"}, {options.dates, "date"}};
    for (const auto& source : sources) {
        const std::string* value = forFile(source.values, index);
        if (!value)
            continue;
        std::string utf8;
        if (!toUtf8(*value, &utf8)) {
            std::fprintf(stderr, "Couldn't convert comment to UTF-8, cannot add\n");
            continue;
        }
        vorbis_comment_add_tag(comment, source.tag, utf8.c_str());
    }
}

// The output name of an input when no -o is given: the extension becomes ".ogg".
std::string defaultOutputName(const std::string& input)
{
    if (input == "-")
        return "-";
    const size_t slash = input.rfind('/');
    const size_t dot = input.rfind('.');
    if (dot != std::string::npos && (slash == std::string::npos || dot > slash))
        return input.substr(0, dot) + ".ogg";
    return input + ".ogg";
}

bool createFoldersFor(const std::string& path)
{
    for (size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1)) {
        const std::string folder = path.substr(0, slash);
        if (mkdir(folder.c_str(), 0777) != 0 && errno != EEXIST)
            return false;
        struct stat info;
        if (stat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode))
            return false;
    }
    return true;
}

// Mixes a stereo reader down to one channel: each sample is half the sum.
struct DownmixState {
    long (*readSamples)(void*, float**, int);
    void* readState;
    float* left = nullptr;
    float* right = nullptr;
    int capacity = 0;
};

long readDownmixed(void* opaque, float** buffer, int samples)
{
    auto* state = static_cast<DownmixState*>(opaque);
    if (samples > state->capacity) {
        delete[] state->left;
        delete[] state->right;
        state->left = new float[static_cast<size_t>(samples)];
        state->right = new float[static_cast<size_t>(samples)];
        state->capacity = samples;
    }
    float* stereo[2] = {state->left, state->right};
    const long got = state->readSamples(state->readState, stereo, samples);
    for (long i = 0; i < got; ++i)
        buffer[0][i] = 0.5f * (state->left[i] + state->right[i]);
    return got;
}

bool writePage(const ogg_page& page, FILE* out)
{
    return std::fwrite(page.header, 1, static_cast<size_t>(page.header_len), out) ==
               static_cast<size_t>(page.header_len) &&
           std::fwrite(page.body, 1, static_cast<size_t>(page.body_len), out) == static_cast<size_t>(page.body_len);
}

struct EncodeJob {
    const EncoderOptions* options;
    OggEncInput input;
    vorbis_comment* comment;
    FILE* out;
    int serial;
    const char* inputName;
    const char* outputName;
};

bool encode(const EncodeJob& job)
{
    const EncoderOptions& options = *job.options;
    if (job.input.channels > 255) {
        std::fprintf(stderr, "255 channels should be enough for anyone. (Sorry, vorbis doesn't support more)\n");
        return false;
    }
    if (options.minBitrate >= 0 || options.maxBitrate >= 0) {
        std::fprintf(stderr, "Requesting a minimum or maximum bitrate requires --managed\n");
        return false;
    }

    vorbis_info info;
    vorbis_info_init(&info);
    if (options.nominalBitrate > 0) {
        if (vorbis_encode_setup_managed(&info, job.input.channels, job.input.rate, -1,
                                        options.nominalBitrate * 1000L, -1) != 0) {
            std::fprintf(stderr, "Mode initialisation failed: invalid parameters for bitrate\n");
            vorbis_info_clear(&info);
            return false;
        }
        // The nominal rate is an average target without hard limits.
        vorbis_encode_ctl(&info, OV_ECTL_RATEMANAGE2_SET, nullptr);
    } else if (vorbis_encode_setup_vbr(&info, job.input.channels, job.input.rate, options.quality) != 0) {
        std::fprintf(stderr, "Mode initialisation failed: invalid parameters for quality\n");
        vorbis_info_clear(&info);
        return false;
    }
    if (vorbis_encode_setup_init(&info) != 0) {
        std::fprintf(stderr, "Mode initialisation failed: invalid parameters for %s\n",
                     options.nominalBitrate > 0 ? "bitrate" : "quality");
        vorbis_info_clear(&info);
        return false;
    }

    vorbis_dsp_state dsp;
    vorbis_block block;
    ogg_stream_state stream;
    vorbis_analysis_init(&dsp, &info);
    vorbis_block_init(&dsp, &block);
    ogg_stream_init(&stream, job.serial);

    if (!options.quiet) {
        if (options.nominalBitrate > 0)
            std::fprintf(stderr, "Encoding \"%s\" to \n         \"%s\"\nat average bitrate %d kbps\n", job.inputName,
                         job.outputName, options.nominalBitrate);
        else
            std::fprintf(stderr, "Encoding \"%s\" to \n         \"%s\"\nat quality %2.2f\n", job.inputName,
                         job.outputName, options.quality * 10);
    }
    const auto started = std::chrono::steady_clock::now();

    bool ok = true;
    ogg_packet headerMain, headerComments, headerCodebooks;
    vorbis_analysis_headerout(&dsp, job.comment, &headerMain, &headerComments, &headerCodebooks);
    ogg_stream_packetin(&stream, &headerMain);
    ogg_stream_packetin(&stream, &headerComments);
    ogg_stream_packetin(&stream, &headerCodebooks);
    // The audio starts on a page of its own.
    ogg_page page;
    while (ok && ogg_stream_flush(&stream, &page) != 0) {
        if (!writePage(page, job.out)) {
            std::fprintf(stderr, "Failed writing header to output stream\n");
            ok = false;
        }
    }

    long long samplesDone = 0;
    long long bytesWritten = 0;
    bool endOfStream = false;
    int blocksSinceProgress = 0;
    while (ok && !endOfStream) {
        float** buffer = vorbis_analysis_buffer(&dsp, samplesPerRead);
        const long got = job.input.readSamples(job.input.readState, buffer, samplesPerRead);
        vorbis_analysis_wrote(&dsp, static_cast<int>(got));
        samplesDone += got;
        if (!options.quiet && job.input.totalSamplesPerChannel > 0 && ++blocksSinceProgress == 64) {
            blocksSinceProgress = 0;
            std::fprintf(stderr, "\r\t[%5.1f%%]", 100.0 * samplesDone / job.input.totalSamplesPerChannel);
        }
        ogg_packet packet;
        while (ok && vorbis_analysis_blockout(&dsp, &block) == 1) {
            vorbis_analysis(&block, nullptr);
            vorbis_bitrate_addblock(&block);
            while (ok && vorbis_bitrate_flushpacket(&dsp, &packet) != 0) {
                ogg_stream_packetin(&stream, &packet);
                while (ok && !endOfStream && ogg_stream_pageout(&stream, &page) != 0) {
                    if (!writePage(page, job.out)) {
                        std::fprintf(stderr, "Failed writing data to output stream\n");
                        ok = false;
                    }
                    bytesWritten += page.header_len + page.body_len;
                    if (ogg_page_eos(&page))
                        endOfStream = true;
                }
            }
        }
    }

    if (ok && !options.quiet) {
        const double seconds = job.input.rate > 0 ? double(samplesDone) / job.input.rate : 0;
        const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        std::fprintf(stderr, "\n\nDone encoding file \"%s\"\n\n", job.outputName);
        std::fprintf(stderr, "\tFile length:  %dm %04.1fs\n", int(seconds / 60), seconds - 60 * int(seconds / 60));
        std::fprintf(stderr, "\tElapsed time: %dm %04.1fs\n", int(elapsed / 60), elapsed - 60 * int(elapsed / 60));
        if (elapsed > 0)
            std::fprintf(stderr, "\tRate:         %.4f\n", seconds / elapsed);
        if (seconds > 0)
            std::fprintf(stderr, "\tAverage bitrate: %.1f kb/s\n\n", bytesWritten * 8 / seconds / 1000);
    }

    ogg_stream_clear(&stream);
    vorbis_block_clear(&block);
    vorbis_dsp_clear(&dsp);
    vorbis_info_clear(&info);
    return ok;
}

// Encodes one input file; false on any failure (the message is already out).
bool encodeFile(const EncoderOptions& options, size_t index, int serial)
{
    const std::string& inputName = options.inputs[index];
    const bool fromStdin = inputName == "-";
    const std::string outputName = options.output.empty() ? defaultOutputName(inputName) : options.output;
    const bool toStdout = outputName == "-";

    vorbis_comment comment;
    vorbis_comment_init(&comment);
    addComments(options, index, &comment);

    FILE* in = fromStdin ? stdin : std::fopen(inputName.c_str(), "rb");
    if (!in) {
        std::fprintf(stderr, "ERROR: Cannot open input file \"%s\": %s\n", inputName.c_str(),
                     systemReason(errno).c_str());
        vorbis_comment_clear(&comment);
        return false;
    }

    bool ok = false;
    FILE* out = nullptr;
    OggEncInput input;
    const PcmInputFormat* format = open_audio_file(in, &input);
    if (!format) {
        std::fprintf(stderr, "ERROR: Input file \"%s\" is not a supported format\n", inputName.c_str());
    } else {
        std::fprintf(stderr, "Opening with %s module: %s\n", format->format, format->description);
        if (!toStdout && !createFoldersFor(outputName)) {
            std::fprintf(stderr, "ERROR: Could not create required subdirectories for output filename \"%s\"\n",
                         outputName.c_str());
        } else if (!(out = toStdout ? stdout : std::fopen(outputName.c_str(), "wb"))) {
            std::fprintf(stderr, "ERROR: Cannot open output file \"%s\": %s\n", outputName.c_str(),
                         systemReason(errno).c_str());
        } else {
            DownmixState downmix{input.readSamples, input.readState};
            EncodeJob job{&options, input, &comment, out, serial, inputName.c_str(), outputName.c_str()};
            bool ready = true;
            if (options.downmix) {
                if (input.channels != 2) {
                    std::fprintf(stderr, "ERROR: Can't downmix except from stereo to mono\n");
                    ready = false;
                } else {
                    std::fprintf(stderr, "Downmixing stereo to mono\n");
                    job.input.channels = 1;
                    job.input.readSamples = readDownmixed;
                    job.input.readState = &downmix;
                }
            }
            ok = ready && encode(job);
            delete[] downmix.left;
            delete[] downmix.right;
            if (toStdout) {
                ok = std::fflush(out) == 0 && ok;
            } else if (std::fclose(out) != 0 && ok) {
                std::fprintf(stderr, "Failed writing data to output stream\n");
                ok = false;
            }
            // A half-made file would pass for a result.
            if (!ok && !toStdout)
                std::remove(outputName.c_str());
        }
        format->close(input.readState);
    }
    if (!fromStdin)
        std::fclose(in);
    vorbis_comment_clear(&comment);
    return ok;
}

} // namespace

int oggenc_main(int argc, char** argv)
{
    EncoderOptions options;
    unsigned serial;
    {
        std::lock_guard<std::mutex> lock(parameterMutex);
        const int status = parseOptions(argc, argv, &options);
        if (status >= 0)
            return status;
        // Two encodes started in the same instant still get different streams.
        const auto now = std::chrono::system_clock::now().time_since_epoch().count();
        serialGenerator.seed(static_cast<unsigned>(now) ^ (++serialDraws * 0x9e3779b9u));
        serial = static_cast<unsigned>(serialGenerator());
    }

    int failures = 0;
    for (size_t index = 0; index < options.inputs.size(); ++index)
        if (!encodeFile(options, index, static_cast<int>(serial + index)))
            ++failures;
    return failures == 0 ? 0 : 1;
}
