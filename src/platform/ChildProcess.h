#pragma once
#include <QByteArray>
#include <QString>
#include <QStringList>

#include <functional>
#include <mutex>
#include <sys/types.h>

// One child process started from an argument vector (never through a shell).
// Standard input, output and error are "/dev/null" unless standard output or
// error is captured. terminate() may be called from any thread while another thread
// waits; it never signals a process that has already been reaped.
class ChildProcess {
public:
    ChildProcess(QString program, QStringList arguments);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    void setCaptureOutput(bool capture) { captureOutput_ = capture; }
    // Captures standard output and hands each piece to handler as it arrives,
    // on the thread that waits for the child (a tool's progress lines).
    void setOutputHandler(std::function<void(const QByteArray& piece)> handler)
    {
        captureOutput_ = true;
        outputHandler_ = std::move(handler);
    }
    // Keeps the first kMaxErrorBytes of standard error, for errors().
    void setCaptureErrors(bool capture) { captureErrors_ = capture; }
    static constexpr qsizetype kMaxErrorBytes = 64 * 1024;
    // A conversation: standard input and output are one socket kept here, for
    // writeInput() and readOutput(). Writing to a child that has gone away is
    // an error, never SIGPIPE.
    void setInteractive(bool interactive) { interactive_ = interactive; }
    // A child still running after this many milliseconds is stopped (SIGTERM, then
    // SIGKILL two seconds later) and its work counts as failed. 0: no limit.
    void setTimeLimit(int milliseconds) { timeLimitMs_ = milliseconds; }

    bool start();      // false when the program cannot be started
    int waitForExit(); // exit code; -1 when not started or ended by a signal
    void terminate();  // SIGTERM to a running child

    // Interactive children only. writeInput() sends all of bytes (false when the
    // child no longer reads); readOutput() waits up to timeoutMs for what the
    // child wrote and returns it, setting *ended once the child closed its output.
    bool writeInput(const QByteArray& bytes);
    QByteArray readOutput(int timeoutMs, bool* ended = nullptr);
    // Started and not ended yet (the child is not reaped by asking).
    bool isRunning() const;

    bool wasTerminated() const;
    bool timedOut() const;
    QByteArray output() const { return output_; }  // captured standard output
    QByteArray errors() const { return errors_; }  // captured standard error
    const QString& program() const { return program_; }

    // start() + waitForExit() in one call.
    static int execute(const QString& program, const QStringList& arguments, int timeLimitMs = 0);

private:
    // Reads captured output and waits for the child to end, within the time limit.
    void waitWithinLimit(pid_t pid);
    // Reads what is waiting on the captured output or error; false at its end.
    bool drainOutput();
    bool drainErrors();
    void signal(int number);

    QString program_;
    QStringList arguments_;
    bool captureOutput_ = false;
    bool captureErrors_ = false;
    std::function<void(const QByteArray&)> outputHandler_;
    bool interactive_ = false;
    int timeLimitMs_ = 0;
    bool timedOut_ = false;
    QByteArray output_;
    QByteArray errors_;
    mutable std::mutex mutex_;
    pid_t pid_ = -1;
    bool reaped_ = true;
    bool terminated_ = false;
    int outputFd_ = -1;
    int errorFd_ = -1;
};
