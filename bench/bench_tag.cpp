// The Tag tab's logic on folders of small tagged MP3 files (made once with
// lame, then copied):
//  - a folder of 5,000 files: the time from choosing it to the first rows in
//    the table (goal: 200 ms);
//  - 500 files selected together and a new artist saved into all of them, as
//    the tab saves (each file a safe write: a new file, checked, flushed and
//    renamed over the old one) against TagLib's own in-place save of the same
//    change (goal: within 2x);
//  - the same 500 files replaced by the safe-write layer alone, each by a
//    copy of itself, with no tag read, made or checked: what writing every file
//    anew, flushing the lot and renaming costs on the file system measured, the
//    floor under the tab's save whatever its tag work costs.
#include "core/Job.h"
#include "platform/SafeFile.h"
#include "tabs/TagSourcesWrapper.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>
#include <taglib/id3v2tag.h>
#include <taglib/mpegfile.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <thread>
#include <vector>

namespace {

QTemporaryDir* work = nullptr;

bool run(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.start(program, arguments);
    return process.waitForFinished(60000) && process.exitCode() == 0;
}

// A folder of count copies of one tagged MP3.
QString makeFolder(const QString& name, int count)
{
    const QString seed = work->filePath("seed.mp3");
    if (!QFile::exists(seed)) {
        const QString wav = work->filePath("tone.wav");
        if (!run("sox", {"-n", "-r", "44100", "-c", "2", "-b", "16", wav, "synth", "1", "sine", "440"})
            || !run("lame", {"--quiet", "-b", "64", "--tt", "Song", "--ta", "Band", "--tl", "Album", "--ty", "2020",
                             "--add-id3v2", wav, seed}))
            return {};
    }
    const QString folder = work->filePath(name);
    QDir().mkpath(folder);
    for (int i = 0; i < count; ++i) {
        if (!QFile::copy(seed, QStringLiteral("%1/%2 Song.mp3").arg(folder).arg(i, 4, 10, QLatin1Char('0'))))
            return {};
    }
    return folder;
}

int folderSource(const TagSourcesWrapper& tags, const QString& folder)
{
    const auto sources = tags.sources();
    for (int row = 0; row < sources.size(); ++row) {
        if (sources[row].path == QDir::cleanPath(folder))
            return row;
    }
    return -1;
}

void spinUntil(const std::function<bool()>& done)
{
    // Sleep between events as the window's loop does: a spinning main thread
    // would take a core from the workers being measured.
    while (!done())
        QCoreApplication::processEvents(QEventLoop::AllEvents | QEventLoop::WaitForMoreEvents);
}

void BM_FirstRowsOf5000Files(benchmark::State& state)
{
    static const QString folder = makeFolder("five-thousand", 5000);
    if (folder.isEmpty()) {
        state.SkipWithError("the files could not be made");
        return;
    }
    // An empty folder to turn to between rounds, so each round chooses the big one anew.
    const QString elsewhere = work->filePath("elsewhere");
    QDir().mkpath(elsewhere);
    TagSourcesWrapper tags;
    tags.addFolder(folder);
    tags.addFolder(elsewhere);
    const int source = folderSource(tags, folder);
    const int other = folderSource(tags, elsewhere);
    for (auto _ : state) {
        QElapsedTimer timer;
        timer.start();
        tags.selectSource(source);
        spinUntil([&] { return tags.rowCount() > 0 || !tags.isBusy(); });
        state.SetIterationTime(double(timer.nsecsElapsed()) / 1e9);
        state.counters["rows"] = tags.rowCount();
        tags.stop();
        spinUntil([&] { return !tags.isBusy(); });
        tags.selectSource(other);
        spinUntil([&] { return !tags.isBusy(); });
    }
}
BENCHMARK(BM_FirstRowsOf5000Files)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(10);

QString fiveHundred()
{
    static const QString folder = makeFolder("five-hundred", 500);
    return folder;
}

void BM_SaveArtistOf500FilesInTheTab(benchmark::State& state)
{
    const QString folder = fiveHundred();
    TagSourcesWrapper tags;
    tags.addFolder(folder);
    tags.selectSource(folderSource(tags, folder));
    spinUntil([&] { return !tags.isBusy(); });
    QList<int> all;
    for (int row = 0; row < tags.rowCount(); ++row)
        all << row;
    if (all.size() != 500) {
        state.SkipWithError("the files were not listed");
        return;
    }
    tags.selectRows(all);
    int round = 0;
    for (auto _ : state) {
        tags.setArtistField(QStringLiteral("Artist %1").arg(++round));
        QStringList failures{"not ended"};
        auto ended = QObject::connect(&tags, &TagSourcesWrapper::saveFinished,
                                      [&failures](const QStringList& list) { failures = list; });
        tags.setTags();
        spinUntil([&] { return !tags.isBusy(); });
        QObject::disconnect(ended);
        if (!failures.isEmpty()) {
            state.SkipWithError(qPrintable(failures.first()));
            return;
        }
    }
}
BENCHMARK(BM_SaveArtistOf500FilesInTheTab)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

void BM_SaveArtistOf500FilesWithTagLib(benchmark::State& state)
{
    const QString folder = fiveHundred();
    const QStringList files = QDir(folder).entryList({"*.mp3"}, QDir::Files, QDir::Name);
    int round = 0;
    for (auto _ : state) {
        const TagLib::String artist(QStringLiteral("TagLib %1").arg(++round).toStdString(), TagLib::String::UTF8);
        for (const QString& name : files) {
            TagLib::MPEG::File file(QFile::encodeName(folder + '/' + name).constData());
            file.ID3v2Tag(true)->setArtist(artist);
            if (!file.save()) {
                state.SkipWithError("TagLib could not save");
                return;
            }
        }
    }
}
BENCHMARK(BM_SaveArtistOf500FilesWithTagLib)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

}  // namespace

void BM_SafeReplaceOf500FilesWithoutTags(benchmark::State& state)
{
    const QString folder = fiveHundred();
    QStringList files;
    for (const QString& name : QDir(folder).entryList({"*.mp3"}, QDir::Files, QDir::Name))
        files << folder + '/' + name;
    for (auto _ : state) {
        SafeFile::Batch batch;
        std::atomic<qsizetype> next{0};
        std::atomic<bool> failed{false};
        // As many writers as the tab's save runs.
        std::vector<std::thread> writers;
        for (int n = 0; n < 8; ++n)
            writers.emplace_back([&] {
                const SafeFile::Batch::Use inBatch(batch);
                for (qsizetype i = next++; i < files.size(); i = next++) {
                    SafeFile::Replacement copy(files.at(i));
                    if (!copy.createCopy() || !copy.commit())
                        failed = true;
                }
            });
        for (std::thread& writer : writers)
            writer.join();
        if (!batch.finish().isEmpty() || failed) {
            state.SkipWithError("a file could not be replaced");
            return;
        }
    }
}
BENCHMARK(BM_SafeReplaceOf500FilesWithoutTags)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

int main(int argc, char** argv)
{
    // The tab keeps its folders in the settings: a home of its own.
    QTemporaryDir home(QDir::tempPath() + "/velmora-bench-XXXXXX");
    for (const char* variable : {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME"})
        setenv(variable, QFile::encodeName(home.path()).constData(), 1);
    QCoreApplication app(argc, argv);
    work = new QTemporaryDir(home.filePath("work-XXXXXX"));
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    delete work;
    return 0;
}
