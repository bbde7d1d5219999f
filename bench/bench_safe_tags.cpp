// A title change in a 50 MB MP3 with a 5 MB cover: the safe write (a copy
// beside the file, TagLib saving into it, the tags read back, the MPEG audio
// compared, flushed and renamed over the file) against TagLib's plain save of
// the same change into the file itself. The file stays in the page cache.
#include "tags/TagAPI.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>
#include <taglib/attachedpictureframe.h>
#include <taglib/id3v2tag.h>
#include <taglib/mpegfile.h>

#include <cmath>
#include <cstdio>
#include <cstring>

namespace {
constexpr qint64 kFileBytes = 50ll << 20;
constexpr int kCoverBytes = 5 << 20;

struct Corpus {
    QTemporaryDir dir{QDir::tempPath() + "/velmora-bench-XXXXXX"};
    QString mp3;
    bool ok = false;

    Corpus()
    {
        // Ten seconds of MPEG frames repeated until the file is 50 MB (frames stand alone).
        const QString wav = dir.filePath("tone.wav");
        const QString seed = dir.filePath("seed.mp3");
        QProcess sox, lame;
        sox.start("sox", {"-n", "-r", "44100", "-c", "2", "-b", "16", wav, "synth", "10", "sine", "440"});
        if (!sox.waitForFinished(60000) || sox.exitCode() != 0)
            return;
        lame.start("lame", {"--quiet", "-t", "-b", "320", wav, seed});
        if (!lame.waitForFinished(60000) || lame.exitCode() != 0)
            return;
        QFile seedFile(seed);
        if (!seedFile.open(QIODevice::ReadOnly))
            return;
        const QByteArray frames = seedFile.readAll();
        mp3 = dir.filePath("big.mp3");
        QFile out(mp3);
        if (frames.isEmpty() || !out.open(QIODevice::WriteOnly))
            return;
        for (qint64 written = 0; written < kFileBytes - kCoverBytes; written += frames.size())
            out.write(frames);
        out.close();

        // A cover of noise, stored uncompressed: 5 MB of picture bytes.
        const int side = int(std::sqrt(kCoverBytes / 3.0)) + 1;
        QImage image(side, side, QImage::Format_RGB888);
        QRandomGenerator random(7);
        for (int y = 0; y < side; ++y)
            for (int x = 0; x + 4 <= side * 3; x += 4) {
                const quint32 value = random.generate();
                std::memcpy(image.scanLine(y) + x, &value, 4);
            }
        const QString png = dir.filePath("cover.png");
        QFile cover(png);
        if (!image.save(png, "PNG", 100) || !cover.open(QIODevice::ReadOnly))
            return;
        const QByteArray pictureBytes = cover.readAll();
        TagLib::MPEG::File file(QFile::encodeName(mp3).constData(), false);
        TagLib::ID3v2::Tag* tag = file.ID3v2Tag(true);
        tag->setTitle("Title A");
        auto* picture = new TagLib::ID3v2::AttachedPictureFrame;
        picture->setMimeType("image/png");
        picture->setType(TagLib::ID3v2::AttachedPictureFrame::FrontCover);
        picture->setPicture(TagLib::ByteVector(pictureBytes.constData(), unsigned(pictureBytes.size())));
        tag->addFrame(picture);
        ok = file.save(TagLib::MPEG::File::ID3v2, TagLib::File::StripNone, TagLib::ID3v2::v3);
        std::fprintf(stderr, "%s: %lld bytes, cover %lld bytes\n", qPrintable(mp3), QFileInfo(mp3).size(),
                     qint64(pictureBytes.size()));
    }
};

Corpus& corpus()
{
    static Corpus instance;
    return instance;
}

const char* titleFor(benchmark::IterationCount round)
{
    return round % 2 ? "Title A" : "Title B";
}

void BM_SafeTitleWrite(benchmark::State& state)
{
    if (!corpus().ok) {
        state.SkipWithError("could not make the 50 MB MP3");
        return;
    }
    TagAPI tags;
    benchmark::IterationCount round = 0;
    for (auto _ : state) {
        QString error;
        const bool ok = tags.examineFile(corpus().mp3);
        tags.setTitle(QString::fromLatin1(titleFor(round++)));
        if (!ok || !tags.updateFile(&error)) {
            state.SkipWithError(qPrintable(error));
            break;
        }
        tags.releaseFile();
    }
}
BENCHMARK(BM_SafeTitleWrite)->Unit(benchmark::kMillisecond)->Iterations(10)->UseRealTime();

void BM_TagLibInPlaceSave(benchmark::State& state)
{
    if (!corpus().ok) {
        state.SkipWithError("could not make the 50 MB MP3");
        return;
    }
    benchmark::IterationCount round = 0;
    for (auto _ : state) {
        TagLib::MPEG::File file(QFile::encodeName(corpus().mp3).constData(), true, TagLib::AudioProperties::Average);
        file.ID3v2Tag(true)->setTitle(titleFor(round++));
        if (!file.save(TagLib::MPEG::File::ID3v2, TagLib::File::StripNone, TagLib::ID3v2::v3,
                       TagLib::File::DoNotDuplicate)) {
            state.SkipWithError("TagLib could not save");
            break;
        }
    }
}
BENCHMARK(BM_TagLibInPlaceSave)->Unit(benchmark::kMillisecond)->Iterations(10)->UseRealTime();
} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    corpus();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
