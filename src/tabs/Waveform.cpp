#include "tabs/Waveform.h"

#include "encode/PcmReaders.h"
#include "platform/ChildProcess.h"
#include "platform/ResourceLocator.h"
#include "tabs/Mp3Envelope.h"
#include "tags/MediaDuration.h"

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QThread>
#include <QtEndian>

#include <mpg123.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace {

// Low enough that decoding, not the hand-over, sets the pace; high enough that
// the peaks of ordinary music survive the resampler's filter.
constexpr int kDecodeRate = 8000;
constexpr int kPartialMs = 100;
// Songs this long or longer are decoded in stretches side by side, at most this many.
constexpr int kSplitSeconds = 60;
constexpr int kMaxParts = 4;
constexpr int kLeadSeconds = 1;
// Where the loud stretches of a sketch reach: the decoded peaks of most songs
// come near full scale, so the picture changes little when they arrive. The
// quantiser's gain overstates noisy sounds (a drum's attack) against tonal
// ones many times over, so the scale is set by the column at this rank of
// loudness, not by the loudest, and the few above it are clipped.
constexpr float kSketchHeight = 0.9f;
constexpr double kSketchScaleRank = 0.9;

// Spreads a stream of samples over columns of equal time, given how many
// samples the whole song holds.
class Binner {
public:
    Binner(qint64 expected, int columns, double rate) : expected_(std::max<qint64>(expected, 1))
    {
        peaks_.minimum.fill(0, columns);
        peaks_.maximum.fill(0, columns);
        peaks_.seconds = double(expected) / rate;
    }
    void add(float sample)
    {
        const int columns = peaks_.columns();
        const int column = int(std::min<qint64>(seen_ * columns / expected_, columns - 1));
        if (column != current_) {
            current_ = column;
            peaks_.minimum[column] = peaks_.maximum[column] = sample;
            peaks_.columnsDone = column;
        } else {
            peaks_.minimum[column] = std::min(peaks_.minimum[column], sample);
            peaks_.maximum[column] = std::max(peaks_.maximum[column], sample);
        }
        ++seen_;
    }
    qint64 seen() const { return seen_; }
    WaveformPeaks finish()
    {
        peaks_.columnsDone = peaks_.columns();
        return peaks_;
    }
    const WaveformPeaks& partial() const { return peaks_; }

private:
    WaveformPeaks peaks_;
    qint64 expected_;
    qint64 seen_ = 0;
    int current_ = -1;
};

// Widens [low, high] to take in n samples, four at a time: one vector of
// running extremes, compared lane by lane, instead of a single chain of
// comparisons that has to run in order (the compiler does not make this
// change for floats at the packaged build's optimisation level).
void widen(const float* samples, size_t n, float& low, float& high)
{
    using Lanes = float __attribute__((vector_size(16)));  // one SSE or NEON register
    constexpr size_t kLanes = sizeof(Lanes) / sizeof(float);
    Lanes lows = Lanes{} + low, highs = Lanes{} + high;
    size_t i = 0;
    for (; i + kLanes <= n; i += kLanes) {
        Lanes block;
        std::memcpy(&block, samples + i, sizeof block);
        lows = block < lows ? block : lows;
        highs = block > highs ? block : highs;
    }
    for (; i < n; ++i) {
        low = std::min(low, samples[i]);
        high = std::max(high, samples[i]);
    }
    for (size_t lane = 0; lane < kLanes; ++lane) {
        low = std::min(low, lows[lane]);
        high = std::max(high, highs[lane]);
    }
}

bool isMp3(const QString& path)
{
    return QFileInfo(path).suffix().compare(QLatin1String("mp3"), Qt::CaseInsensitive) == 0;
}

// The sketch with the columns decoded so far in place of its own.
WaveformPeaks overSketch(const WaveformPeaks& sketch, const WaveformPeaks& decoded)
{
    WaveformPeaks peaks = sketch;
    const int done = std::min(decoded.columnsDone, peaks.columns());
    std::copy_n(decoded.minimum.cbegin(), done, peaks.minimum.begin());
    std::copy_n(decoded.maximum.cbegin(), done, peaks.maximum.begin());
    return peaks;
}

bool readsDirectly(const QString& path)
{
    const QString extension = QFileInfo(path).suffix().toLower();
    return extension == QLatin1String("wav") || extension == QLatin1String("aif") || extension == QLatin1String("aiff");
}

struct FileCloser {
    void operator()(FILE* file) const { std::fclose(file); }
};

// 16-bit WAV, the common case, straight from the mapped file: the channels are
// summed as integers and each column keeps its lowest and highest sum.
std::optional<WaveformPeaks> readWav16(const QString& path, int columns, const std::atomic<bool>& cancel,
                                       const Waveform::Partial& partial)
{
    const auto layout = Waveform::wavLayout(path);
    if (!layout || layout->bits != 16 || (layout->formatTag != 1 && layout->formatTag != 0xFFFE) ||
        layout->channels <= 0)
        return std::nullopt;
    const int channels = layout->channels;
    const qint64 frames = layout->dataBytes / (2 * channels);
    if (frames <= 0)
        return std::nullopt;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const uchar* data = file.map(layout->dataOffset, frames * 2 * channels);
    if (!data)
        return std::nullopt;
    WaveformPeaks peaks;
    peaks.minimum.fill(0, columns);
    peaks.maximum.fill(0, columns);
    peaks.seconds = double(frames) / layout->rate;
    const float scale = 1.0f / (32768.0f * float(channels));
    const auto* samples = reinterpret_cast<const qint16*>(data);  // RIFF is little-endian, as this machine
    QElapsedTimer shown;
    shown.start();
    qint64 frame = 0;
    for (int column = 0; column < columns; ++column) {
        if (cancel)
            return WaveformPeaks();
        const qint64 end = std::max(frame + 1, std::min(frames, (column + 1) * frames / columns));
        int low = INT_MAX, high = INT_MIN;
        for (; frame < end && frame < frames; ++frame) {
            const qint16* at = samples + frame * channels;
            int sum = at[0];
            for (int channel = 1; channel < channels; ++channel)
                sum += at[channel];
            low = std::min(low, sum);
            high = std::max(high, sum);
        }
        if (low <= high) {
            peaks.minimum[column] = float(low) * scale;
            peaks.maximum[column] = float(high) * scale;
        }
        peaks.columnsDone = column + 1;
        if (partial && shown.elapsed() >= kPartialMs) {
            partial(peaks);
            shown.restart();
        }
    }
    return peaks;
}

// Other WAV and AIFF files through the PCM readers; nullopt when they do not know the file
// or its length, so that the decoder gets a try.
std::optional<WaveformPeaks> readPcm(const QString& path, int columns, const std::atomic<bool>& cancel,
                                     const Waveform::Partial& partial)
{
    std::unique_ptr<FILE, FileCloser> file(std::fopen(QFile::encodeName(path).constData(), "rb"));
    if (!file)
        return std::nullopt;
    OggEncInput input;
    const PcmInputFormat* format = open_audio_file(file.get(), &input);
    if (!format)
        return std::nullopt;
    const std::unique_ptr<void, void (*)(void*)> state(input.readState, format->close);
    if (input.totalSamplesPerChannel <= 0 || input.channels <= 0 || input.rate <= 0)
        return std::nullopt;
    constexpr int kBlock = 8192;
    std::vector<std::vector<float>> channels(size_t(input.channels), std::vector<float>(kBlock));
    std::vector<float*> buffers;
    for (auto& channel : channels)
        buffers.push_back(channel.data());
    Binner binner(input.totalSamplesPerChannel, columns, double(input.rate));
    QElapsedTimer shown;
    shown.start();
    const float scale = 1.0f / float(input.channels);
    for (;;) {
        if (cancel)
            return WaveformPeaks();
        const long got = input.readSamples(input.readState, buffers.data(), kBlock);
        if (got <= 0)
            break;
        for (long i = 0; i < got; ++i) {
            float mixed = 0;
            for (const float* channel : buffers)
                mixed += channel[i];
            binner.add(mixed * scale);
        }
        if (partial && shown.elapsed() >= kPartialMs) {
            partial(binner.partial());
            shown.restart();
        }
    }
    WaveformPeaks peaks = binner.finish();
    peaks.seconds = double(binner.seen()) / double(input.rate);
    return peaks;
}

// One stretch of the song decoded by an ffmpeg of its own, on a thread of its
// own; the samples grow under the lock while it runs.
class DecodedPart {
public:
    // skip: samples decoded before the stretch begins, dropped.
    DecodedPart(QString ffmpeg, QStringList arguments, qint64 skip)
        : child_(std::move(ffmpeg), std::move(arguments)), skip_(skip)
    {
        child_.setInteractive(true);
    }
    // Until the child ends, or cancel or stop becomes true.
    void run(const std::atomic<bool>& cancel, const std::atomic<bool>& stop)
    {
        bool ended = !child_.start();
        QByteArray pending;
        while (!ended && !cancel && !stop) {
            pending += child_.readOutput(50, &ended);
            const qsizetype whole = pending.size() / 2 * 2;
            const std::lock_guard lock(mutex_);
            for (qsizetype at = 0; at < whole; at += 2) {
                if (skip_ > 0)
                    --skip_;
                else
                    samples_.push_back(float(qFromLittleEndian<qint16>(pending.constData() + at)) / 32768.0f);
            }
            pending.remove(0, whole);
        }
        if (!ended)
            child_.terminate();
        ok_ = child_.waitForExit() == 0 && ended;
        done_ = true;
    }
    bool done() const { return done_; }
    bool ok() const { return ok_; }
    // Copies the samples from `from` on onto the end of out; the number copied.
    qint64 take(qint64 from, std::vector<float>& out)
    {
        const std::lock_guard lock(mutex_);
        const qint64 count = std::max<qint64>(0, qint64(samples_.size()) - from);
        out.insert(out.end(), samples_.begin() + from, samples_.end());
        return count;
    }

private:
    ChildProcess child_;
    std::mutex mutex_;
    std::vector<float> samples_;
    qint64 skip_;
    std::atomic<bool> done_{false};
    bool ok_ = false;
};

// Any other file: ffmpeg decodes it to mono 16-bit samples at a low rate (a short
// resampling filter: peaks, not fidelity, are wanted). Decoding an MP3 is the
// slow part and one decoder uses one core, so a long song is cut into stretches
// (input seeking, sample-exact) decoded side by side and joined in order. The
// columns first follow the length the sketch (else the tags) tells and grow
// from the left, over the sketch when there is one; the final peaks are spread
// over the length actually decoded.
WaveformPeaks decode(const QString& path, int columns, const std::atomic<bool>& cancel,
                     const Waveform::Partial& partial, const WaveformPeaks& sketch)
{
    const QString ffmpeg = ResourceLocator::pathForTool(QStringLiteral("ffmpeg"));
    if (ffmpeg.isEmpty())
        return {};
    const int told = mediaDurationSeconds(path);
    const int parts = told >= kSplitSeconds ? std::clamp(QThread::idealThreadCount(), 1, kMaxParts) : 1;
    const int partSeconds = (told + parts - 1) / parts;
    std::vector<std::unique_ptr<DecodedPart>> decoders;
    for (int part = 0; part < parts; ++part) {
        // After a seek an MP3 decoder lacks the bits of the frames before (and the
        // resampler its history): a stretch starts decoding a second early, dropped.
        const int lead = part > 0 ? kLeadSeconds : 0;
        QStringList arguments{"-nostdin", "-v", "error"};
        if (parts > 1) {
            arguments << "-ss" << QString::number(part * partSeconds - lead);
            if (part + 1 < parts)
                arguments << "-t" << QString::number(partSeconds + lead);
        }
        arguments += QStringList{"-i", QFileInfo(path).absoluteFilePath(), "-vn", "-ac", "1", "-af",
                                 QStringLiteral("aresample=%1:filter_size=2").arg(kDecodeRate), "-f", "s16le", "pipe:1"};
        decoders.push_back(std::make_unique<DecodedPart>(ffmpeg, arguments, qint64(lead) * kDecodeRate));
    }
    std::atomic<bool> stop{false};  // a stretch failed: the others are of no use
    std::vector<std::thread> threads;
    for (auto& decoder : decoders)
        threads.emplace_back([&decoder, &cancel, &stop] { decoder->run(cancel, stop); });

    // The picture grows from the left: a stretch counts once those before it are whole.
    const qint64 expected =
        sketch.seconds > 0 ? qint64(sketch.seconds * kDecodeRate) : qint64(std::max(told, 1)) * kDecodeRate;
    std::vector<float> samples;
    samples.reserve(size_t(expected));
    Binner binner(expected, columns, kDecodeRate);
    size_t joined = 0;  // stretches wholly in samples
    qint64 taken = 0;   // of the stretch being joined
    QElapsedTimer shown;
    shown.start();
    bool shownOnce = false;
    while (joined < decoders.size()) {
        DecodedPart& decoder = *decoders[joined];
        const bool wasDone = decoder.done();
        const size_t before = samples.size();
        taken += decoder.take(taken, samples);
        for (size_t at = before; at < samples.size(); ++at)
            binner.add(samples[at]);
        if (wasDone) {
            if (!decoder.ok())
                break;
            ++joined;
            taken = 0;
            continue;
        }
        if (partial && binner.seen() > 0 && (!shownOnce || shown.elapsed() >= kPartialMs)) {
            shownOnce = true;
            partial(sketch.columns() == columns ? overSketch(sketch, binner.partial()) : binner.partial());
            shown.restart();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    const bool whole = joined == decoders.size();
    stop = !whole;
    for (std::thread& thread : threads)
        thread.join();
    if (!whole || cancel || samples.empty())
        return {};
    return Waveform::fromSamples(samples.data(), qint64(samples.size()), kDecodeRate, columns);
}

// ---------------------------------------------------------------- MP3 in process

// The first picture of an MP3 from its frames' loudness.
WaveformPeaks sketchOf(const Mp3Envelope::Envelope& frames, int columns)
{
    const std::vector<float>& loudness = frames.loudness;
    const qint64 granules = qint64(loudness.size());
    std::vector<float> loudest(static_cast<size_t>(columns));
    for (int column = 0; column < columns; ++column) {
        // A column narrower than a granule still shows the one it falls in.
        const qint64 first = column * granules / columns;
        const qint64 last = std::max(first + 1, (column + 1) * granules / columns);
        loudest[size_t(column)] = *std::max_element(loudness.begin() + first, loudness.begin() + last);
    }
    std::vector<float> ranked = loudest;
    const auto rank = ranked.begin() + qsizetype(kSketchScaleRank * (columns - 1));
    std::nth_element(ranked.begin(), rank, ranked.end());
    const float reference = *rank > 0 ? *rank : *std::max_element(ranked.begin(), ranked.end());
    const float scale = reference > 0 ? kSketchHeight / reference : 0;
    WaveformPeaks peaks;
    peaks.minimum.fill(0, columns);
    peaks.maximum.fill(0, columns);
    for (int column = 0; column < columns; ++column) {
        const float height = std::min(kSketchHeight, loudest[size_t(column)] * scale);
        peaks.maximum[column] = height;
        peaks.minimum[column] = -height;
    }
    peaks.seconds = frames.seconds();
    peaks.columnsDone = columns;
    peaks.estimated = true;
    return peaks;
}

struct Mpg123Deleter {
    void operator()(mpg123_handle* handle) const { mpg123_delete(handle); }
};
using Mpg123 = std::unique_ptr<mpg123_handle, Mpg123Deleter>;

// A decoder of the file that mixes its channels to mono floats at the file's
// own rate (its 4:1 down-sampling decodes no faster: it gives up the SIMD
// synthesis for the generic one); null when libmpg123 cannot open it.
Mpg123 openMp3(const QString& path, long* rate = nullptr)
{
    static const int initialised = mpg123_init();  // needed by libmpg123 before 1.27, harmless since
    if (initialised != MPG123_OK)
        return {};
    Mpg123 decoder(mpg123_new(nullptr, nullptr));
    const long flags = MPG123_MONO_MIX | MPG123_FORCE_FLOAT | MPG123_GAPLESS | MPG123_QUIET;
    // Past damage of any length the decoder looks for the next frame, as the sketch does.
    if (!decoder || mpg123_param(decoder.get(), MPG123_FLAGS, flags, 0) != MPG123_OK ||
        mpg123_param(decoder.get(), MPG123_RESYNC_LIMIT, -1, 0) != MPG123_OK ||
        mpg123_open(decoder.get(), QFile::encodeName(path).constData()) != MPG123_OK)
        return {};
    long sampleRate = 0;
    int channels = 0, encoding = 0;
    if (mpg123_getformat(decoder.get(), &sampleRate, &channels, &encoding) != MPG123_OK || channels != 1 ||
        encoding != MPG123_ENC_FLOAT_32 || sampleRate <= 0)
        return {};
    if (rate)
        *rate = sampleRate;
    return decoder;
}

constexpr qint64 kToTheEnd = std::numeric_limits<qint64>::max();

// The samples [begin, end) of an MP3 decoded on a thread of their own and
// spread over the columns they fall in. A decoder seeking to a stretch first
// decodes the frames whose bits the stretch's first frame borrows, so the
// stretches join without a seam. Columns before done() are final.
class Mp3Stretch {
public:
    Mp3Stretch(qint64 begin, qint64 end, qint64 total, int columns)
        : begin_(begin), end_(end), total_(total), columns_(columns), firstColumn_(columnOf(begin)),
          minimum_(size_t(columns), std::numeric_limits<float>::max()),
          maximum_(size_t(columns), std::numeric_limits<float>::lowest()), done_(firstColumn_)
    {
    }

    // frameIndex: where the sketch found the frames, so that a seek jumps
    // there instead of reading every frame header before it; may be empty.
    void run(const QString& path, const std::vector<qint64>& frameIndex, const std::atomic<bool>& cancel)
    {
        std::vector<off_t> offsets(frameIndex.begin(), frameIndex.end());  // outlives the decoder
        const Mpg123 decoder = openMp3(path);
        opened_ = bool(decoder);
        if (decoder && begin_ > 0 && !offsets.empty())
            mpg123_set_index(decoder.get(), offsets.data(), Mp3Envelope::Envelope::kIndexStep, offsets.size());
        // A stretch past what can be decoded (frames too damaged to decode) stays empty.
        if (decoder && mpg123_seek(decoder.get(), off_t(begin_), SEEK_SET) == off_t(begin_))
            bin(decoder.get(), cancel);
        finished_ = true;
    }

    bool finished() const { return finished_; }
    bool opened() const { return opened_; }
    int firstColumn() const { return firstColumn_; }
    int done() const { return done_; }
    qint64 decoded() const { return decoded_; }
    const std::vector<float>& minimum() const { return minimum_; }
    const std::vector<float>& maximum() const { return maximum_; }

private:
    int columnOf(qint64 sample) const { return int(std::min<qint64>(sample * columns_ / total_, columns_ - 1)); }
    // The first sample of a column, without a division a sample.
    qint64 startOf(int column) const { return (qint64(column) * total_ + columns_ - 1) / columns_; }

    void bin(mpg123_handle* decoder, const std::atomic<bool>& cancel)
    {
        std::vector<float> buffer(16384);
        qint64 at = begin_;
        int column = firstColumn_;
        qint64 nextColumnStart = startOf(column + 1);
        float low = std::numeric_limits<float>::max(), high = std::numeric_limits<float>::lowest();
        while (at < end_ && !cancel) {
            size_t bytes = 0;
            const int status = mpg123_read(decoder, buffer.data(), buffer.size() * sizeof(float), &bytes);
            const qint64 count = std::min<qint64>(qint64(bytes / sizeof(float)), end_ - at);
            for (qint64 i = 0; i < count;) {
                const bool lastColumn = column + 1 >= columns_;
                if (!lastColumn && at >= nextColumnStart) {
                    minimum_[size_t(column)] = low;
                    maximum_[size_t(column)] = high;
                    done_.store(++column, std::memory_order_release);
                    nextColumnStart = startOf(column + 1);
                    low = std::numeric_limits<float>::max();
                    high = std::numeric_limits<float>::lowest();
                    continue;
                }
                const qint64 run = lastColumn ? count - i : std::min(count - i, nextColumnStart - at);
                widen(buffer.data() + i, size_t(run), low, high);
                i += run;
                at += run;
            }
            // MPG123_DONE at the end; a damaged frame is skipped inside, so any
            // other status is a file that cannot be read on.
            if (status != MPG123_OK && status != MPG123_NEW_FORMAT)
                break;
        }
        if (low <= high) {
            minimum_[size_t(column)] = low;
            maximum_[size_t(column)] = high;
        }
        decoded_ = at - begin_;
        done_.store(column + 1, std::memory_order_release);
    }

    const qint64 begin_, end_, total_;
    const int columns_, firstColumn_;
    std::vector<float> minimum_, maximum_;  // a column no sample reached keeps max() and lowest()
    std::atomic<int> done_;
    std::atomic<bool> finished_{false};
    bool opened_ = false;
    std::atomic<qint64> decoded_{0};
};

// An MP3 decoded by libmpg123 in this process, a long one in stretches side by
// side (one decoder uses one core). The picture shows the sketch with the
// decoded columns of every stretch over it as they come. nullopt when
// libmpg123 cannot read the file; empty peaks when cancelled.
std::optional<WaveformPeaks> decodeMp3(const QString& path, int columns, const std::atomic<bool>& cancel,
                                       const Waveform::Partial& partial, const WaveformPeaks& sketch,
                                       const std::optional<Mp3Envelope::Envelope>& frames)
{
    // The length to cut the song by: the frames the sketch counted, less the
    // encoder's delay and padding that the decoder drops when the info frame
    // tells them (else the picture would stretch by them). Without the
    // sketch's count libmpg123 scans the frames itself, a pass before decoding.
    long rate = 0;
    const Mpg123 probe = openMp3(path, &rate);
    if (!probe)
        return std::nullopt;
    qint64 total = 0;
    if (frames) {
        long delay = -1, padding = -1;
        mpg123_getstate(probe.get(), MPG123_ENC_DELAY, &delay, nullptr);
        mpg123_getstate(probe.get(), MPG123_ENC_PADDING, &padding, nullptr);
        total = frames->samples() - (delay >= 0 && padding >= 0 ? delay + padding : 0);
    } else if (mpg123_scan(probe.get()) == MPG123_OK) {
        total = mpg123_length(probe.get());
    }
    if (total <= 0)
        return std::nullopt;
    const int parts = total >= qint64(kSplitSeconds) * rate ? std::clamp(QThread::idealThreadCount(), 1, kMaxParts) : 1;
    std::vector<std::unique_ptr<Mp3Stretch>> stretches;
    for (int part = 0; part < parts; ++part)
        stretches.push_back(std::make_unique<Mp3Stretch>(
            part * total / parts, part + 1 < parts ? (part + 1) * total / parts : kToTheEnd, total, columns));
    const std::vector<qint64> noIndex;
    const std::vector<qint64>& frameIndex = frames ? frames->frameIndex : noIndex;
    std::vector<std::thread> threads;
    for (auto& stretch : stretches)
        threads.emplace_back([&stretch, &path, &frameIndex, &cancel] { stretch->run(path, frameIndex, cancel); });

    const bool overSketch = sketch.columns() == columns;
    const auto picture = [&](bool final) {
        // A column where two stretches meet holds both their extremes.
        std::vector<float> low(size_t(columns), std::numeric_limits<float>::max());
        std::vector<float> high(size_t(columns), std::numeric_limits<float>::lowest());
        for (const auto& stretch : stretches)
            for (int column = stretch->firstColumn(), done = final ? columns : stretch->done(); column < done;
                 ++column) {
                low[size_t(column)] = std::min(low[size_t(column)], stretch->minimum()[size_t(column)]);
                high[size_t(column)] = std::max(high[size_t(column)], stretch->maximum()[size_t(column)]);
            }
        WaveformPeaks peaks = overSketch && !final ? sketch : WaveformPeaks();
        if (peaks.columns() == 0) {
            peaks.minimum.fill(0, columns);
            peaks.maximum.fill(0, columns);
        }
        for (int column = 0; column < columns; ++column)
            if (low[size_t(column)] <= high[size_t(column)]) {
                peaks.minimum[column] = low[size_t(column)];
                peaks.maximum[column] = high[size_t(column)];
            }
        // The final length is what the decoder gave, the encoder's delay and padding dropped.
        qint64 samples = total;
        if (final) {
            samples = 0;
            for (const auto& stretch : stretches)
                samples += stretch->decoded();
        }
        peaks.seconds = double(samples) / double(rate);
        peaks.columnsDone = final || overSketch ? columns : stretches.front()->done();
        peaks.estimated = !final;
        return peaks;
    };
    QElapsedTimer shown;
    shown.start();
    const auto finished = [&] {
        return std::all_of(stretches.begin(), stretches.end(), [](const auto& s) { return s->finished(); });
    };
    while (!finished()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        if (partial && shown.elapsed() >= kPartialMs) {
            partial(picture(false));
            shown.restart();
        }
    }
    for (std::thread& thread : threads)
        thread.join();
    if (cancel)
        return WaveformPeaks();
    if (!std::all_of(stretches.begin(), stretches.end(), [](const auto& s) { return s->opened(); }) ||
        stretches.front()->decoded() == 0)
        return std::nullopt;
    return picture(true);
}

}  // namespace

namespace Waveform {

std::optional<WavLayout> wavLayout(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QByteArray riff = file.read(12);
    if (riff.size() < 12 || !riff.startsWith("RIFF") || riff.mid(8, 4) != "WAVE")
        return std::nullopt;
    WavLayout layout;
    bool hasFormat = false;
    for (;;) {
        const QByteArray header = file.read(8);
        if (header.size() < 8)
            return std::nullopt;
        const quint32 size = qFromLittleEndian<quint32>(header.constData() + 4);
        if (header.startsWith("data")) {
            if (!hasFormat)
                return std::nullopt;
            // A size past the end of the file (or a stream's 0xFFFFFFFF) counts what is there.
            layout.dataOffset = file.pos();
            layout.dataBytes = std::min<qint64>(size, file.size() - file.pos());
            return layout;
        }
        qint64 skip = qint64(size) + (size & 1);
        if (header.startsWith("fmt ") && size >= 16) {
            const QByteArray format = file.read(16);
            if (format.size() < 16)
                return std::nullopt;
            layout.formatTag = qFromLittleEndian<quint16>(format.constData());
            layout.channels = qFromLittleEndian<quint16>(format.constData() + 2);
            layout.rate = int(qFromLittleEndian<quint32>(format.constData() + 4));
            layout.bits = qFromLittleEndian<quint16>(format.constData() + 14);
            hasFormat = true;
            skip -= 16;
        }
        if (skip > 0 && file.skip(skip) != skip)
            return std::nullopt;
    }
}

WaveformPeaks sketchMp3(const QString& path, int columns, const std::atomic<bool>& cancel)
{
    const auto frames = Mp3Envelope::read(path, cancel);
    return frames && columns > 0 ? sketchOf(*frames, columns) : WaveformPeaks();
}

WaveformPeaks fromSamples(const float* samples, qint64 count, double rate, int columns)
{
    Binner binner(count, columns, rate);
    for (qint64 i = 0; i < count; ++i)
        binner.add(samples[i]);
    return binner.finish();
}

WaveformPeaks compute(const QString& path, int columns, const std::atomic<bool>& cancel, const Partial& partial)
{
    if (columns <= 0)
        return {};
    if (readsDirectly(path)) {
        if (auto peaks = readWav16(path, columns, cancel, partial))
            return *peaks;
        if (auto peaks = readPcm(path, columns, cancel, partial))
            return *peaks;
    }
    // The sketch takes a pass over the file's bytes, a small part of decoding it.
    WaveformPeaks sketch;
    if (isMp3(path)) {
        const auto frames = Mp3Envelope::read(path, cancel);
        if (frames)
            sketch = sketchOf(*frames, columns);
        if (partial && sketch.columns() > 0)
            partial(sketch);
        if (auto peaks = decodeMp3(path, columns, cancel, partial, sketch, frames))
            return *peaks;
    }
    // What libmpg123 cannot read ffmpeg may, and what neither decodes keeps what its frames told.
    WaveformPeaks decoded = decode(path, columns, cancel, partial, sketch);
    if (decoded.columns() == 0 && !cancel)
        return sketch;
    return decoded;
}

}  // namespace Waveform
