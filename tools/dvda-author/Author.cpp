#include "Author.h"

#include "Aob.h"
#include "Ifo.h"
#include "Lpcm.h"
#include "Wav.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace dvda {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMaxTracks = 99;
constexpr std::size_t kMaxFormats = 8;

struct Input {
    std::string path;
    WavFormat wav;
    LpcmFormat lpcm;
};

void writeWhole(const std::string& path, const Bytes& bytes)
{
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0)
        throw std::runtime_error(path + ": " + std::strerror(errno));
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            const int error = errno;
            ::close(fd);
            throw std::runtime_error(path + ": " + std::strerror(error));
        }
        done += static_cast<std::size_t>(n);
    }
    const bool synced = ::fsync(fd) == 0;
    const int error = errno;
    if (::close(fd) != 0 || !synced)
        throw std::runtime_error(path + ": " + std::strerror(synced ? errno : error));
}

void syncFolder(const std::string& path)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0 || ::fsync(fd) != 0) {
        const int error = errno;
        if (fd >= 0)
            ::close(fd);
        throw std::runtime_error(path + ": " + std::strerror(error));
    }
    ::close(fd);
}

// A folder made beside the final AUDIO_TS; removed with its content unless released.
class Staging {
public:
    explicit Staging(const std::string& parent)
    {
        std::string pattern = parent + "/.AUDIO_TS.XXXXXX";
        if (!::mkdtemp(pattern.data()))
            throw std::runtime_error(parent + ": " + std::strerror(errno));
        path_ = pattern;
        // mkdtemp makes it private; the AUDIO_TS it becomes is an ordinary folder.
        const mode_t mask = ::umask(0);
        ::umask(mask);
        if (::chmod(path_.c_str(), 0777 & ~mask) != 0)
            throw std::runtime_error(path_ + ": " + std::strerror(errno));
    }
    ~Staging()
    {
        if (!path_.empty()) {
            std::error_code ignored;
            fs::remove_all(path_, ignored);
        }
    }
    Staging(const Staging&) = delete;
    Staging& operator=(const Staging&) = delete;
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

// Puts the finished folder in place of DIR/AUDIO_TS in one step; the old one
// (if any) ends up in the staging folder's name and goes with it.
void putInPlace(const std::string& staged, const std::string& target)
{
    if (::renameat2(AT_FDCWD, staged.c_str(), AT_FDCWD, target.c_str(), RENAME_EXCHANGE) == 0)
        return;
    if (errno != ENOENT || ::rename(staged.c_str(), target.c_str()) != 0)
        throw std::runtime_error(target + ": " + std::strerror(errno));
}

class Progress {
public:
    Progress(std::function<void(int)> report, std::uint64_t total) : report_(std::move(report)), total_(total)
    {
        step(0);
    }
    void step(std::uint64_t done)
    {
        const int percent = total_ ? static_cast<int>(done * 100 / total_) : 100;
        if (percent != last_ && report_)
            report_(percent);
        last_ = percent;
    }

private:
    std::function<void(int)> report_;
    std::uint64_t total_;
    int last_ = -1;
};

void packTrack(const Input& input, AobWriter& aob, Progress& progress, std::uint64_t& framesDone)
{
    const unsigned frameBytes = input.wav.frameBytes();
    constexpr std::size_t kChunkFrames = 16384;  // even: whole sample pairs
    std::vector<std::uint8_t> wav(kChunkFrames * frameBytes), dvd(kChunkFrames * frameBytes);
    WavReader reader(input.path, input.wav);
    aob.beginTrack(input.lpcm, input.wav.frames());
    for (;;) {
        std::size_t frames = reader.read(wav.data(), kChunkFrames);
        if (frames == 0)
            break;
        framesDone += frames;
        if (frames % 2) {
            // Samples travel in pairs of frames: silence completes the last one.
            std::memset(wav.data() + frames * frameBytes, 0, frameBytes);
            ++frames;
        }
        toDvdOrder(wav.data(), frames / 2, input.wav.channels, input.wav.bits, dvd.data());
        aob.add(dvd.data(), frames * frameBytes);
        progress.step(framesDone);
    }
}

} // namespace

AuthorResult author(const AuthorOptions& options)
{
    AuthorResult result;
    if (options.inputs.empty()) {
        result.status = AuthorResult::Refused;
        result.message = "no audio files given";
        return result;
    }
    if (options.inputs.size() > kMaxTracks) {
        result.status = AuthorResult::Refused;
        result.message = std::to_string(options.inputs.size()) + " files; a DVD-Audio group holds at most 99 tracks";
        return result;
    }

    std::vector<Input> inputs;
    std::vector<TrackPlacement> formatsSeen;
    std::uint64_t framesTotal = 0;
    for (const std::string& path : options.inputs) {
        WavProbe probe = probeWav(path);
        std::string reason = probe.reason.empty() ? refusalFor(probe.format) : probe.reason;
        if (!reason.empty()) {
            // A file that is missing or holds what DVD-Audio cannot carry is refused;
            // one that cannot be read is a failure.
            result.status = probe.unreadable ? AuthorResult::Failed : AuthorResult::Refused;
            result.message = path + ": " + reason;
            return result;
        }
        inputs.push_back({path, probe.format, lpcmFormatFor(probe.format)});
        formatsSeen.push_back(TrackPlacement{inputs.back().lpcm});
        framesTotal += probe.format.frames();
    }
    if (distinctFormats(formatsSeen).size() > kMaxFormats) {
        result.status = AuthorResult::Refused;
        result.message = "the files use more than 8 different audio formats; a DVD-Audio title set holds 8";
        return result;
    }

    try {
        std::error_code error;
        fs::create_directories(options.outputDir, error);
        if (error)
            throw std::runtime_error(options.outputDir + ": " + error.message());
        Staging staging(options.outputDir);
        const std::string& folder = staging.path();

        Progress progress(options.progress, framesTotal);
        std::uint64_t framesDone = 0;
        AobWriter aob(folder, options.aobSectorLimit);
        std::vector<TrackPlacement> tracks;
        for (const Input& input : inputs) {
            packTrack(input, aob, progress, framesDone);
            tracks.push_back(aob.endTrack());
        }
        aob.finish();

        VolumeLayout layout;
        layout.atsiSectors = atsiSectorsFor(tracks.size());
        layout.aobSectors = aob.sectors();
        const Bytes amg = buildAudioManager(layout, tracks);
        const Bytes samg = buildSimpleAudioManager(layout, tracks, options.ppSector);
        const Bytes atsi = buildTitleSetInfo(layout, tracks);
        writeWhole(folder + "/AUDIO_TS.IFO", amg);
        writeWhole(folder + "/AUDIO_TS.BUP", amg);
        writeWhole(folder + "/AUDIO_PP.IFO", samg);
        writeWhole(folder + "/ATS_01_0.IFO", atsi);
        writeWhole(folder + "/ATS_01_0.BUP", atsi);
        syncFolder(folder);

        std::vector<std::pair<std::string, std::uint64_t>> files = {
            {"AUDIO_TS.IFO", amg.size()}, {"AUDIO_TS.BUP", amg.size()}, {"AUDIO_PP.IFO", samg.size()},
            {"ATS_01_0.IFO", atsi.size()}};
        for (const std::string& name : aob.fileNames()) {
            struct stat info {};
            if (::stat((folder + "/" + name).c_str(), &info) != 0)
                throw std::runtime_error(folder + "/" + name + ": " + std::strerror(errno));
            files.emplace_back(name, static_cast<std::uint64_t>(info.st_size));
        }
        files.emplace_back("ATS_01_0.BUP", atsi.size());

        putInPlace(folder, options.outputDir + "/AUDIO_TS");
        syncFolder(options.outputDir);
        for (auto& [name, size] : files)
            result.files.emplace_back("AUDIO_TS/" + name, size);
        result.status = AuthorResult::Written;
    } catch (const std::exception& e) {
        result.status = AuthorResult::Failed;
        result.message = e.what();
        result.files.clear();
    }
    return result;
}

} // namespace dvda
