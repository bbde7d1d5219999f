#pragma once
#include <QByteArray>
#include <QString>
#include <QStringList>

#include <utility>
#include <vector>

// Small audio files made at test time with sox, lame and oggenc, and ID3v2
// tags assembled byte by byte for the versions the tools do not write.
namespace fixtures {

// A one-second stereo sine WAV (made once per test program).
QString sineWav();
// lame on the sine with extra arguments (--tt, --ta, --add-id3v2, ...).
QString lameMp3(const QString& path, const QStringList& lameArguments);
// oggenc on the sine with extra arguments (-t, -a, -c KEY=VALUE, ...).
QString oggVorbis(const QString& path, const QStringList& oggencArguments);
// Plain MPEG audio without any tag.
QByteArray untaggedMpegAudio();

// An ID3v2 tag of the given major version (2, 3 or 4) holding Latin-1 text frames.
QByteArray id3v2Tag(int major, const std::vector<std::pair<QByteArray, QByteArray>>& textFrames);
// An ID3v1.1 tag.
QByteArray id3v1Tag(const QByteArray& title, const QByteArray& artist, const QByteArray& album,
                    const QByteArray& year, const QByteArray& comment, int track, int genre);

// The lines of id3info output for the frames the system reads.
QStringList frameLines(const QByteArray& output);
// A picture encoded as PNG or JPEG.
QByteArray pictureBytes(int width, int height, const char* format);
// A PNG of random pixels (noise does not compress) of at least `bytes` bytes, written to path.
QString noisePng(const QString& path, int bytes);

} // namespace fixtures
