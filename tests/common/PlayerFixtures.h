#pragma once
// Songs made by the tests (sox, lame, oggenc) and a look at this process's
// children, for the player engine, the Play tab and the play command.
#include <QList>
#include <QString>

#include <sys/types.h>

namespace playerfixtures {

// Players make no sound: mqp gets a fake real-time sink, mplayer "-ao null".
void useFakeAudio();

// Makes folder/name, a tone of that many seconds; the extension says the format
// (wav, mp3, ogg, m4a) and the compressed ones get the tags given (mp3 and
// m4a also the cover picture file). "" when a tool failed.
QString makeSong(const QString& folder, const QString& name, double seconds, const QString& title = {},
                 const QString& artist = {}, const QString& album = {}, const QString& cover = {});
// A file with the extension's name that holds no audio.
QString makeCorrupt(const QString& folder, const QString& name);

// The children of this process that have not been reaped, and those of them
// that have ended (zombies).
QList<pid_t> children();
QList<pid_t> zombies();
// Every process of the machine whose command line mentions text (players
// a program left behind are no children of ours).
QList<pid_t> processesMentioning(const QString& text);
// The pid of the running child whose command line mentions text; -1 when none.
pid_t childWith(const QString& text);

}  // namespace playerfixtures
