#pragma once
#include <QByteArray>
#include <QString>
#include <QStringList>

#include <mutex>
#include <sys/types.h>

// One child process started from an argument vector (never through a shell).
// Standard input, output and error are "/dev/null" unless standard output is
// captured. terminate() may be called from any thread while another thread
// waits; it never signals a process that has already been reaped.
class ChildProcess {
public:
    ChildProcess(QString program, QStringList arguments);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    void setCaptureOutput(bool capture) { captureOutput_ = capture; }
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
    const QString& program() const { return program_; }

    // start() + waitForExit() in one call.
    static int execute(const QString& program, const QStringList& arguments, int timeLimitMs = 0);

private:
    // Reads captured output and waits for the child to end, within the time limit.
    void waitWithinLimit(pid_t pid);
    void signal(int number);

    QString program_;
    QStringList arguments_;
    bool captureOutput_ = false;
    bool interactive_ = false;
    int timeLimitMs_ = 0;
    bool timedOut_ = false;
    QByteArray output_;
    mutable std::mutex mutex_;
    pid_t pid_ = -1;
    bool reaped_ = true;
    bool terminated_ = false;
    int outputFd_ = -1;
};
