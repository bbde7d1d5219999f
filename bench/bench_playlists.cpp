// M3U export of a large playlist of real tagged files, and the import of a
// large generated iTunes library (parse, intermediates, conversion of every
// playlist), with the process's peak memory.
#include "playlists/ITunesLibrary.h"
#include "playlists/ITunesManager.h"
#include "playlists/M3uManager.h"
#include "playlists/PlaylistFiles.h"
#include "tags/TagFacade.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

#include <sys/resource.h>

#include <cstdio>
#include <memory>

namespace {

constexpr int kM3uTracks = 5000;
constexpr int kLibraryTracks = 50000;
constexpr int kLibraryPlaylists = 200;

QString& workFolder()
{
    static QString folder;
    return folder;
}

double peakMegabytes()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return double(usage.ru_maxrss) / 1024.0;
}

// Copies of one encoded tone, each with its own title, listed in a playlist.
const QVariantMap& taggedPlaylist()
{
    static QVariantMap playlist;
    if (!playlist.isEmpty())
        return playlist;
    const QString folder = workFolder() + "/tracks";
    QDir().mkpath(folder);
    const QString tone = folder + "/tone.mp3";
    QProcess::execute("ffmpeg", {"-nostdin", "-loglevel", "error", "-f", "lavfi", "-i",
                                 "sine=frequency=440:duration=2", "-metadata", "title=Tone", tone});
    QVariantList entries, group;
    for (int i = 0; i < kM3uTracks; ++i) {
        const QString path = QStringLiteral("%1/Track %2.mp3").arg(folder).arg(i, 4, 10, QLatin1Char('0'));
        QFile::copy(tone, path);
        updateTags(path, {{"title", QStringLiteral("Song number %1").arg(i)}, {"artist", "Bench"}}, {});
        // A tenth of the tracks sit in sub-groups.
        if (i % 10 == 0)
            group.append(path);
        else
            entries.append(path);
    }
    entries.append(PlaylistFiles::makeGroup("Disc 2", group));
    playlist = PlaylistFiles::makeGroup("OVRoot", entries);
    return playlist;
}

void BM_M3uExport5000TaggedTracks(benchmark::State& state)
{
    const QVariantMap& playlist = taggedPlaylist();
    m3uManager manager;
    QVariantMap request{{"path", workFolder() + "/Bench.cd3"},
                        {"dictionary", playlist},
                        {"prefsM3UPathPrefixStored", "Music"},
                        {"makemp3ifneeded", true}};
    manager.vlM3UPlaylistNotification(request);  // warm the page cache
    for (auto _ : state) {
        const QString written = manager.vlM3UPlaylistNotification(request);
        benchmark::DoNotOptimize(written);
    }
    state.counters["tracks"] = kM3uTracks;
}
BENCHMARK(BM_M3uExport5000TaggedTracks)->Unit(benchmark::kMillisecond)->Iterations(5);

// A library laid out as iTunes writes it: a track dictionary of some twenty
// keys per track, one master playlist and 200 ordinary ones.
QString generatedLibrary()
{
    static QString path;
    if (!path.isEmpty())
        return path;
    path = workFolder() + "/iTunes Music Library.xml";
    QFile file(path);
    file.open(QIODevice::WriteOnly);
    auto write = [&file](const QString& text) { file.write(text.toUtf8()); };
    write("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
          "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">\n<dict>\n"
          "\t<key>Major Version</key><integer>1</integer>\n\t<key>Application Version</key><string>7.0</string>\n"
          "\t<key>Tracks</key>\n\t<dict>\n");
    const char* extensions[] = {"mp3", "m4a", "M4A", "mov", "aiff"};
    for (int id = 1; id <= kLibraryTracks; ++id) {
        write(QStringLiteral(
                  "\t\t<key>%1</key>\n\t\t<dict>\n"
                  "\t\t\t<key>Track ID</key><integer>%1</integer>\n"
                  "\t\t\t<key>Name</key><string>Song number %1 &amp; friends</string>\n"
                  "\t\t\t<key>Artist</key><string>Artist %2</string>\n"
                  "\t\t\t<key>Album</key><string>Album %3</string>\n"
                  "\t\t\t<key>Genre</key><string>Rock</string>\n"
                  "\t\t\t<key>Kind</key><string>MPEG audio file</string>\n"
                  "\t\t\t<key>Size</key><integer>%4</integer>\n"
                  "\t\t\t<key>Total Time</key><integer>%5</integer>\n"
                  "\t\t\t<key>Track Number</key><integer>%6</integer>\n"
                  "\t\t\t<key>Track Count</key><integer>12</integer>\n"
                  "\t\t\t<key>Year</key><integer>1999</integer>\n"
                  "\t\t\t<key>Date Modified</key><date>2007-03-01T10:00:00Z</date>\n"
                  "\t\t\t<key>Date Added</key><date>2007-03-01T10:00:00Z</date>\n"
                  "\t\t\t<key>Bit Rate</key><integer>192</integer>\n"
                  "\t\t\t<key>Sample Rate</key><integer>44100</integer>\n"
                  "\t\t\t<key>Play Count</key><integer>3</integer>\n"
                  "\t\t\t<key>Play Date UTC</key><date>2007-02-21T10:00:00Z</date>\n"
                  "\t\t\t<key>Rating</key><integer>80</integer>\n"
                  "\t\t\t<key>Persistent ID</key><string>4D2B1C0A9E8F%7</string>\n"
                  "\t\t\t<key>Track Type</key><string>File</string>\n"
                  "\t\t\t<key>Location</key><string>file://localhost/Users/me/Music/iTunes/iTunes%20Music/"
                  "Artist%20%2/Album%20%3/%6%20Song%20number%20%1.%8</string>\n"
                  "\t\t</dict>\n")
                  .arg(id)
                  .arg(id % 700)
                  .arg(id % 4000)
                  .arg(3000000 + id)
                  .arg(180000 + id)
                  .arg(id % 12 + 1)
                  .arg(id, 4, 16, QLatin1Char('0'))
                  .arg(QLatin1String(extensions[id % 5])));
    }
    write("\t</dict>\n\t<key>Playlists</key>\n\t<array>\n");
    auto writePlaylist = [&](const QString& name, int first, int count) {
        write(QStringLiteral("\t\t<dict>\n\t\t\t<key>Name</key><string>%1</string>\n"
                             "\t\t\t<key>Playlist ID</key><integer>%2</integer>\n"
                             "\t\t\t<key>Playlist Persistent ID</key><string>7A1B2C3D4E5F%2</string>\n"
                             "\t\t\t<key>All Items</key><true/>\n\t\t\t<key>Playlist Items</key>\n\t\t\t<array>\n")
                  .arg(name)
                  .arg(first));
        for (int i = 0; i < count; ++i)
            write(QStringLiteral("\t\t\t\t<dict>\n\t\t\t\t\t<key>Track ID</key><integer>%1</integer>\n\t\t\t\t</dict>\n")
                      .arg((first + i * 7) % kLibraryTracks + 1));
        write("\t\t\t</array>\n\t\t</dict>\n");
    };
    writePlaylist("Library", 0, kLibraryTracks);
    for (int p = 0; p < kLibraryPlaylists; ++p)
        writePlaylist(QStringLiteral("Mix %1/Part %2").arg(p / 10).arg(p), p * 250, 250);
    write("\t</array>\n</dict>\n</plist>\n");
    return path;
}

void BM_ITunesImport50000Tracks(benchmark::State& state)
{
    const QString library = generatedLibrary();
    const double fileMegabytes = double(QFileInfo(library).size()) / (1024.0 * 1024.0);
    for (auto _ : state) {
        iTunesManager importer;
        importer.setLibraryPath(library);
        importer.prepareFolders();
        const auto parsed = importer.readLibrary();
        if (!parsed) {
            state.SkipWithError("the generated library did not parse");
            return;
        }
        importer.preparse();
        importer.waitForIdle();
        QStringList intermediates;
        for (const QString& name : QDir(PlaylistFiles::iTunesFolder()).entryList({QStringLiteral("*.xml")}, QDir::Files))
            intermediates.append(PlaylistFiles::iTunesFolder() + '/' + name);
        int converted = 0;
        for (const QString& intermediate : intermediates)
            converted += importer.convertItunesPlaylist(intermediate) ? 1 : 0;
        benchmark::DoNotOptimize(converted);
    }
    state.counters["file_MB"] = fileMegabytes;
    state.counters["peak_RSS_MB"] = peakMegabytes();
    state.counters["peak_over_file"] = peakMegabytes() / fileMegabytes;
}
BENCHMARK(BM_ITunesImport50000Tracks)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_ITunesParseOnly(benchmark::State& state)
{
    const QString library = generatedLibrary();
    for (auto _ : state) {
        auto parsed = ITunesLibrary::read(library);
        benchmark::DoNotOptimize(parsed);
    }
}
BENCHMARK(BM_ITunesParseOnly)->Unit(benchmark::kMillisecond)->Iterations(3);

} // namespace

int main(int argc, char** argv)
{
    // A private home, so the bench never touches the user's own playlists.
    QTemporaryDir home(QDir::tempPath() + "/velmora-bench-XXXXXX");
    for (const char* sub : {".config", ".local/share", ".cache", "Music"})
        QDir().mkpath(home.path() + '/' + sub);
    setenv("HOME", qPrintable(home.path()), 1);
    setenv("XDG_CONFIG_HOME", qPrintable(home.path() + "/.config"), 1);
    setenv("XDG_DATA_HOME", qPrintable(home.path() + "/.local/share"), 1);
    setenv("XDG_CACHE_HOME", qPrintable(home.path() + "/.cache"), 1);
    workFolder() = home.path();
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
