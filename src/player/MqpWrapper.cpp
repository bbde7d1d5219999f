#include "player/MqpWrapper.h"

#include "platform/ChildProcess.h"
#include "platform/ResourceLocator.h"

#include <QFileInfo>
#include <QSet>

#include <algorithm>

namespace {

constexpr qsizetype kReplyBufferSize = 4096;
constexpr int kMaxEmptyReads = 999;
// One empty read waits this long for the child, so an answer that never comes
// costs about five seconds.
constexpr int kReadWaitMs = 5;
// A player that does not leave on "quit" is stopped after this long.
constexpr int kQuitLimitMs = 2000;

const QSet<QString>& mqpExtensions()
{
    static const QSet<QString> extensions = {"mp3", "m4a", "mid", "midi", "kar",  "m4b",
                                             "aac", "m4r", "m4p", "wav",  "aiff", "aif"};
    return extensions;
}

}  // namespace

mqp_wrapper::mqp_wrapper(const QVariantMap& dictionary, QObject* parent) : QObject(parent)
{
    originalInit(dictionary.value(QStringLiteral("path")).toString(),
                 dictionary.value(QStringLiteral("forcequicktime")).toBool(),
                 dictionary.value(QStringLiteral("progressaspercent")).toBool());
}

mqp_wrapper::mqp_wrapper(const QString& path, bool forceQuicktime, QObject* parent) : QObject(parent)
{
    originalInit(path, forceQuicktime, true);
}

mqp_wrapper::~mqp_wrapper()
{
    quit();
}

bool mqp_wrapper::usesMplayerFor(const QString& path, bool forceQuicktime)
{
    return !forceQuicktime && !mqpExtensions().contains(QFileInfo(path).suffix().toLower());
}

QStringList mqp_wrapper::commandLineFor(const QString& path, bool forceQuicktime)
{
    // An absolute path never reads as an option.
    const QString file = QFileInfo(path).absoluteFilePath();
    if (!usesMplayerFor(path, forceQuicktime))
        return {ResourceLocator::pathForTool(QStringLiteral("mqp")), file};
    QStringList line{ResourceLocator::pathForTool(QStringLiteral("mplayer10.4")), QStringLiteral("-slave"),
                     QStringLiteral("-quiet")};
    const QByteArray audioOut = qgetenv("VELMORA_MPLAYER_AO");
    if (!audioOut.isEmpty())
        line << QStringLiteral("-ao") << QString::fromLocal8Bit(audioOut);
    line << file;
    return line;
}

QString mqp_wrapper::timeText(int seconds)
{
    if (seconds >= 3600)
        return QString::asprintf("%02d:%02d:%02d", seconds / 3600, seconds / 60 % 60, seconds % 60);
    return QString::asprintf("%02d:%02d", seconds / 60, seconds % 60);
}

void mqp_wrapper::originalInit(const QString& path, bool forceQuicktime, bool progressAsPercent)
{
    path_ = path;
    progressAsPercent_ = progressAsPercent;
    const QFileInfo file(path);
    if (!file.exists() || file.isDir()) {
        ended_ = true;
        initializing_ = false;
        return;
    }
    display(0, QString());
    usesMplayer_ = usesMplayerFor(path, forceQuicktime);
    QStringList line = commandLineFor(path, forceQuicktime);
    const QString program = line.takeFirst();
    if (!program.isEmpty()) {
        child_ = std::make_unique<ChildProcess>(program, line);
        child_->setInteractive(true);
        if (!child_->start())
            child_.reset();
    }
    if (!child_) {
        ended_ = true;
    } else if (usesMplayer_) {
        // mplayer starts playing at once: it is paused after telling its length
        // and started by play().
        getLengthFromMplayer();
        pause();
    } else {
        std::lock_guard lock(lock_);
        double seconds = -1;
        if (ask("length\n", {}, &seconds) && seconds > 0)
            length_ = int(seconds);
    }
    // A player that closed its output while starting could not open the file;
    // it is waited for here, so that the owner sees at once that it is not running.
    if (outputClosed_)
        quit();
    initializing_ = false;
}

bool mqp_wrapper::childRuns() const
{
    return child_ && child_->isRunning();
}

bool mqp_wrapper::send(const QByteArray& command)
{
    return childRuns() && child_->writeInput(command);
}

void mqp_wrapper::drain()
{
    if (!child_)
        return;
    while (!child_->readOutput(0).isEmpty()) {
    }
}

bool mqp_wrapper::ask(const QByteArray& question, const QByteArray& key, double* answer)
{
    reply_.clear();
    drain();  // an answer that came too late must not pass for this one
    if (!send(question))
        return false;
    for (int emptyReads = 0; emptyReads < kMaxEmptyReads;) {
        bool ended = false;
        const QByteArray got = child_->readOutput(kReadWaitMs, &ended);
        if (got.isEmpty()) {
            if (ended) {
                outputClosed_ = true;  // the child has gone: no answer will come
                return false;
            }
            ++emptyReads;
            continue;
        }
        reply_.append(got);
        if (reply_.size() > kReplyBufferSize)
            reply_.remove(0, reply_.size() - kReplyBufferSize);
        qsizetype start = 0;
        if (!key.isEmpty()) {
            const qsizetype at = reply_.indexOf(key);
            start = at < 0 ? -1 : reply_.indexOf('=', at + key.size());
            if (start >= 0)
                ++start;
        }
        // The answer counts once its line is complete.
        while (start >= 0) {
            const qsizetype end = reply_.indexOf('\n', start);
            if (end < 0)
                break;
            bool ok = false;
            const double value = reply_.mid(start, end - start).trimmed().toDouble(&ok);
            if (ok) {
                *answer = value;
                return true;
            }
            start = key.isEmpty() ? end + 1 : -1;  // mqp: look at its next line
        }
    }
    return false;
}

void mqp_wrapper::getLengthFromMplayer()
{
    length_ = -1;
    reply_.clear();
    std::unique_lock lock(lock_, std::try_to_lock);
    if (!lock.owns_lock())
        return;
    double seconds = -1;
    if (ask("get_time_length\n", "ANS_LENGTH", &seconds) && seconds > 0)
        length_ = int(seconds);
}

void mqp_wrapper::pauseLocked()
{
    if (childRuns()) {
        child_->writeInput("pause\n");
        if (!usesMplayer_)
            drain();
    }
    paused_ = !paused_;
}

void mqp_wrapper::pause()
{
    std::unique_lock lock(lock_, std::try_to_lock);
    if (lock.owns_lock())
        pauseLocked();
}

void mqp_wrapper::play()
{
    std::unique_lock lock(lock_, std::try_to_lock);
    if (!lock.owns_lock())
        return;
    if (!childRuns()) {
        paused_ = false;
    } else if (!usesMplayer_) {
        child_->writeInput("play\n");
        drain();
        paused_ = false;
    } else if (paused_) {
        pauseLocked();  // mplayer's pause toggles it back to playing
    }
}

void mqp_wrapper::command(const char* mplayerFormat, const char* mqpFormat, int argument)
{
    std::unique_lock lock(lock_, std::try_to_lock);
    if (!lock.owns_lock())
        return;
    if (send(QString::asprintf(usesMplayer_ ? mplayerFormat : mqpFormat, argument).toLatin1()))
        drain();
}

void mqp_wrapper::setVolume(int volume)
{
    command("pausing_keep volume %d 1\n", "volume %d\n", volume);
}

void mqp_wrapper::setTime(int percent)
{
    command("pausing_keep seek %d 1\n", "time %d\n", percent);
}

void mqp_wrapper::setTimeSeconds(int seconds)
{
    command("pausing_keep seek %d 2\n", "second-time %d\n", seconds);
}

int mqp_wrapper::updateProgress()
{
    if (initializing_)
        return lastValue_;
    std::unique_lock lock(lock_, std::try_to_lock);
    if (!lock.owns_lock())
        return lastValue_;
    if (forgetEndedChild())
        return progressAsPercent_ ? 100 : lastValue_;
    if (paused_) {
        display(lastValue_, lastText_);
        return lastValue_;
    }
    double answer = -1;
    const bool answered =
        usesMplayer_ ? ask("get_time_pos\n", "ANS_TIME_POSITION", &answer) : ask("time\n", {}, &answer);
    if (!answered) {
        if (forgetEndedChild())
            return progressAsPercent_ ? 100 : lastValue_;
        if (progressAsPercent_)
            return lastValue_;
        display(-1, QStringLiteral("-1"));
        return -1;
    }
    const int seconds = int(answer);
    position_ = seconds;
    if (!progressAsPercent_) {
        display(seconds, QString::number(seconds));
        return seconds;
    }
    const int length = length_;
    int percent = length > 0 ? seconds * 100 / length : 0;
    // mqp keeps its pipeline after the end; it says when the song is over.
    double over = 0;
    if (!usesMplayer_ && (percent >= 100 || length <= 0) && ask("ended\n", {}, &over) && over > 0)
        ended_ = true;
    percent = ended_ ? 100 : std::min(percent, 99);
    display(percent, timeText(seconds));
    return percent;
}

void mqp_wrapper::quit()
{
    std::lock_guard lock(lock_);
    if (!child_)
        return;
    if (child_->isRunning())
        child_->writeInput("quit\n");
    child_->setTimeLimit(kQuitLimitMs);
    child_->waitForExit();
    child_.reset();
    ended_ = true;
}

bool mqp_wrapper::isRunning()
{
    std::lock_guard lock(lock_);
    return !forgetEndedChild();
}

bool mqp_wrapper::forgetEndedChild()
{
    if (child_ && child_->isRunning())
        return false;
    // Gone by itself: reaped now, and forgotten.
    if (child_)
        child_->waitForExit();
    child_.reset();
    ended_ = true;
    return true;
}

void mqp_wrapper::display(int value, const QString& text)
{
    lastValue_ = value;
    lastText_ = text;
    emit progressChanged(value, text);
    if (text == QLatin1String("-1"))
        emit beepRequested();
}
