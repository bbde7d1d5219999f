// velmora-cli play: the Play tab's engine and modes without the window.
#include "cli/CliCommand.h"
#include "cli/JobProgress.h"

#include "player/MqpWrapper.h"
#include "tabs/PlaySourcesWrapper.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QSocketNotifier>

#include <csignal>
#include <cstdio>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

namespace {

int usage()
{
    std::fprintf(stderr, "Usage: velmora-cli play [--mode repeat|shuffle|stop|next] [--volume 0-100] "
                         "FILE|PLAYLIST.cd3 ...\n");
    return 2;
}

// Signals end the program through the event loop, so that the player stops.
int signalFds[2] = {-1, -1};

void onSignal(int)
{
    const char byte = 'q';
    [[maybe_unused]] const ssize_t written = ::write(signalFds[1], &byte, 1);
}

// Keys are read one at a time, without echo, while standard input is a terminal.
class RawTerminal {
public:
    RawTerminal()
    {
        if (!::isatty(STDIN_FILENO) || ::tcgetattr(STDIN_FILENO, &saved_) != 0)
            return;
        termios raw = saved_;
        raw.c_lflag &= ~tcflag_t(ICANON | ECHO);
        raw.c_cc[VMIN] = 1;
        raw.c_cc[VTIME] = 0;
        active_ = ::tcsetattr(STDIN_FILENO, TCSANOW, &raw) == 0;
    }
    ~RawTerminal()
    {
        if (active_)
            ::tcsetattr(STDIN_FILENO, TCSANOW, &saved_);
    }
    RawTerminal(const RawTerminal&) = delete;
    RawTerminal& operator=(const RawTerminal&) = delete;

private:
    termios saved_{};
    bool active_ = false;
};

// "Playing 2/5: Title — Artist (03:12)"
QString songLine(const PlaySourcesWrapper& play, int row, const QString& path)
{
    const QVariantMap record = play.records().value(row).toMap();
    QString line = QStringLiteral("Playing %1/%2: ").arg(row + 1).arg(play.songs().size());
    const QString title = record.value("title").toString();
    line += title.isEmpty() ? QFileInfo(path).completeBaseName() : title;
    if (!record.value("artist").toString().isEmpty())
        line += QStringLiteral(" \u2014 ") + record.value("artist").toString();
    int seconds = record.value("duration").toInt();
    if (seconds <= 0 && play.player())
        seconds = play.player()->length();
    if (seconds > 0)
        line += QStringLiteral(" (%1)").arg(mqp_wrapper::timeText(seconds));
    return line;
}

int run(const QStringList& arguments)
{
    static const QStringList modeNames = {"repeat", "shuffle", "stop", "next"};
    int mode = -2;  // the modes the window stored
    int volume = -1;
    QStringList files;
    for (int i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments.at(i);
        if (argument == QLatin1String("--mode") && i + 1 < arguments.size()) {
            mode = int(modeNames.indexOf(arguments.at(++i).toLower()));
            if (mode < 0)
                return usage();
        } else if (argument == QLatin1String("--volume") && i + 1 < arguments.size()) {
            bool ok = false;
            volume = arguments.at(++i).toInt(&ok);
            if (!ok || volume < 0 || volume > 100)
                return usage();
        } else if (argument.startsWith(QLatin1String("--"))) {
            return usage();
        } else if (!QFileInfo::exists(argument)) {
            std::fprintf(stderr, "velmora-cli play: %s: no such file or folder\n", qPrintable(argument));
            return 1;
        } else {
            files << QFileInfo(argument).absoluteFilePath();
        }
    }
    if (files.isEmpty())
        return usage();

    JobProgress progress;
    PlaySourcesWrapper play;
    if (mode != -2)
        play.setSessionPlaybackMode(PlaySourcesWrapper::Mode(mode));
    if (volume >= 0)
        play.setVolume(volume);

    int played = 0;
    QObject::connect(&play, &PlaySourcesWrapper::nowPlaying, [&](int row, const QString& path) {
        ++played;
        std::printf("%s\n", qPrintable(songLine(play, row, path)));
        std::fflush(stdout);
    });
    QObject::connect(&play, &PlaySourcesWrapper::message,
                     [](const QString& text) { std::fprintf(stderr, "velmora-cli play: %s\n", qPrintable(text)); });
    QObject::connect(&play, &PlaySourcesWrapper::listEnded, [] { QCoreApplication::exit(0); });

    RawTerminal terminal;
    QSocketNotifier keys(STDIN_FILENO, QSocketNotifier::Read);
    QObject::connect(&keys, &QSocketNotifier::activated, [&] {
        char key = 0;
        if (::read(STDIN_FILENO, &key, 1) != 1) {
            keys.setEnabled(false);  // no more keys: play on
            return;
        }
        if (key == ' ') {
            if (play.state() == PlaySourcesWrapper::State::Paused) {
                play.resumePlaying();
                std::printf("Playing\n");
            } else if (play.state() == PlaySourcesWrapper::State::Playing) {
                play.pausePlaying();
                std::printf(play.state() == PlaySourcesWrapper::State::Paused ? "Paused\n"
                                                                              : "Too close to the end to pause\n");
            }
            std::fflush(stdout);
        } else if (key == 'n') {
            play.nextSong();
        } else if (key == 'q') {
            QCoreApplication::exit(0);
        }
    });

    ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, signalFds);
    QSocketNotifier stop(signalFds[0], QSocketNotifier::Read);
    QObject::connect(&stop, &QSocketNotifier::activated, [] { QCoreApplication::exit(130); });
    auto previousInt = std::signal(SIGINT, onSignal);
    auto previousTerm = std::signal(SIGTERM, onSignal);

    play.playFiles(files);
    int status = QCoreApplication::exec();
    std::signal(SIGINT, previousInt);
    std::signal(SIGTERM, previousTerm);
    play.stopPlayingSong();
    ::close(signalFds[0]);
    ::close(signalFds[1]);
    if (status == 0 && played == 0) {
        std::fprintf(stderr, "velmora-cli play: nothing could be played\n");
        status = 1;
    }
    return status;
}

CliRegistration reg({"play", "[--mode repeat|shuffle|stop|next] [--volume 0-100] FILE|PLAYLIST.cd3 ...",
                     "Play files, folders and playlists through the Play tab's player, one line per song; "
                     "space pauses, n skips, q quits. Without --mode the modes stored by the window apply; "
                     "without one, or with stop, it ends after the last song. The audio goes where "
                     "MQP_AUDIO_SINK says (\"fakesink sync=true\" for none).",
                     run});

}  // namespace
