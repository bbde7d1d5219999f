// The library column on a folder of 5,000 tagged MP3 files: how long until the
// first rows show (the folder listed and ordered), and until every title,
// artist, album and duration is filled in by the worker threads, against
// reading the same tags with TagLib alone on one thread.
//
//   scripts/bench.sh bench_library_columns
//
// The aim: first rows within 200 ms; all columns within 1.5 times TagLib alone.
#include "core/Defaults.h"
#include "core/LibraryModel.h"
#include "tags/TagFacade.h"

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>

#include <benchmark/benchmark.h>
#include <taglib/fileref.h>
#include <taglib/mpegfile.h>
#include <taglib/tag.h>

#include <cstdio>
#include <memory>

namespace {

constexpr int kFiles = 5000;

QTemporaryDir* work = nullptr;

QString folder()
{
    return work->filePath(QStringLiteral("Album"));
}

// One short MP3 copied kFiles times, each copy given tags of its own. Two
// seconds long: under a second TagLib gives no whole second and the facade
// works the length out by other means, which no real track needs.
bool makeFolder()
{
    work = new QTemporaryDir(QDir::tempPath() + "/velmora-bench-columns-XXXXXX");
    QDir().mkpath(folder());
    const QString wav = work->filePath(QStringLiteral("tone.wav"));
    const QString mp3 = work->filePath(QStringLiteral("tone.mp3"));
    if (QProcess::execute("sox", {"-n", "-r", "22050", "-c", "1", wav, "synth", "2", "sine", "440"}) != 0 ||
        QProcess::execute("lame", {"--quiet", wav, mp3}) != 0)
        return false;
    for (int i = 0; i < kFiles; ++i) {
        const QString path = QStringLiteral("%1/Track %2.mp3").arg(folder()).arg(i);
        if (!QFile::copy(mp3, path))
            return false;
        TagLib::MPEG::File file(QFile::encodeName(path).constData());
        file.tag()->setTitle(TagLib::String(QStringLiteral("Title %1").arg(i).toStdString(), TagLib::String::UTF8));
        file.tag()->setArtist(
            TagLib::String(QStringLiteral("Artist %1").arg(i % 50).toStdString(), TagLib::String::UTF8));
        file.tag()->setAlbum(
            TagLib::String(QStringLiteral("Album %1").arg(i % 400).toStdString(), TagLib::String::UTF8));
        if (!file.save())
            return false;
    }
    return true;
}

// A model showing only the generated folder, opened.
struct OpenedFolder {
    LibraryModel model;
    QModelIndex folder;
    OpenedFolder()
    {
        const QModelIndex root = model.index(0, 0);
        model.fetchMore(root);
        folder = model.index(0, 0, root);
        model.fetchMore(folder);
    }
};

// The tag reads are asked for (and begin) while the rows come in: their start is part of the time.
void BM_FirstRowsShown(benchmark::State& state)
{
    LibraryModel::setTagReader([](const QString& path) { return getComments(path); });
    for (auto _ : state) {
        auto opened = std::make_unique<OpenedFolder>();
        if (opened->model.rowCount(opened->folder) != kFiles)
            state.SkipWithError("the folder does not list every file");
        state.PauseTiming();
        opened.reset();
        state.ResumeTiming();
    }
    LibraryModel::setTagReader(nullptr);
}
BENCHMARK(BM_FirstRowsShown)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();

void BM_AllColumnsFilled(benchmark::State& state)
{
    LibraryModel::setTagReader([](const QString& path) { return getComments(path); });
    for (auto _ : state) {
        OpenedFolder opened;
        QEventLoop loop;
        QObject::connect(&opened.model, &LibraryModel::tagsRead, &loop, &QEventLoop::quit);
        QTimer::singleShot(120000, &loop, &QEventLoop::quit);
        if (opened.model.pendingTagReads() > 0)
            loop.exec();
        const QModelIndex last = opened.model.index(kFiles - 1, LibraryModel::ArtistColumn, opened.folder);
        if (opened.model.pendingTagReads() != 0 || !last.data().toString().startsWith("Artist"))
            state.SkipWithError("not every row was filled");
    }
    LibraryModel::setTagReader(nullptr);
}
BENCHMARK(BM_AllColumnsFilled)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

void BM_TagLibAlone(benchmark::State& state)
{
    const QStringList names = QDir(folder()).entryList(QDir::Files);
    for (auto _ : state) {
        for (const QString& name : names) {
            TagLib::FileRef file(QFile::encodeName(folder() + '/' + name).constData(), true,
                                 TagLib::AudioProperties::Average);
            if (!file.isNull() && file.tag()) {
                benchmark::DoNotOptimize(file.tag()->title());
                benchmark::DoNotOptimize(file.tag()->artist());
                benchmark::DoNotOptimize(file.tag()->album());
                benchmark::DoNotOptimize(file.audioProperties()->lengthInSeconds());
            }
        }
    }
}
BENCHMARK(BM_TagLibAlone)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

// The same reads through the tag facade on one thread: what the worker threads share among them.
void BM_TagFacadeAlone(benchmark::State& state)
{
    const QStringList names = QDir(folder()).entryList(QDir::Files);
    for (auto _ : state) {
        for (const QString& name : names)
            benchmark::DoNotOptimize(getComments(folder() + '/' + name));
    }
}
BENCHMARK(BM_TagFacadeAlone)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

}  // namespace

int main(int argc, char** argv)
{
    // Settings of a throwaway home: the library holds just the generated folder.
    QTemporaryDir home(QDir::tempPath() + "/velmora-bench-home-XXXXXX");
    qputenv("HOME", QFile::encodeName(home.path()));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(home.path() + "/.config"));
    QCoreApplication app(argc, argv);
    if (!makeFolder()) {
        std::fprintf(stderr, "could not make the fixture files (sox, lame)\n");
        return 1;
    }
    Defaults::standard().setObject(QStringLiteral("rootItem"), QVariantList{work->path()});
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    delete work;
    return 0;
}
