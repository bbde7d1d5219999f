#include "platform/ChildProcess.h"

#include <QFile>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <poll.h>
#include <sys/syscall.h>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

ChildProcess::ChildProcess(QString program, QStringList arguments)
    : program_(std::move(program)), arguments_(std::move(arguments))
{
}

ChildProcess::~ChildProcess()
{
    if (!reaped_) {
        terminate();
        waitForExit();
    }
    if (outputFd_ >= 0)
        ::close(outputFd_);
    if (errorFd_ >= 0)
        ::close(errorFd_);
}

bool ChildProcess::start()
{
    if (program_.isEmpty())
        return false;
    std::vector<QByteArray> storage;
    storage.push_back(QFile::encodeName(program_));
    for (const QString& argument : arguments_)
        storage.push_back(argument.toLocal8Bit());
    std::vector<char*> argv;
    for (QByteArray& bytes : storage)
        argv.push_back(bytes.data());
    argv.push_back(nullptr);

    // pipeFds[0] is our end, pipeFds[1] the child's. A conversation uses one
    // socket for both directions, so that a write to a child that has gone away
    // can ask for no SIGPIPE.
    const bool connected = captureOutput_ || interactive_;
    int pipeFds[2] = {-1, -1};
    if (interactive_) {
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pipeFds) != 0)
            return false;
        ::fcntl(pipeFds[0], F_SETFL, O_NONBLOCK);
    } else if (captureOutput_) {
        if (::pipe2(pipeFds, O_CLOEXEC) != 0)
            return false;
        ::fcntl(pipeFds[0], F_SETFL, O_NONBLOCK);  // our end only; the child writes as usual
    }
    int errorFds[2] = {-1, -1};
    if (captureErrors_) {
        if (::pipe2(errorFds, O_CLOEXEC) != 0) {
            if (connected) {
                ::close(pipeFds[0]);
                ::close(pipeFds[1]);
            }
            return false;
        }
        ::fcntl(errorFds[0], F_SETFL, O_NONBLOCK);
    }

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (interactive_)
        posix_spawn_file_actions_adddup2(&actions, pipeFds[1], 0);
    else
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    if (connected)
        posix_spawn_file_actions_adddup2(&actions, pipeFds[1], 1);
    else
        posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    if (captureErrors_)
        posix_spawn_file_actions_adddup2(&actions, errorFds[1], 2);
    else
        posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);

    // The child starts with default signal handling even if we ignore SIGPIPE.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);

    pid_t pid = -1;
    const int error = posix_spawn(&pid, argv[0], &actions, &attributes, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (connected)
        ::close(pipeFds[1]);
    if (captureErrors_)
        ::close(errorFds[1]);
    if (error != 0) {
        if (connected)
            ::close(pipeFds[0]);
        if (captureErrors_)
            ::close(errorFds[0]);
        return false;
    }
    std::lock_guard lock(mutex_);
    pid_ = pid;
    reaped_ = false;
    terminated_ = false;
    timedOut_ = false;
    outputFd_ = connected ? pipeFds[0] : -1;
    errorFd_ = captureErrors_ ? errorFds[0] : -1;
    output_.clear();
    errors_.clear();
    return true;
}

bool ChildProcess::writeInput(const QByteArray& bytes)
{
    qsizetype written = 0;
    while (written < bytes.size()) {
        if (!interactive_ || outputFd_ < 0)
            return false;
        const ssize_t sent =
            ::send(outputFd_, bytes.constData() + written, size_t(bytes.size() - written), MSG_NOSIGNAL);
        if (sent > 0) {
            written += sent;
        } else if (sent < 0 && errno == EAGAIN) {
            pollfd writable{outputFd_, POLLOUT, 0};
            if (::poll(&writable, 1, 1000) <= 0)
                return false;  // a child that reads nothing for a second is not listening
        } else if (sent < 0 && errno != EINTR) {
            return false;
        }
    }
    return true;
}

QByteArray ChildProcess::readOutput(int timeoutMs, bool* ended)
{
    QByteArray got;
    if (ended)
        *ended = outputFd_ < 0;
    if (!interactive_ || outputFd_ < 0)
        return got;
    pollfd readable{outputFd_, POLLIN, 0};
    if (::poll(&readable, 1, timeoutMs) <= 0)
        return got;
    for (;;) {
        char buffer[4096];
        const ssize_t count = ::read(outputFd_, buffer, sizeof buffer);
        if (count > 0) {
            got.append(buffer, count);
            if (size_t(count) < sizeof buffer)
                break;
        } else {
            if ((count == 0 || (errno != EINTR && errno != EAGAIN)) && ended)
                *ended = true;
            if (count == 0 || errno != EINTR)
                break;
        }
    }
    return got;
}

bool ChildProcess::isRunning() const
{
    std::lock_guard lock(mutex_);
    if (reaped_ || pid_ <= 0)
        return false;
    siginfo_t info{};
    return !(::waitid(P_PID, id_t(pid_), &info, WEXITED | WNOWAIT | WNOHANG) == 0 && info.si_pid == pid_);
}

int ChildProcess::waitForExit()
{
    pid_t pid;
    {
        std::lock_guard lock(mutex_);
        if (reaped_)
            return -1;
        pid = pid_;
    }
    waitWithinLimit(pid);
    int status = 0;
    std::lock_guard lock(mutex_);
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    reaped_ = true;
    if (timedOut_)
        return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void ChildProcess::waitWithinLimit(pid_t pid)
{
    using Clock = std::chrono::steady_clock;
    const auto started = Clock::now();
    auto deadline = timeLimitMs_ > 0 ? started + std::chrono::milliseconds(timeLimitMs_) : Clock::time_point::max();
    bool killed = false;
    // A process descriptor becomes readable when the child ends; without one
    // (an old kernel) we look every 50 ms.
    const int processFd = int(::syscall(SYS_pidfd_open, pid, 0));
    bool exited = false;
    for (;;) {
        // Wait without reaping, so terminate() cannot hit a recycled process id.
        siginfo_t info {};
        exited = exited ||
                 (::waitid(P_PID, id_t(pid), &info, WEXITED | WNOWAIT | WNOHANG) == 0 && info.si_pid == pid);
        if (exited) {
            // What the child wrote is in the pipes now; a grandchild that kept
            // them open is not waited for.
            while (outputFd_ >= 0 && drainOutput()) {
            }
            while (errorFd_ >= 0 && drainErrors()) {
            }
            break;
        }
        int timeout = -1;
        if (deadline != Clock::time_point::max())
            timeout = int(std::max<long long>(
                0, std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count()));
        if (processFd < 0)
            timeout = timeout < 0 ? 50 : std::min(timeout, 50);
        pollfd watched[3];
        nfds_t count = 0;
        if (processFd >= 0)
            watched[count++] = {processFd, POLLIN, 0};
        if (outputFd_ >= 0)
            watched[count++] = {outputFd_, POLLIN, 0};
        if (errorFd_ >= 0)
            watched[count++] = {errorFd_, POLLIN, 0};
        const int ready = ::poll(watched, count, timeout);
        if (ready < 0 && errno != EINTR)
            break;
        if (outputFd_ >= 0)
            drainOutput();
        if (errorFd_ >= 0)
            drainErrors();
        if (Clock::now() >= deadline) {
            if (!killed) {
                {
                    std::lock_guard lock(mutex_);
                    timedOut_ = true;
                }
                signal(SIGTERM);
                killed = true;
                deadline = Clock::now() + std::chrono::seconds(2);
            } else {
                signal(SIGKILL);
                deadline = Clock::time_point::max();
            }
        }
    }
    if (processFd >= 0)
        ::close(processFd);
    for (int* fd : {&outputFd_, &errorFd_}) {
        if (*fd >= 0) {
            ::close(*fd);
            *fd = -1;
        }
    }
}

namespace {

// One read from a non-blocking pipe: bytes read, 0 at its end, -1 when nothing waits.
ssize_t readPiece(int fd, char* buffer, size_t size)
{
    for (;;) {
        const ssize_t got = ::read(fd, buffer, size);
        if (got >= 0)
            return got;
        if (errno == EAGAIN)
            return -1;
        if (errno != EINTR)
            return 0;
    }
}

}  // namespace

bool ChildProcess::drainOutput()
{
    char buffer[16384];
    const ssize_t got = readPiece(outputFd_, buffer, sizeof buffer);
    if (got > 0) {
        const QByteArray piece(buffer, qsizetype(got));
        output_.append(piece);
        if (outputHandler_)
            outputHandler_(piece);
        return true;
    }
    if (got == 0) {
        ::close(outputFd_);
        outputFd_ = -1;
    }
    return false;
}

bool ChildProcess::drainErrors()
{
    char buffer[4096];
    const ssize_t got = readPiece(errorFd_, buffer, sizeof buffer);
    if (got > 0) {
        // A child that writes without end must not fill our memory.
        errors_.append(buffer, qsizetype(std::min<qint64>(got, kMaxErrorBytes - errors_.size())));
        return true;
    }
    if (got == 0) {
        ::close(errorFd_);
        errorFd_ = -1;
    }
    return false;
}

void ChildProcess::signal(int number)
{
    std::lock_guard lock(mutex_);
    if (!reaped_ && pid_ > 0)
        ::kill(pid_, number);
}

void ChildProcess::terminate()
{
    std::lock_guard lock(mutex_);
    if (reaped_ || pid_ <= 0)
        return;
    terminated_ = true;
    ::kill(pid_, SIGTERM);
}

bool ChildProcess::timedOut() const
{
    std::lock_guard lock(mutex_);
    return timedOut_;
}

bool ChildProcess::wasTerminated() const
{
    std::lock_guard lock(mutex_);
    return terminated_;
}

int ChildProcess::execute(const QString& program, const QStringList& arguments, int timeLimitMs)
{
    ChildProcess child(program, arguments);
    child.setTimeLimit(timeLimitMs);
    if (!child.start())
        return -1;
    return child.waitForExit();
}
