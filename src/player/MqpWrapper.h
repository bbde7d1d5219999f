#pragma once
#include <QByteArray>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <atomic>
#include <memory>
#include <mutex>

class ChildProcess;

// One player object plays one audio file through a player child process, either
// mplayer in slave mode (for what the media framework cannot play) or mqp, by
// writing command lines to its standard input and reading the answers from its
// standard output. All commands share one lock; a command that finds it busy is
// dropped rather than queued. A file that does not exist gives a player without
// a process: isRunning() is false and every command does nothing.
class mqp_wrapper : public QObject {
    Q_OBJECT
public:
    // Keys: "path", "forcequicktime" (never mplayer), "progressaspercent".
    explicit mqp_wrapper(const QVariantMap& dictionary, QObject* parent = nullptr);
    // Progress runs from 0 to 100.
    mqp_wrapper(const QString& path, bool forceQuicktime, QObject* parent = nullptr);
    ~mqp_wrapper() override;

    // Which program plays path: mqp for the formats the media framework plays
    // well, mplayer for the rest; "forcequicktime" always gives mqp.
    static bool usesMplayerFor(const QString& path, bool forceQuicktime);
    // The program and its arguments for path, the program first ("" when the
    // program is not installed). VELMORA_MPLAYER_AO, when set, is handed to
    // mplayer as its audio output ("-ao null" plays without a sound card).
    static QStringList commandLineFor(const QString& path, bool forceQuicktime);
    // "%02d:%02d:%02d" from an hour on, else "%02d:%02d".
    static QString timeText(int seconds);

    void play();
    void pause();  // toggles
    void quit();
    bool isRunning();
    void setVolume(int volume);        // 0-100
    void setTime(int percent);         // seek to a percentage of the song
    void setTimeSeconds(int seconds);  // seek to a second
    // Asks for the position and shows it: with progress as percent the value is
    // position * 100 / length (99 at most while the song still plays, 100 once
    // it has ended or its player has gone) and the text the position as a time;
    // otherwise the value is the position in seconds and the text its number.
    int updateProgress();
    void getLengthFromMplayer();

    QString path() const { return path_; }
    bool usesMplayer() const { return usesMplayer_; }
    bool paused() const { return paused_; }
    int length() const { return length_; }      // seconds; -1 while unknown
    int position() const { return position_; }  // the last position shown, in seconds
    bool hasEnded() const { return ended_; }    // played to its end, or its player went away

signals:
    // Called on the thread that asked (the owner's timer: the main thread).
    void progressChanged(int value, const QString& text);
    void beepRequested();

private:
    void originalInit(const QString& path, bool forceQuicktime, bool progressAsPercent);
    bool childRuns() const;
    // True when there is no running child any more (one that ended is reaped).
    bool forgetEndedChild();
    bool send(const QByteArray& command);
    void drain();
    // Writes a question and waits for its answer (999 empty reads at most):
    // mplayer's "KEY=value" line, or the next number line of mqp (key empty).
    bool ask(const QByteArray& question, const QByteArray& key, double* answer);
    void pauseLocked();
    void command(const char* mplayerFormat, const char* mqpFormat, int argument);
    void display(int value, const QString& text);

    QString path_;
    std::unique_ptr<ChildProcess> child_;
    std::timed_mutex lock_;
    QByteArray reply_;  // at most 4096 bytes of the child's latest output
    bool usesMplayer_ = false;
    std::atomic<bool> paused_{false};
    std::atomic<bool> initializing_{true};
    bool progressAsPercent_ = true;
    std::atomic<int> length_{-1};
    std::atomic<int> position_{0};
    std::atomic<bool> ended_{false};
    bool outputClosed_ = false;
    int lastValue_ = 0;
    QString lastText_;
};
