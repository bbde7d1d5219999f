#include "OutputImage.h"

#include "Bytes.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::size_t kCopyChunk = 1 << 20;

// The temporary file's name for the signal handler, which may only unlink it.
char temporaryForSignals[PATH_MAX];

void removeTemporaryAndExit(int)
{
    if (temporaryForSignals[0])
        ::unlink(temporaryForSignals);
    ::_exit(1);
}

void removeOnSignals()
{
    struct sigaction action {};
    action.sa_handler = removeTemporaryAndExit;
    sigemptyset(&action.sa_mask);
    for (int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE})
        ::sigaction(signal, &action, nullptr);
    // Past a file-size limit a write then fails like one on a full disk.
    ::signal(SIGXFSZ, SIG_IGN);
}

std::string folderOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string nameOf(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace

OutputImage::OutputImage(std::string target, Progress progress)
    : target_(std::move(target)), progress_(std::move(progress))
{
}

OutputImage::~OutputImage()
{
    if (fd_ >= 0)
        ::close(fd_);
    if (!temporary_.empty())
        ::unlink(temporary_.c_str());
    temporaryForSignals[0] = '\0';
}

void OutputImage::fail(const std::string& what, int error) const
{
    throw WriteError(what + ": " + std::strerror(error));
}

void OutputImage::create()
{
    struct stat existing {};
    if (::stat(target_.c_str(), &existing) == 0 && S_ISDIR(existing.st_mode))
        throw WriteError(target_ + ": is a folder");
    std::string pattern = folderOf(target_) + "/." + nameOf(target_) + ".XXXXXX";
    if (pattern.size() >= sizeof temporaryForSignals)
        throw WriteError(target_ + ": path too long");
    removeOnSignals();
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    // Blocked while the name is recorded, so a signal never misses the file.
    sigset_t all, previous;
    sigfillset(&all);
    ::sigprocmask(SIG_BLOCK, &all, &previous);
    fd_ = ::mkostemp(name.data(), O_CLOEXEC);
    const int error = errno;
    if (fd_ >= 0) {
        temporary_ = name.data();
        std::memcpy(temporaryForSignals, name.data(), name.size());
    }
    ::sigprocmask(SIG_SETMASK, &previous, nullptr);
    if (fd_ < 0)
        fail(target_, error);
    // mkostemp makes the file private; an image gets the usual mode.
    const mode_t mask = ::umask(0);
    ::umask(mask);
    if (::fchmod(fd_, 0666 & ~mask) != 0)
        fail(target_, errno);
}

void OutputImage::write(const void* data, std::size_t length)
{
    const auto* bytes = static_cast<const std::uint8_t*>(data);
    std::size_t done = 0;
    while (done < length) {
        const ssize_t written = ::write(fd_, bytes + done, length - done);
        if (written < 0) {
            if (errno == EINTR)
                continue;
            fail(target_, errno);
        }
        done += std::size_t(written);
    }
    progress_(length);
}

void OutputImage::copyFile(const std::string& path, std::uint64_t size)
{
    const int source = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (source < 0)
        fail(path, errno);
    ::posix_fadvise(source, 0, 0, POSIX_FADV_SEQUENTIAL);
    std::vector<std::uint8_t> buffer(kCopyChunk);
    std::uint64_t copied = 0;
    try {
        for (;;) {
            const ssize_t got = ::read(source, buffer.data(), buffer.size());
            if (got < 0 && errno == EINTR)
                continue;
            if (got < 0)
                fail(path, errno);
            if (got == 0)
                break;
            copied += std::uint64_t(got);
            if (copied > size)
                break;
            write(buffer.data(), std::size_t(got));
        }
    } catch (...) {
        ::close(source);
        throw;
    }
    ::close(source);
    if (copied != size)
        throw WriteError(path + ": changed while the image was being made");
    const std::size_t padding = std::size_t(bytes::sectorsFor(size) * bytes::kSectorSize - size);
    if (padding) {
        const std::vector<std::uint8_t> zeros(padding);
        write(zeros.data(), zeros.size());
    }
}

void OutputImage::commit()
{
    if (::fsync(fd_) != 0)
        fail(target_, errno);
    const int closed = ::close(fd_);
    fd_ = -1;
    if (closed != 0)
        fail(target_, errno);
    if (::rename(temporary_.c_str(), target_.c_str()) != 0)
        fail(target_, errno);
    temporary_.clear();
    temporaryForSignals[0] = '\0';
    const int folder = ::open(folderOf(target_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder >= 0) {
        ::fsync(folder);
        ::close(folder);
    }
}
