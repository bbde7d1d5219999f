// mqp: a small player and converter on GStreamer.
//
//   mqp FILE                         play FILE, driven by command lines on standard input
//   mqp -e SOURCE -c SETTINGS DEST   convert SOURCE as the settings file says
//
// Player commands, one a line: "play", "pause" (toggles once playing), "volume N"
// (0-100), "time N" (seek to N percent), "second-time N" (seek to N seconds),
// "time" (answers the position in whole seconds on a line of its own),
// "length" (answers the duration in whole seconds), "ended" (answers 1 once the
// song has played to its end, else 0), "quit". The player starts prerolled but
// silent; "play" starts it. End of input quits.
//
// MQP_AUDIO_SINK, when set, is a GStreamer bin description used as the audio sink
// ("fakesink sync=true" plays in real time without a sound card).
// MQP_FIRST_BUFFER_FILE, when set with MQP_AUDIO_SINK, names a file to which the
// player appends the monotonic clock (microseconds) at which the first buffer
// after "play" reached the sink: how long starting to play takes.
#include "Settings.h"

#include <glib-unix.h>
#include <gst/gst.h>

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

// GLib, GStreamer and its plugins (libav's decoders among them) keep allocations
// of their own past the end of the process; a sanitizer build must not count
// them as leaks of this program.
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:libglib-2.0\nleak:libgobject-2.0\nleak:libgst\nleak:libavcodec\nleak:libavformat\nleak:libavutil\n";
}

namespace {

void usage()
{
    std::fprintf(stderr,
                 "usage: mqp FILE\n"
                 "       mqp -e SOURCE -c SETTINGS DEST\n");
}

// A GStreamer URI for a local path or an existing URI.
std::string uriFor(const char* path)
{
    if (gst_uri_is_valid(path))
        return path;
    GError* error = nullptr;
    gchar* uri = gst_filename_to_uri(path, &error);
    if (!uri) {
        std::fprintf(stderr, "mqp: %s: %s\n", path, error ? error->message : "bad path");
        g_clear_error(&error);
        return {};
    }
    std::string result(uri);
    g_free(uri);
    return result;
}

void printError(GstMessage* message)
{
    GError* error = nullptr;
    gchar* debug = nullptr;
    gst_message_parse_error(message, &error, &debug);
    std::fprintf(stderr, "mqp: %s\n", error ? error->message : "unknown error");
    if (debug)
        std::fprintf(stderr, "mqp: %s\n", debug);
    g_clear_error(&error);
    g_free(debug);
}

GstElement* makeElement(const char* factory, const char* name = nullptr)
{
    GstElement* element = gst_element_factory_make(factory, name);
    if (!element)
        std::fprintf(stderr, "mqp: the GStreamer element \"%s\" is missing\n", factory);
    return element;
}

// ---------------------------------------------------------------- converter

struct Converter {
    GstElement* pipeline = nullptr;
    GstElement* firstOfChain = nullptr; // where the decoded audio goes in
    bool audioLinked = false;
    GstClockTime encoded = 0;  // the length of the audio handed to the encoder
};

GstPadProbeReturn countEncoded(GstPad* /*pad*/, GstPadProbeInfo* info, gpointer data)
{
    const GstBuffer* buffer = GST_PAD_PROBE_INFO_BUFFER(info);
    if (buffer && GST_BUFFER_DURATION_IS_VALID(buffer))
        static_cast<Converter*>(data)->encoded += GST_BUFFER_DURATION(buffer);
    return GST_PAD_PROBE_OK;
}

// ---------------------------------------------------------------- MP4 edit list

uint32_t bigEndian32(const unsigned char* at)
{
    return uint32_t(at[0]) << 24 | uint32_t(at[1]) << 16 | uint32_t(at[2]) << 8 | uint32_t(at[3]);
}

uint64_t bigEndian64(const unsigned char* at)
{
    return uint64_t(bigEndian32(at)) << 32 | bigEndian32(at + 4);
}

void putBigEndian32(unsigned char* at, uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        at[i] = static_cast<unsigned char>(value >> (24 - 8 * i));
}

void putBigEndian64(unsigned char* at, uint64_t value)
{
    putBigEndian32(at, uint32_t(value >> 32));
    putBigEndian32(at + 4, uint32_t(value));
}

// The box of the given type directly inside [begin, end): its contents, or null.
const unsigned char* findBox(const unsigned char* begin, const unsigned char* end, const char* type,
                             const unsigned char** contentEnd)
{
    while (end - begin >= 8) {
        uint64_t size = bigEndian32(begin);
        size_t header = 8;
        if (size == 1 && end - begin >= 16) {
            size = bigEndian64(begin + 8);
            header = 16;
        } else if (size == 0) {
            size = uint64_t(end - begin);
        }
        if (size < header || size > uint64_t(end - begin))
            return nullptr;
        if (std::memcmp(begin + 4, type, 4) == 0) {
            *contentEnd = begin + size;
            return begin + header;
        }
        begin += size;
    }
    return nullptr;
}

// The timescale and duration of an mvhd or mdhd box (versions 0 and 1).
bool readHeader(const unsigned char* at, const unsigned char* end, uint32_t* timescale, uint64_t* duration)
{
    const bool wide = end - at >= 1 && at[0] == 1;
    if (end - at < (wide ? 32 : 20))
        return false;
    *timescale = bigEndian32(at + (wide ? 20 : 12));
    *duration = wide ? bigEndian64(at + 24) : bigEndian32(at + 16);
    return *timescale > 0;
}

// Sets the duration field of an mvhd (at 16, or 24 in version 1) or tkhd (20 or 28) box.
void putDuration(const unsigned char* box, size_t narrowAt, size_t wideAt, uint64_t duration)
{
    auto* at = const_cast<unsigned char*>(box);
    if (at[0] == 1)
        putBigEndian64(at + wideAt, duration);
    else
        putBigEndian32(at + narrowAt, uint32_t(duration));
}

// mp4mux writes an edit list that starts at the encoder's first sample, so
// decoders play its priming samples before the audio and the file sounds longer
// than what was encoded. The media's duration is the priming plus the audio (the
// last frame's padding is already cut), so the edit can start after the priming
// and span exactly the audio: players then give back the length encoded, and
// the movie and track say that length.
void skipEncoderPriming(const char* path, GstClockTime encoded)
{
    FILE* file = std::fopen(path, "r+b");
    if (!file)
        return;
    long moovAt = 0;
    uint64_t moovSize = 0;
    unsigned char header[16];
    while (std::fseek(file, moovAt, SEEK_SET) == 0 && std::fread(header, 1, 8, file) == 8) {
        moovSize = bigEndian32(header);
        if (moovSize == 1 && std::fread(header + 8, 1, 8, file) == 8)
            moovSize = bigEndian64(header + 8);
        if (moovSize < 8)
            break;
        if (std::memcmp(header + 4, "moov", 4) == 0)
            break;
        moovAt += long(moovSize);
        moovSize = 0;
    }
    std::vector<unsigned char> moov(moovSize >= 16 && moovSize < (64u << 20) ? size_t(moovSize) : 0);
    if (moov.empty() || std::fseek(file, moovAt, SEEK_SET) != 0 ||
        std::fread(moov.data(), 1, moov.size(), file) != moov.size()) {
        std::fclose(file);
        return;
    }
    const unsigned char* const end = moov.data() + moov.size();
    const unsigned char *mvhdEnd = nullptr, *trakEnd = nullptr, *tkhdEnd = nullptr, *mdiaEnd = nullptr,
                        *mdhdEnd = nullptr, *edtsEnd = nullptr, *elstEnd = nullptr;
    const unsigned char* contents = moov.data() + 8;
    const unsigned char* mvhd = findBox(contents, end, "mvhd", &mvhdEnd);
    const unsigned char* trak = findBox(contents, end, "trak", &trakEnd);
    const unsigned char* tkhd = trak ? findBox(trak, trakEnd, "tkhd", &tkhdEnd) : nullptr;
    const unsigned char* mdia = trak ? findBox(trak, trakEnd, "mdia", &mdiaEnd) : nullptr;
    const unsigned char* mdhd = mdia ? findBox(mdia, mdiaEnd, "mdhd", &mdhdEnd) : nullptr;
    const unsigned char* edts = trak ? findBox(trak, trakEnd, "edts", &edtsEnd) : nullptr;
    const unsigned char* elst = edts ? findBox(edts, edtsEnd, "elst", &elstEnd) : nullptr;
    uint32_t movieScale = 0, mediaScale = 0;
    uint64_t movieDuration = 0, mediaDuration = 0;
    // One entry, version 0 or 1: flags, count, duration, start, rate.
    if (mvhd && tkhd && mdhd && elst && tkhdEnd - tkhd >= (tkhd[0] == 1 ? 36 : 24) &&
        readHeader(mvhd, mvhdEnd, &movieScale, &movieDuration) &&
        readHeader(mdhd, mdhdEnd, &mediaScale, &mediaDuration) && elstEnd - elst >= 8 && bigEndian32(elst + 4) == 1 &&
        elstEnd - elst >= (elst[0] == 1 ? 28 : 20)) {
        const uint64_t samples = gst_util_uint64_scale_round(encoded, mediaScale, GST_SECOND);
        const uint64_t priming = mediaDuration > samples ? mediaDuration - samples : 0;
        // An AAC encoder primes with one or two frames; anything else is left as it is.
        if (samples > 0 && priming > 0 && priming <= 2048) {
            auto* entry = const_cast<unsigned char*>(elst) + 8;
            const uint64_t span = gst_util_uint64_scale_round(samples, movieScale, mediaScale);
            if (elst[0] == 1) {
                putBigEndian64(entry, span);
                putBigEndian64(entry + 8, priming);
            } else {
                putBigEndian32(entry, uint32_t(span));
                putBigEndian32(entry + 4, uint32_t(priming));
            }
            putDuration(mvhd, 16, 24, span);
            putDuration(tkhd, 20, 28, span);
            if (std::fseek(file, moovAt, SEEK_SET) == 0)
                std::fwrite(moov.data(), 1, moov.size(), file);
        }
    }
    std::fclose(file);
}

void onDecodedPad(GstElement* /*decoder*/, GstPad* pad, gpointer data)
{
    auto* converter = static_cast<Converter*>(data);
    if (converter->audioLinked)
        return; // only the first audio stream is converted
    GstCaps* caps = gst_pad_get_current_caps(pad);
    if (!caps)
        caps = gst_pad_query_caps(pad, nullptr);
    const bool isAudio = caps && gst_caps_get_size(caps) > 0 &&
                         g_str_has_prefix(gst_structure_get_name(gst_caps_get_structure(caps, 0)), "audio/x-raw");
    if (caps)
        gst_caps_unref(caps);
    if (!isAudio)
        return;
    GstPad* sink = gst_element_get_static_pad(converter->firstOfChain, "sink");
    if (gst_pad_link(pad, sink) == GST_PAD_LINK_OK)
        converter->audioLinked = true;
    gst_object_unref(sink);
}

void onNoMorePads(GstElement* decoder, gpointer data)
{
    auto* converter = static_cast<Converter*>(data);
    if (!converter->audioLinked)
        GST_ELEMENT_ERROR(decoder, STREAM, WRONG_TYPE, ("The source has no audio stream"), (nullptr));
}

// The AAC encoder at hand: libav's first, else VisualOn's.
GstElement* makeAacEncoder(int bitrateKbps)
{
    for (const char* factory : {"avenc_aac", "voaacenc"}) {
        GstElementFactory* found = gst_element_factory_find(factory);
        if (!found)
            continue;
        gst_object_unref(found);
        GstElement* encoder = gst_element_factory_make(factory, nullptr);
        if (encoder) {
            g_object_set(encoder, "bitrate", bitrateKbps * 1000, nullptr);
            return encoder;
        }
    }
    std::fprintf(stderr, "mqp: no AAC encoder (avenc_aac or voaacenc) is installed\n");
    return nullptr;
}

int convert(const char* source, const char* settingsPath, const char* destination)
{
    std::string settingsError;
    const auto settings = readConversionSettings(settingsPath, &settingsError);
    if (!settings) {
        std::fprintf(stderr, "mqp: %s\n", settingsError.c_str());
        return 2;
    }
    const std::string uri = uriFor(source);
    if (uri.empty())
        return 1;

    Converter converter;
    converter.pipeline = gst_pipeline_new("converter");
    GstElement* decoder = makeElement("uridecodebin");
    GstElement* convert = makeElement("audioconvert");
    GstElement* resample = makeElement("audioresample");
    GstElement* filter = makeElement("capsfilter");
    GstElement* sink = makeElement("filesink");
    const bool aac = settings->format == ConversionSettings::Format::Aac;
    GstElement* encoder = aac ? makeAacEncoder(settings->bitrateKbps) : makeElement("wavenc");
    GstElement* muxer = aac ? makeElement("mp4mux") : nullptr;
    GstElement* all[] = {decoder, convert, resample, filter, encoder, sink};
    bool complete = !aac || muxer;
    for (GstElement* element : all)
        complete = complete && element;
    if (!complete) {
        for (GstElement* element : all)
            if (element)
                gst_object_unref(element);
        if (muxer)
            gst_object_unref(muxer);
        gst_object_unref(converter.pipeline);
        return 1;
    }

    // Only decoded audio is exposed; video and data streams are left alone.
    GstCaps* rawAudio = gst_caps_from_string("audio/x-raw");
    g_object_set(decoder, "uri", uri.c_str(), "caps", rawAudio, "expose-all-streams", FALSE, nullptr);
    gst_caps_unref(rawAudio);

    GstCaps* wanted = gst_caps_new_empty_simple("audio/x-raw");
    if (!aac)
        gst_caps_set_simple(wanted, "format", G_TYPE_STRING, "S16LE", nullptr);
    if (settings->sampleRate > 0)
        gst_caps_set_simple(wanted, "rate", G_TYPE_INT, settings->sampleRate, nullptr);
    if (settings->channels > 0)
        gst_caps_set_simple(wanted, "channels", G_TYPE_INT, settings->channels, nullptr);
    g_object_set(filter, "caps", wanted, nullptr);
    gst_caps_unref(wanted);
    g_object_set(sink, "location", destination, nullptr);

    gst_bin_add_many(GST_BIN(converter.pipeline), decoder, convert, resample, filter, encoder, sink, nullptr);
    bool linked = gst_element_link_many(convert, resample, filter, encoder, nullptr);
    if (muxer) {
        gst_bin_add(GST_BIN(converter.pipeline), muxer);
        linked = linked && gst_element_link_many(encoder, muxer, sink, nullptr);
        GstPad* encoderInput = gst_element_get_static_pad(encoder, "sink");
        gst_pad_add_probe(encoderInput, GST_PAD_PROBE_TYPE_BUFFER, countEncoded, &converter, nullptr);
        gst_object_unref(encoderInput);
    } else {
        linked = linked && gst_element_link(encoder, sink);
    }
    converter.firstOfChain = convert;
    g_signal_connect(decoder, "pad-added", G_CALLBACK(onDecodedPad), &converter);
    g_signal_connect(decoder, "no-more-pads", G_CALLBACK(onNoMorePads), &converter);

    int status = 1;
    if (!linked) {
        std::fprintf(stderr, "mqp: cannot build the conversion pipeline\n");
    } else if (gst_element_set_state(converter.pipeline, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
        // The error message on the bus says why.
        GstBus* bus = gst_element_get_bus(converter.pipeline);
        if (GstMessage* message = gst_bus_pop_filtered(bus, GST_MESSAGE_ERROR)) {
            printError(message);
            gst_message_unref(message);
        } else {
            std::fprintf(stderr, "mqp: cannot start converting \"%s\"\n", source);
        }
        gst_object_unref(bus);
    } else {
        GstBus* bus = gst_element_get_bus(converter.pipeline);
        GstMessage* message = gst_bus_timed_pop_filtered(
            bus, GST_CLOCK_TIME_NONE, static_cast<GstMessageType>(GST_MESSAGE_ERROR | GST_MESSAGE_EOS));
        if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS)
            status = 0;
        else
            printError(message);
        gst_message_unref(message);
        gst_object_unref(bus);
    }
    gst_element_set_state(converter.pipeline, GST_STATE_NULL);
    gst_object_unref(converter.pipeline);
    // A half-written file would pass for a result.
    if (status != 0)
        std::remove(destination);
    else if (aac)
        skipEncoderPriming(destination, converter.encoded);
    return status;
}

// ---------------------------------------------------------------- player

enum class PlayState { NotStarted, Playing, Paused };

struct Player {
    GstElement* playbin = nullptr;
    GMainLoop* loop = nullptr;
    PlayState state = PlayState::NotStarted;
    bool ended = false;
    int exitStatus = 0;
    std::string pendingInput;
    std::atomic<bool> awaitingFirstBuffer {false};
    const char* firstBufferFile = nullptr;
};

gint64 durationOf(Player* player)
{
    gint64 duration = 0;
    if (!gst_element_query_duration(player->playbin, GST_FORMAT_TIME, &duration) || duration < 0)
        return 0;
    return duration;
}

gint64 positionOf(Player* player)
{
    if (player->ended)
        return durationOf(player);
    gint64 position = 0;
    if (!gst_element_query_position(player->playbin, GST_FORMAT_TIME, &position) || position < 0)
        return 0;
    return position;
}

void answer(gint64 nanoseconds)
{
    std::printf("%lld\n", static_cast<long long>(nanoseconds / GST_SECOND));
    std::fflush(stdout);
}

void seekTo(Player* player, gint64 position)
{
    const gint64 duration = durationOf(player);
    if (duration > 0 && position > duration)
        position = duration;
    if (position < 0)
        position = 0;
    if (gst_element_seek_simple(player->playbin, GST_FORMAT_TIME,
                                static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE), position)) {
        player->ended = false;
        // Let the pipeline settle so that the next "time" answers the new position.
        gst_element_get_state(player->playbin, nullptr, nullptr, 2 * GST_SECOND);
    }
}

void setPlaying(Player* player, bool playing)
{
    if (playing && player->state == PlayState::NotStarted && player->firstBufferFile)
        player->awaitingFirstBuffer = true;
    gst_element_set_state(player->playbin, playing ? GST_STATE_PLAYING : GST_STATE_PAUSED);
    player->state = playing ? PlayState::Playing : PlayState::Paused;
}

// Reads the integer argument after a command word; false when there is none.
bool argumentOf(const std::string& line, size_t commandLength, long* value)
{
    const std::string rest = line.substr(commandLength);
    char* end = nullptr;
    errno = 0;
    const long number = std::strtol(rest.c_str(), &end, 10);
    if (end == rest.c_str() || errno != 0)
        return false;
    while (*end == ' ' || *end == '\t' || *end == '\r')
        ++end;
    if (*end != '\0')
        return false;
    *value = number;
    return true;
}

void runCommand(Player* player, std::string line)
{
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ' || line.back() == '\t'))
        line.pop_back();
    long value = 0;
    if (line == "play") {
        if (player->ended)
            seekTo(player, 0);
        setPlaying(player, true);
    } else if (line == "pause") {
        if (player->state == PlayState::Playing)
            setPlaying(player, false);
        else if (player->state == PlayState::Paused)
            setPlaying(player, true);
    } else if (line == "time") {
        answer(positionOf(player));
    } else if (line == "length") {
        answer(durationOf(player));
    } else if (line == "ended") {
        std::printf("%d\n", player->ended ? 1 : 0);
        std::fflush(stdout);
    } else if (line == "quit") {
        g_main_loop_quit(player->loop);
    } else if (line.rfind("volume ", 0) == 0 && argumentOf(line, 7, &value)) {
        const long percent = value < 0 ? 0 : value > 100 ? 100 : value;
        g_object_set(player->playbin, "volume", percent / 100.0, nullptr);
    } else if (line.rfind("second-time ", 0) == 0 && argumentOf(line, 12, &value)) {
        seekTo(player, static_cast<gint64>(value) * GST_SECOND);
    } else if (line.rfind("time ", 0) == 0 && argumentOf(line, 5, &value)) {
        const long percent = value < 0 ? 0 : value > 100 ? 100 : value;
        seekTo(player, durationOf(player) / 100 * percent);
    } else if (!line.empty()) {
        std::fprintf(stderr, "mqp: unknown command \"%s\"\n", line.c_str());
    }
}

gboolean onInput(gint fd, GIOCondition /*condition*/, gpointer data)
{
    auto* player = static_cast<Player*>(data);
    char buffer[1024];
    const ssize_t got = read(fd, buffer, sizeof buffer);
    if (got < 0 && (errno == EINTR || errno == EAGAIN))
        return G_SOURCE_CONTINUE;
    if (got <= 0) {
        // The controlling process went away: stop playing.
        if (!player->pendingInput.empty())
            runCommand(player, player->pendingInput);
        g_main_loop_quit(player->loop);
        return G_SOURCE_REMOVE;
    }
    player->pendingInput.append(buffer, static_cast<size_t>(got));
    size_t newline;
    while ((newline = player->pendingInput.find('\n')) != std::string::npos) {
        const std::string line = player->pendingInput.substr(0, newline);
        player->pendingInput.erase(0, newline + 1);
        runCommand(player, line);
    }
    return G_SOURCE_CONTINUE;
}

gboolean onBusMessage(GstBus* /*bus*/, GstMessage* message, gpointer data)
{
    auto* player = static_cast<Player*>(data);
    switch (GST_MESSAGE_TYPE(message)) {
    case GST_MESSAGE_EOS:
        player->ended = true;
        break;
    case GST_MESSAGE_ERROR:
        printError(message);
        player->exitStatus = 1;
        g_main_loop_quit(player->loop);
        break;
    default:
        break;
    }
    return G_SOURCE_CONTINUE;
}

GstPadProbeReturn onSinkBuffer(GstPad* /*pad*/, GstPadProbeInfo* /*info*/, gpointer data)
{
    auto* player = static_cast<Player*>(data);
    bool expected = true;
    if (!player->awaitingFirstBuffer.compare_exchange_strong(expected, false))
        return GST_PAD_PROBE_OK;
    if (FILE* file = std::fopen(player->firstBufferFile, "a")) {
        std::fprintf(file, "%lld\n", static_cast<long long>(g_get_monotonic_time()));
        std::fclose(file);
    }
    return GST_PAD_PROBE_REMOVE;
}

// libav's MP3 decoder ranks level with mpg123's and wins on its name, but
// loading libav takes longer than everything else that starting a song does.
void preferMpg123()
{
    GstPluginFeature* mpg123 =
        gst_registry_find_feature(gst_registry_get(), "mpg123audiodec", GST_TYPE_ELEMENT_FACTORY);
    if (!mpg123)
        return;
    gst_plugin_feature_set_rank(mpg123, GST_RANK_PRIMARY + 1);
    gst_object_unref(mpg123);
}

GstElement* makeAudioSink()
{
    const char* description = std::getenv("MQP_AUDIO_SINK");
    if (!description || !*description)
        return nullptr; // playbin picks the desktop's sink
    GError* error = nullptr;
    GstElement* sink = gst_parse_bin_from_description(description, TRUE, &error);
    if (!sink)
        std::fprintf(stderr, "mqp: MQP_AUDIO_SINK \"%s\": %s\n", description,
                     error ? error->message : "cannot be made");
    g_clear_error(&error);
    return sink;
}

int play(const char* path)
{
    const std::string uri = uriFor(path);
    if (uri.empty())
        return 1;
    preferMpg123();
    Player player;
    player.playbin = makeElement("playbin");
    if (!player.playbin)
        return 1;
    // Audio only: cover pictures and video tracks are not shown.
    const guint audioFlag = 1u << 1, softVolumeFlag = 1u << 4;
    g_object_set(player.playbin, "uri", uri.c_str(), "flags", audioFlag | softVolumeFlag, nullptr);
    if (std::getenv("MQP_AUDIO_SINK")) {
        GstElement* sink = makeAudioSink();
        if (!sink) {
            gst_object_unref(player.playbin);
            return 1;
        }
        g_object_set(player.playbin, "audio-sink", sink, nullptr);
        player.firstBufferFile = std::getenv("MQP_FIRST_BUFFER_FILE");
        if (player.firstBufferFile && *player.firstBufferFile) {
            GstPad* pad = gst_element_get_static_pad(sink, "sink");
            if (pad) {
                gst_pad_add_probe(pad, GST_PAD_PROBE_TYPE_BUFFER, onSinkBuffer, &player, nullptr);
                gst_object_unref(pad);
            }
        } else {
            player.firstBufferFile = nullptr;
        }
    }

    // Preroll now, so that a file that cannot be played ends the program at once.
    int status = 0;
    GstBus* bus = gst_element_get_bus(player.playbin);
    if (gst_element_set_state(player.playbin, GST_STATE_PAUSED) == GST_STATE_CHANGE_FAILURE)
        status = 1;
    GstMessage* message = gst_bus_timed_pop_filtered(
        bus, 30 * GST_SECOND, static_cast<GstMessageType>(GST_MESSAGE_ERROR | GST_MESSAGE_ASYNC_DONE));
    if (!message) {
        std::fprintf(stderr, "mqp: \"%s\" cannot be opened\n", path);
        status = 1;
    } else {
        if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
            printError(message);
            status = 1;
        }
        gst_message_unref(message);
    }

    if (status == 0) {
        player.loop = g_main_loop_new(nullptr, FALSE);
        const guint busWatch = gst_bus_add_watch(bus, onBusMessage, &player);
        const guint inputWatch = g_unix_fd_add(STDIN_FILENO, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP | G_IO_ERR),
                                               onInput, &player);
        g_main_loop_run(player.loop);
        g_source_remove(busWatch);
        if (GSource* source = g_main_context_find_source_by_id(nullptr, inputWatch))
            g_source_destroy(source);
        g_main_loop_unref(player.loop);
        status = player.exitStatus;
    }
    gst_object_unref(bus);
    gst_element_set_state(player.playbin, GST_STATE_NULL);
    gst_object_unref(player.playbin);
    return status;
}

} // namespace

int main(int argc, char** argv)
{
    gst_init(&argc, &argv);
    int status = 2;
    if (argc == 2 && argv[1][0] != '-') {
        status = play(argv[1]);
    } else if (argc == 6 && std::strcmp(argv[1], "-e") == 0 && std::strcmp(argv[3], "-c") == 0) {
        status = convert(argv[2], argv[4], argv[5]);
    } else {
        usage();
    }
    gst_deinit();
    return status;
}
