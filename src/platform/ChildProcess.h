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
    // A child still running after this many milliseconds is stopped (SIGTERM, then
    // SIGKILL two seconds later) and its work counts as failed. 0: no limit.
    void setTimeLimit(int milliseconds) { timeLimitMs_ = milliseconds; }

    bool start();      // false when the program cannot be started
    int waitForExit(); // exit code; -1 when not started or ended by a signal
    void terminate();  // SIGTERM to a running child

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
    int timeLimitMs_ = 0;
    bool timedOut_ = false;
    QByteArray output_;
    mutable std::mutex mutex_;
    pid_t pid_ = -1;
    bool reaped_ = true;
    bool terminated_ = false;
    int outputFd_ = -1;
};
