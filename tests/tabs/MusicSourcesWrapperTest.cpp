#include "tabs/MusicSourcesWrapper.h"
#include "core/Defaults.h"
#include "core/Job.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "encode/ExportJobs.h"
#include "encode/LameWrapper.h"
#include "platform/FileNames.h"
#include "playlists/PlaylistFiles.h"

#include "common/TestSupport.h"

#include <QDir>
#include <QFileInfo>
#include <QSignalSpy>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

namespace {

// Records every export request posted for a format, without running a job.
struct RequestRecorder {
    QList<QPair<QString, QVariantMap>> requests;
    std::function<void()> onRequest;
    explicit RequestRecorder(const QStringList& types)
    {
        for (const QString& type : types)
            NotificationCenter::defaultCenter().addObserver(this, exportNotificationName(type),
                                                            [this](const Notification& n) {
                                                                requests << qMakePair(n.name, n.object.toMap());
                                                                if (onRequest)
                                                                    onRequest();
                                                            });
    }
    ~RequestRecorder() { NotificationCenter::defaultCenter().removeObserver(this); }
};

QString makeTone(const QString& path, const char* seconds = "1")
{
    QDir().mkpath(QFileInfo(path).path());
    if (testsupport::run("sox", {"-n", "-r", "44100", "-c", "2", "-b", "16", path, "synth", seconds, "sine", "440"}) != 0)
        return {};
    return path;
}

} // namespace

TEST(MusicSave, UniqueNamesCountUpReplaceAndStopAt1024)
{
    QTemporaryDir dir;
    const QString folder = dir.path() + "/out/deeper";
    EXPECT_EQ(MusicSourcesWrapper::uniqueFilename("/m/Song.flac", folder, "MP3", {}), folder + "/Song.MP3");
    EXPECT_TRUE(QFileInfo(folder).isDir());  // the chain is made on the way
    testsupport::writeFile(folder + "/Song.MP3", "x");
    EXPECT_EQ(MusicSourcesWrapper::uniqueFilename("/m/Song.flac", folder, "MP3", {}), folder + "/Song 1.MP3");
    EXPECT_EQ(MusicSourcesWrapper::uniqueFilename("/m/Song.flac", folder, "MP3", {{"replace", true}}),
              folder + "/Song.MP3");
    testsupport::writeFile(folder + "/Song 1.MP3", "x");
    EXPECT_EQ(MusicSourcesWrapper::uniqueFilename("/m/Song.flac", folder, "MP3", {}), folder + "/Song 2.MP3");
    for (int n = 2; n <= 1024; ++n)
        testsupport::writeFile(QStringLiteral("%1/Song %2.MP3").arg(folder).arg(n), "x");
    EXPECT_EQ(MusicSourcesWrapper::uniqueFilename("/m/Song.flac", folder, "MP3", {}), folder + "/Song 1024.MP3");
}

TEST(MusicSave, CopyKeepsTheSourceTypeAndDontputFlattensUniquely)
{
    QTemporaryDir dir;
    const QString src = dir.path() + "/src";
    testsupport::writeFile(src + "/x.ogg", "ogg");
    testsupport::writeFile(src + "/a/song.mp3", "a");
    testsupport::writeFile(src + "/b/song.mp3", "b");
    RequestRecorder recorder({"COPY"});
    MusicSourcesWrapper music;
    music.setSaveInBackground(false);

    const QString out = dir.path() + "/out";
    music.saveFiles({{"type", "COPY"},
                     {"destinationfolder", out},
                     {"selectedfiles", QStringList{src + "/x.ogg", src + "/a/song.mp3", src + "/b/song.mp3"}},
                     {"destinationpaths", QStringList{"src", "src/a", "src/b"}}});
    ASSERT_EQ(recorder.requests.size(), 3);
    EXPECT_EQ(recorder.requests[0].first, QString(VLCOPYExportNotification));
    EXPECT_EQ(recorder.requests[0].second.value("destinationpath").toString(), out + "/src/x.OGG");
    EXPECT_EQ(recorder.requests[1].second.value("destinationpath").toString(), out + "/src/a/song.MP3");
    // Each request decodes into an intermediate of its own in the private cache.
    const QString wav0 = recorder.requests[0].second.value("wavpath").toString();
    EXPECT_TRUE(wav0.startsWith(QDir::homePath() + "/.cache/Velmora/musiccache-")) << qPrintable(wav0);
    EXPECT_TRUE(wav0.endsWith(".WAV")) << qPrintable(wav0);
    EXPECT_NE(wav0, recorder.requests[1].second.value("wavpath").toString());

    // "dontput": everything side by side, made unique among themselves as the job writes them.
    recorder.requests.clear();
    recorder.onRequest = [&] {
        testsupport::writeFile(recorder.requests.last().second.value("destinationpath").toString(), "written");
    };
    const QVariantMap flash{{"dontput", true}};
    music.saveFiles({{"type", "COPY"},
                     {"destinationfolder", out + "/flat"},
                     {"selectedfiles", QStringList{src + "/a/song.mp3", src + "/b/song.mp3"}},
                     {"destinationpaths", QStringList{"src/a", "src/b"}},
                     {"flashpanelsettings", flash}});
    ASSERT_EQ(recorder.requests.size(), 2);
    EXPECT_EQ(recorder.requests[0].second.value("destinationpath").toString(), out + "/flat/song.MP3");
    EXPECT_EQ(recorder.requests[1].second.value("destinationpath").toString(), out + "/flat/song 1.MP3");
    EXPECT_EQ(recorder.requests[1].second.value("flashpanelsettings").toMap(), flash);
}

TEST(MusicSave, CancelStopsBeforeTheNextFileAndBadEntriesAreReportedOnce)
{
    QTemporaryDir dir;
    QStringList files;
    for (int i = 0; i < 4; ++i) {
        files << dir.path() + QStringLiteral("/in/t%1.wav").arg(i);
        testsupport::writeFile(files.last(), "RIFF");
    }
    RequestRecorder recorder({"MP3"});
    MusicSourcesWrapper music;
    recorder.onRequest = [&] {
        if (recorder.requests.size() == 2)
            music.terminateSave();
    };
    int cancels = 0;
    int owner = 0;
    NotificationCenter::defaultCenter().addObserver(&owner, VLMP3ExportCancelNotification,
                                                    [&](const Notification&) { ++cancels; });
    music.saveFiles({{"type", "MP3"}, {"destinationfolder", dir.path() + "/out"}, {"selectedfiles", files}});
    NotificationCenter::defaultCenter().removeObserver(&owner);
    EXPECT_EQ(recorder.requests.size(), 2);
    EXPECT_EQ(cancels, 1);  // the background requests already handed over are told too
    EXPECT_TRUE(music.isCancelled());
    EXPECT_TRUE(recorder.requests[0].second.value("ripinbackground").toBool());
    EXPECT_NE(recorder.requests[0].second.value("wavpath"), recorder.requests[1].second.value("wavpath"));

    // A folder in the way of the destination is reported once; an unreadable source by name.
    MusicSourcesWrapper second;
    QStringList failures;
    second.setFailureHandler([&](const QString& path, const QString&) { failures << path; });
    testsupport::writeFile(dir.path() + "/blocked", "a file where a folder should be");
    const QString unreadable = dir.path() + "/in/locked.wav";
    testsupport::writeFile(unreadable, "RIFF");
    QFile::setPermissions(unreadable, QFile::Permissions());
    recorder.requests.clear();
    recorder.onRequest = nullptr;
    second.saveFiles({{"type", "MP3"},
                      {"destinationfolder", dir.path()},
                      {"selectedfiles", QStringList{files[0], files[1], unreadable, files[2]}},
                      {"destinationpaths", QStringList{"blocked", "blocked", "ok", "ok"}}});
    const bool root = QFileInfo(unreadable).isReadable();  // root reads everything
    EXPECT_EQ(failures.count(dir.path() + "/blocked"), 1);
    EXPECT_EQ(failures.contains(unreadable), !root);
    EXPECT_EQ(recorder.requests.size(), root ? 2 : 1);
    EXPECT_EQ(recorder.requests.last().second.value("destinationpath").toString(), dir.path() + "/ok/t2.MP3");
}

TEST(MusicSave, SaveThreadShowsTheProgressTextsAndGathersFoldersAndPlaylists)
{
    QTemporaryDir dir;
    testsupport::writeFile(dir.path() + "/Album/Disc 2/b.mp3", "b");
    testsupport::writeFile(dir.path() + "/Album/a10.mp3", "a");
    testsupport::writeFile(dir.path() + "/Album/A2.mp3", "a");
    testsupport::writeFile(dir.path() + "/Album/notes.txt", "not music");
    const QString playlist = dir.path() + "/Road Trip.cd3";
    ASSERT_TRUE(PlaylistFiles::writeGroup(
        playlist, PlaylistFiles::makeGroup("OVRoot", {dir.path() + "/Album/A2.mp3",
                                                      PlaylistFiles::makeGroup("Night", {dir.path() + "/Album/a10.mp3"})})));

    RequestRecorder recorder({"MP2"});
    MusicSourcesWrapper music;
    music.setSaveInBackground(false);
    QList<QVariantMap> progress;
    music.setProgressHandler([&](const QVariantMap& p) { progress << p; });
    QSignalSpy ended(&music, &MusicSourcesWrapper::progressSheetEnded);
    const MusicSourcesWrapper::Selection selection = {
        MusicSourcesWrapper::Source::library(dir.path() + "/Album"),
        MusicSourcesWrapper::Source::playlist({{"playlistpath", playlist}})};
    music.chooseSaveFolderDidEnd(true, dir.path() + "/out", "MP2", selection);
    music.waitForSaveThread();
    EXPECT_EQ(Defaults::standard().stringForKey("defaultMP2Folder"), dir.path() + "/out");
    EXPECT_EQ(MusicSourcesWrapper::startingFolderFor("MP2"), dir.path() + "/out");
    EXPECT_EQ(MusicSourcesWrapper::startingFolderFor("WMA"), QDir::homePath() + "/WMA Folder");
    // The chooser opens in a folder that exists and offers the missing one as a new folder.
    EXPECT_EQ(MusicSourcesWrapper::folderChoiceFor("MP2").openIn, dir.path() + "/out");
    EXPECT_EQ(MusicSourcesWrapper::folderChoiceFor("MP2").newFolderName, "");
    EXPECT_EQ(MusicSourcesWrapper::folderChoiceFor("WMA").openIn, QDir::homePath());
    EXPECT_EQ(MusicSourcesWrapper::folderChoiceFor("WMA").newFolderName, "WMA Folder");
    EXPECT_EQ(MusicSourcesWrapper::chooseFolderMessage("OGG"), "Please select a folder to export the OGG files.");

    ASSERT_GE(progress.size(), 2);
    EXPECT_EQ(progress.first().value("operation").toString(), "Searching Folder");
    EXPECT_EQ(progress.first().value("status").toString(),
              "For deep folders, this can take a VERY long time. Please wait.");
    const auto saving = std::find_if(progress.begin(), progress.end(),
                                     [](const QVariantMap& p) { return p.value("operation") == "Saving Files"; });
    ASSERT_NE(saving, progress.end());
    EXPECT_EQ(saving->value("status").toString(), "This can take a bit of time, but not too much.  Please wait.");
    EXPECT_EQ(ended.count(), 1);

    QStringList destinations;
    for (const auto& request : recorder.requests)
        destinations << request.second.value("destinationpath").toString().mid(dir.path().size() + 5);
    EXPECT_EQ(destinations, (QStringList{"Album/A2.MP2", "Album/a10.MP2", "Album/Disc 2/b.MP2",
                                         "Road Trip/A2.MP2", "Road Trip/Night/a10.MP2"}));
}

TEST(MusicSave, DropsBecomeTheDropZoneAndBurnRequestsArePosted)
{
    MusicSourcesWrapper music;
    QSignalSpy filled(&music, &MusicSourcesWrapper::dropZoneFilled);
    NotificationCenter::defaultCenter().post(VLMSWFileDropNotification,
                                             QVariantMap{{"filearray", QStringList{"/d/1.mp3", "/d/2.ogg"}}});
    EXPECT_EQ(filled.count(), 1);
    EXPECT_EQ(music.dropZone(), (QStringList{"/d/1.mp3", "/d/2.ogg"}));
    EXPECT_EQ(music.dropZoneSelection().size(), 2);

    EXPECT_FALSE(MusicSourcesWrapper::isServed(VLBurnAudioCDWithArrayNotification));
    QTemporaryDir dir;
    testsupport::writeFile(dir.path() + "/t.wav", "RIFF");
    QVariantList audioCD, optical;
    int owner = 0;
    auto& center = NotificationCenter::defaultCenter();
    center.addObserver(&owner, VLBurnAudioCDWithArrayNotification, [&](const Notification& n) { audioCD << n.object; });
    center.addObserver(&owner, VLBurnOpticalMediaWithDictionaryNotification,
                       [&](const Notification& n) { optical << n.object; });
    EXPECT_TRUE(MusicSourcesWrapper::isServed(VLBurnAudioCDWithArrayNotification));
    const MusicSourcesWrapper::Selection selection{MusicSourcesWrapper::Source::library(dir.path())};
    music.burnCDDispatcher("Burn Audio CD", selection);
    music.burnCDDispatcher("Burn MP3 CD/DVD", selection);
    music.burnCDDispatcher("Burn Something Else", selection);
    // A chosen playlist's M3U file goes onto a data disc with the music.
    const QString playlist = dir.path() + "/Mix.cd3";
    music.burnCDDispatcher("Burn Music CD/DVD", {MusicSourcesWrapper::Source::library(dir.path()),
                                                 MusicSourcesWrapper::Source::playlist({{"playlistpath", playlist}})});
    center.removeObserver(&owner);
    ASSERT_EQ(audioCD.size(), 1);
    EXPECT_EQ(audioCD[0].toStringList(), QStringList{dir.path() + "/t.wav"});
    ASSERT_EQ(optical.size(), 2);
    EXPECT_TRUE(optical[0].toMap().value("makemp3ifneeded").toBool());
    EXPECT_EQ(optical[0].toMap().value("m3uplaylists").toStringList(), QStringList());
    EXPECT_FALSE(optical[1].toMap().value("makemp3ifneeded").toBool());
    EXPECT_EQ(optical[1].toMap().value("m3uplaylists").toStringList(), QStringList{playlist});

    MusicSourcesWrapper::burnCDSetFormat("Burn DVD-Audio");
    EXPECT_EQ(Defaults::standard().stringForKey("mBurnCDFormatPopup"), "Burn DVD-Audio");
}

TEST(MusicSave, RealEncodersConvertIntoUniqueNames)
{
    QTemporaryDir dir;
    const QString wav = makeTone(dir.path() + "/in/a.wav");
    ASSERT_FALSE(wav.isEmpty());
    const QString mp3 = dir.path() + "/in/a.mp3";
    ASSERT_EQ(testsupport::run("lame", {"--quiet", "--tt", "Tone", wav, mp3}), 0);
    const QString out = dir.path() + "/out";
    testsupport::writeFile(out + "/a.MP3", "an older file");

    ExportJobs jobs;
    LameWrapper lame;
    lame.lookForLame();
    ASSERT_TRUE(lame.lameFound());
    MusicSourcesWrapper music;
    QSignalSpy batches(&music, &MusicSourcesWrapper::batchFinished);
    auto convert = [&](const QVariantMap& flash, const QStringList& files = {}) {
        QVariantMap request{
            {"type", "MP3"}, {"destinationfolder", out}, {"selectedfiles", files.isEmpty() ? QStringList{mp3} : files}};
        if (!flash.isEmpty())
            request.insert("flashpanelsettings", flash);
        music.saveFiles(request);
        jobs.waitForBackgroundWork();
    };
    auto lastSummary = [&] {
        EXPECT_TRUE(batches.count() > 0 || batches.wait(5000));
        return batches.takeLast().at(0).value<MusicSourcesWrapper::BatchSummary>();
    };
    // With the preference set, an M3U playlist of the batch lands beside its files.
    Defaults::standard().setInteger("prefsCreateM3UStored", 1);
    convert({});
    Defaults::standard().setInteger("prefsCreateM3UStored", 0);
    ASSERT_TRUE(QFileInfo(out + "/a 1.MP3").size() > 1000);
    EXPECT_EQ(lastSummary().text(),
              "Converted 1 file to MP3 in \u201c" + out + "\u201d. Their M3U playlist is \u201cout.m3u\u201d.");
    EXPECT_EQ(testsupport::readFile(out + "/out.m3u"), "#EXTM3U\n#EXTINF:1,Tone\na 1.MP3\n");
    QByteArray probe;
    testsupport::run("ffprobe", {"-v", "error", "-show_entries", "stream=codec_name:format_tags=title", "-of",
                                 "default=nw=1", out + "/a 1.MP3"}, &probe);
    EXPECT_TRUE(probe.contains("codec_name=mp3")) << probe.constData();
    EXPECT_TRUE(probe.contains("Tone")) << probe.constData();

    convert({{"replace", true}});
    EXPECT_GT(QFileInfo(out + "/a.MP3").size(), 1000);  // the older file was overwritten
    EXPECT_FALSE(QFileInfo::exists(out + "/a 2.MP3"));
    lastSummary();

    // A batch with a file that is no audio and one that is missing: the summary
    // counts them and names them.
    testsupport::writeFile(dir.path() + "/in/notes.ogg", "not audio at all");
    convert({}, {mp3, dir.path() + "/in/notes.ogg", dir.path() + "/in/gone.wav"});
    const auto summary = lastSummary();
    EXPECT_EQ(summary.files, 3);
    EXPECT_EQ(summary.made, 1);
    EXPECT_EQ(summary.failed, 2);
    EXPECT_EQ(summary.text(), "Converted 1 of 3 files to MP3 in \u201c" + out + "\u201d. 2 failed.");
    ASSERT_EQ(summary.problems.size(), 2);
    EXPECT_TRUE(summary.problems.filter("gone.wav").size() == 1) << summary.problems.join('\n').toStdString();
    EXPECT_TRUE(summary.problems.filter("notes.ogg").size() == 1) << summary.problems.join('\n').toStdString();
}

TEST(MusicSave, UniqueNamesAreReservedAndFitTheFileSystem)
{
    QTemporaryDir dir;
    const QString folder = dir.path() + "/out";
    // Two like-named sources of one batch, before either job has written anything.
    const QString first = MusicSourcesWrapper::uniqueFilename("/m/Song.flac", folder, "MP3", {});
    const QString second = MusicSourcesWrapper::uniqueFilename("/n/Song.ogg", folder, "MP3", {});
    EXPECT_EQ(first, folder + "/Song.MP3");
    EXPECT_EQ(second, folder + "/Song 1.MP3");
    for (const QString& name : {first, second}) {
        EXPECT_TRUE(FileNames::isReserved(name));
        EXPECT_EQ(QFileInfo(name).size(), 0);
    }
    // "replace" takes the existing name as it is, without a reservation of its own.
    EXPECT_EQ(MusicSourcesWrapper::uniqueFilename("/m/Song.flac", folder, "MP3", {{"replace", true}}), first);
    FileNames::release(first);
    FileNames::release(second);
    EXPECT_EQ(QDir(folder).entryList(QDir::Files), QStringList());

    // A stem too long for one more number is shortened; the number and the type stay.
    const QString stem = QString(240, QChar(u'\u00e9'));  // 480 bytes
    const QString longFirst = MusicSourcesWrapper::uniqueFilename("/m/" + stem + ".wav", folder, "MP3", {});
    const QString longSecond = MusicSourcesWrapper::uniqueFilename("/m/" + stem + ".wav", folder, "MP3", {});
    EXPECT_EQ(QFileInfo(longFirst).fileName(), QString(125, QChar(u'\u00e9')) + ".MP3");
    EXPECT_EQ(QFileInfo(longSecond).fileName(), QString(124, QChar(u'\u00e9')) + " 1.MP3");
    EXPECT_TRUE(QFileInfo::exists(longSecond));
}

TEST(MusicSave, TheSaveIsAJobWithTheSheetsTextsAndCancellingItIsTerminateSave)
{
    QTemporaryDir dir;
    for (int i = 0; i < 4; ++i)
        testsupport::writeFile(dir.path() + QStringLiteral("/in/t%1.wav").arg(i), "RIFF");
    // A name that is not UTF-8 is left out and said.
    const QByteArray latin = QFile::encodeName(dir.path() + "/in/caf") + "\xe9.wav";
    ::close(::open(latin.constData(), O_CREAT | O_WRONLY, 0644));
    RequestRecorder recorder({"MP3"});
    MusicSourcesWrapper music;
    QStringList skipped;
    music.setSkipHandler([&](const QString& message) { skipped << message; });
    const MusicSourcesWrapper::Selection selection{MusicSourcesWrapper::Source::library(dir.path() + "/in")};
    const QVariantMap request{{"type", "MP3"}, {"destinationfolder", dir.path() + "/out"}};

    const auto job = music.makeSaveJob(request, selection);
    EXPECT_EQ(job->title(), "Saving MP3 files");
    QStringList statuses;
    QList<double> percents;
    QObject context;
    QObject::connect(
        &JobList::shared(), &JobList::jobChanged, &context,
        [&](quint64 id) {
            if (id != job->id())
                return;
            const QString status = job->status();
            if (!status.isEmpty() && (statuses.isEmpty() || statuses.last() != status))
                statuses << status;
            if (job->percent() >= 0 && (percents.isEmpty() || percents.last() != job->percent()))
                percents << job->percent();
        },
        Qt::DirectConnection);
    EXPECT_TRUE(job->run().ok());
    EXPECT_EQ(statuses, (QStringList{"Searching Folder", "Saving Files"}));
    EXPECT_EQ(percents, (QList<double>{0, 25, 50, 75, 100}));
    EXPECT_EQ(recorder.requests.size(), 4);
    const QString message = FileNames::unreadableNameMessage(dir.path() + "/in/caf\\xE9.wav");
    EXPECT_EQ(skipped, QStringList{message});
    EXPECT_EQ(job->messages(), QStringList{message});

    // Cancelling the job is the sheet's cancel: the save stops before the next file
    // and the export job of the format is told.
    recorder.requests.clear();
    int cancels = 0;
    int owner = 0;
    NotificationCenter::defaultCenter().addObserver(&owner, VLMP3ExportCancelNotification,
                                                    [&](const Notification&) { ++cancels; });
    const auto second = music.makeSaveJob(request, selection);
    recorder.onRequest = [&] {
        if (recorder.requests.size() == 2)
            second->cancel();
    };
    second->run();
    NotificationCenter::defaultCenter().removeObserver(&owner);
    EXPECT_EQ(second->result().outcome, JobResult::Outcome::Cancelled);
    EXPECT_EQ(recorder.requests.size(), 2);
    EXPECT_EQ(cancels, 1);
    EXPECT_TRUE(music.isCancelled());
}
