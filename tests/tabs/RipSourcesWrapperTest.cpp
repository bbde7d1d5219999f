#include "tabs/RipFixtures.h"

#include "core/Defaults.h"
#include "encode/EncodeTestSupport.h"
#include "encode/RipChecksums.h"

#include <QFile>

using namespace ripfixtures;
using encodetest::probe;

namespace {

// The samples of a WAV file's data chunk.
QByteArray wavSamples(const QString& path)
{
    const auto span = RipChecksums::wavData(path);
    QFile file(path);
    if (!span || !file.open(QIODevice::ReadOnly) || !file.seek(span->offset))
        return {};
    return file.read(span->size);
}

quint32 crcOf(const QByteArray& pcm)
{
    return RipChecksums::crc32(reinterpret_cast<const unsigned char*>(pcm.constData()), std::size_t(pcm.size()));
}

QString hex(quint32 value)
{
    return QStringLiteral("%1").arg(value, 8, 16, QLatin1Char('0')).toUpper();
}

// A cd-paranoia first on PATH that notes each run, then reads as the real one does.
class CountedReads {
public:
    explicit CountedReads(const QString& folder) : log_(folder + "/reads"), path_(qgetenv("PATH"))
    {
        QDir().mkpath(folder);
        testsupport::writeFile(
            folder + "/cd-paranoia",
            QStringLiteral("#!/bin/sh\necho \"$@\" >> '%1'\nexec /usr/bin/cd-paranoia \"$@\"\n").arg(log_).toUtf8());
        QFile::setPermissions(folder + "/cd-paranoia", QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        qputenv("PATH", folder.toUtf8() + ':' + path_);
    }
    ~CountedReads() { qputenv("PATH", path_); }
    qsizetype count() const { return testsupport::readFile(log_).count('\n'); }

private:
    QString log_;
    QByteArray path_;
};

}  // namespace

TEST(RipSourcesWrapper, AMultiRipReadsEachTrackOnceAndMakesEveryFormatWithTheDiscNames)
{
    RipFixture f(disc({audio(150), audio(150 + 31), audio(150)}));
    ASSERT_EQ(f.rip->tracks().size(), 3);
    const RipNaming::TrackNames second = f.rip->tracks()[1].names();
    EXPECT_EQ(second.title, "Beta");
    EXPECT_EQ(second.artist, "Guest");
    EXPECT_EQ(second.album, "Record");  // from the match's title

    CountedReads reads(f.dir.filePath("bin"));
    RipSettings settings = f.settings();
    settings.multiRip = RipSettings::formatNames();
    settings.writeLog = true;
    const JobResult result = f.ripTracks("MULTI-RIP", settings, {2, 3});
    ASSERT_TRUE(result.ok()) << qPrintable(result.error);
    EXPECT_EQ(reads.count(), 2);
    // The shared intermediates went when the last format was done with them.
    EXPECT_EQ(RipFixture::filesUnder(f.dir.filePath("cache")), QStringList());

    struct Row {
        const char* extension;
        const char* codec;
        bool tagged;  // twolame, WMA and WAV files carry no tags
    } rows[] = {{"aac", "aac", true}, {"m4a", "aac", true},    {"m4b", "aac", true},        {"mp2", "mp2", false},
                {"mp3", "mp3", true}, {"ogg", "vorbis", true}, {"wav", "pcm_s16le", false}, {"wma", "wmav2", false}};
    for (const Row& row : rows) {
        const QString file = f.out() + "/02 Beta." + row.extension;
        const auto made = probe(file);
        EXPECT_EQ(made.codec, row.codec) << row.extension;
        EXPECT_NEAR(made.duration, 181.0 / 75, 0.1) << row.extension;
        if (row.tagged) {
            EXPECT_EQ(made.tags.value("title").toString(), "Beta") << row.extension;
            EXPECT_EQ(made.tags.value("artist").toString(), "Guest") << row.extension;
            EXPECT_EQ(made.tags.value("album").toString(), "Record") << row.extension;
        }
        EXPECT_TRUE(result.files.contains(file)) << row.extension;
        EXPECT_TRUE(QFileInfo::exists(f.out() + "/03 Gamma." + row.extension)) << row.extension;
    }
    EXPECT_EQ(wavSamples(f.out() + "/02 Beta.wav"), f.trackAudio(2));
    EXPECT_EQ(wavSamples(f.out() + "/03 Gamma.wav"), f.trackAudio(3));

    // The log beside them: the checksums of exactly the tracks' audio, and the reader's report.
    const QString log = QString::fromUtf8(testsupport::readFile(f.out() + "/Guest - Record.log"));
    const QByteArray last = f.trackAudio(3);
    RipChecksums::Accumulator lastSums(last.size() / 4, false, true);
    lastSums.add(reinterpret_cast<const unsigned char*>(last.constData()), std::size_t(last.size()));
    for (const QString& line : {"PCM CRC32: " + hex(crcOf(f.trackAudio(2))), "PCM CRC32: " + hex(crcOf(last)),
                                "AccurateRip v2: " + hex(lastSums.sums().accurateRipV2), QString("== :^D * ==")})
        EXPECT_TRUE(log.contains(line)) << qPrintable(line) << "\n" << qPrintable(log);
}

TEST(RipSourcesWrapper, AForegroundRipWithoutDiscNamesMakesFoldersAndAClip)
{
    RipFixture f(disc({audio(225)}), false);
    RipSettings settings = f.settings();
    settings.inBackground = false;
    settings.setForFormat("MP3",
                          {{"mRipSubfoldersStored", 1}, {"mRipTypeFolderStored", 1}, {"mRipFolderCaseStored", 1}});
    settings.clip = {{"mRipClipStored", 1}, {"mRipClipStartStored", "0.5"}, {"mRipClipDurationStored", "1"}};
    const JobResult result = f.ripTracks("MP3", settings);
    ASSERT_TRUE(result.ok()) << qPrintable(result.error);
    const QString folder = f.out() + "/artist missing/album missing/mp3/";
    EXPECT_EQ(RipFixture::filesUnder(f.out()), (QStringList{"artist missing/album missing/mp3/01 Title Missing.clp.mp3",
                                                            "artist missing/album missing/mp3/01 Title Missing.mp3"}));
    EXPECT_NEAR(probe(folder + "01 Title Missing.mp3").duration, 3.0, 0.1);
    EXPECT_NEAR(probe(folder + "01 Title Missing.clp.mp3").duration, 1.0, 0.1);
    EXPECT_EQ(probe(folder + "01 Title Missing.mp3").tags.value("track").toString(), "01");
    EXPECT_FALSE(probe(folder + "01 Title Missing.mp3").tags.contains("title"));
    EXPECT_EQ(RipFixture::filesUnder(f.dir.filePath("cache")), QStringList());
}

TEST(RipSourcesWrapper, ATrackThatCannotBeReadIsReportedAndLaterReadsGoThroughFfmpeg)
{
    RipFixture f(disc({audio(150), audio(150), audio(150)}));
    // The image ends half-way through the last track.
    ASSERT_TRUE(QFile::resize(f.image.bin, (f.image.starts[2] + 75) * kSectorBytes));
    RipSettings settings = f.settings();
    JobResult result = f.ripTracks("MP3", settings);
    EXPECT_EQ(result.outcome, JobResult::Outcome::Failed);
    EXPECT_EQ(f.failures, QStringList{"Track 03 (Gamma): Only 75 of the 150 sectors of track 3 could be read."});
    EXPECT_EQ(RipFixture::filesUnder(f.out()), (QStringList{"01 Alpha.mp3", "02 Beta.mp3"}));
    EXPECT_TRUE(f.jobs.wav().cdparanoiaFailed());

    // cd-paranoia is not asked again: ffmpeg reads the disc, sample for sample.
    CountedReads reads(f.dir.filePath("bin"));
    f.failures.clear();
    result = f.ripTracks("WAV", settings, {1, 2});
    ASSERT_TRUE(result.ok()) << qPrintable(result.error);
    EXPECT_EQ(reads.count(), 0);
    EXPECT_EQ(wavSamples(f.out() + "/01 Alpha.wav"), f.trackAudio(1));
    EXPECT_EQ(wavSamples(f.out() + "/02 Beta.wav"), f.trackAudio(2));
    EXPECT_EQ(RipFixture::filesUnder(f.dir.filePath("cache")), QStringList());
}

TEST(RipSourcesWrapper, ADiscThatGoesAwayMidRipLeavesTheTracksRippedBeforeAndNothingElse)
{
    RipFixture f(disc({audio(150), audio(150), audio(150)}));
    f.rip->setProgressHandler([&](const QVariantMap& progress) {
        if (progress.value("savefilename").toString().startsWith("02"))
            QMetaObject::invokeMethod(
                f.watcher.get(), [&] { f.watcher->eject(f.cdpath); }, Qt::BlockingQueuedConnection);
    });
    const auto request = f.rip->ripRequest("OGG", f.out());
    ASSERT_TRUE(request);
    const std::shared_ptr<Job> job = f.rip->makeRipJob(*request, f.settings());
    job->start();
    ASSERT_TRUE(QTest::qWaitFor([&] { return job->state() == Job::State::Finished; }, 60000));
    f.jobs.waitForBackgroundWork();
    EXPECT_EQ(job->result().outcome, JobResult::Outcome::Failed);
    EXPECT_EQ(f.failures, (QStringList{"Track 02 (Beta): Not ripped, the disc is no longer there.",
                                       "Track 03 (Gamma): Not ripped, the disc is no longer there."}));
    EXPECT_EQ(RipFixture::filesUnder(f.out()), QStringList{"01 Alpha.ogg"});
    EXPECT_NEAR(probe(f.out() + "/01 Alpha.ogg").duration, 2.0, 0.1);
    EXPECT_TRUE(f.rip->discs().isEmpty());
}

TEST(RipSourcesWrapper, CancelTellsEveryEncoderFamilyAndLeavesOnlyWholeFilesOfAListedJob)
{
    RipFixture f(disc({audio(150), audio(150), audio(150)}));
    QStringList told;
    std::mutex toldMutex;
    for (const char* name :
         {VLMP3ExportCancelNotification, VLMP2ExportCancelNotification, VLAACExportCancelNotification,
          VLOGGExportCancelNotification, VLWMAExportCancelNotification})
        NotificationCenter::defaultCenter().addObserver(&told, name, [&, name](const Notification&) {
            std::lock_guard lock(toldMutex);
            told << name;
        });
    const auto request = f.rip->ripRequest("MP3", f.out());
    ASSERT_TRUE(request);
    const std::shared_ptr<Job> job = f.rip->makeRipJob(*request, f.settings());
    f.rip->setProgressHandler([&](const QVariantMap& progress) {
        if (progress.value("savefilename").toString().startsWith("02"))
            job->cancel();
    });
    job->start();
    EXPECT_TRUE(JobList::shared().jobs().contains(job));
    ASSERT_TRUE(QTest::qWaitFor([&] { return job->state() == Job::State::Finished; }, 60000));
    f.jobs.waitForBackgroundWork();
    NotificationCenter::defaultCenter().removeObserver(&told);
    EXPECT_EQ(job->result().outcome, JobResult::Outcome::Cancelled);
    EXPECT_EQ(told.size(), 5);
    EXPECT_EQ(QSet<QString>(told.begin(), told.end()).size(), 5);
    // Track 1 was handed to its encoder before the cancel; nothing of track 2 or 3 is left.
    for (const QString& file : RipFixture::filesUnder(f.out())) {
        EXPECT_EQ(file, "01 Alpha.mp3");
        EXPECT_NEAR(probe(f.out() + '/' + file).duration, 2.0, 0.1);
    }
    EXPECT_EQ(RipFixture::filesUnder(f.dir.filePath("cache")), QStringList());
}

TEST(RipSourcesWrapper, SeveralMatchesOfferAChoiceThatRenamesTheTracks)
{
    RipFixture f(disc({audio(150)}));
    // A second server, answering with two close matches, each with its own entry.
    CddbServer matches([](const QString& target) {
        if (target.contains("cmd=cddb+query"))
            return CddbServer::Answer{
                CddbServer::lines({"211 close", "rock 0a000001 One / First", "jazz 0a000002 Two / Second", "."})};
        const bool jazz = target.contains("jazz");
        return CddbServer::Answer{CddbServer::lines({"210 x", QString("TTITLE0=") + (jazz ? "Blue" : "Red"), "."})};
    });
    mounted_cd_wrapper watcher(std::make_unique<NoDrives>(),
                               CdWatcherOptions{f.dir.filePath("discs2"), true, {matches.record(), 60000}});
    RipSourcesWrapper rip(watcher);
    watcher.openImage(f.image.cue);
    ASSERT_TRUE(QTest::qWaitFor([&] { return !rip.tracks().isEmpty() && !rip.tracks()[0].info.isEmpty(); }, 30000));
    EXPECT_EQ(rip.albumMenu(), (QStringList{"One / First", "Two / Second"}));
    EXPECT_TRUE(rip.albumMenuEnabled());
    EXPECT_EQ(rip.selectedAlbum(), 1);  // the client reads the last match
    EXPECT_EQ(rip.tracks()[0].names().title, "Blue");

    rip.selectAlbum(0);
    ASSERT_TRUE(QTest::qWaitFor([&] { return rip.tracks()[0].names().title == "Red"; }, 30000));
    EXPECT_EQ(rip.tracks()[0].names().artist, "One");
    EXPECT_EQ(rip.tracks()[0].names().album, "First");
}

TEST(RipSourcesWrapper, SettingsSheetsEditACopyAndStoreWhatTheyShare)
{
    RipFixture f(disc({audio(150)}));
    RipSourcesWrapper& rip = *f.rip;
    rip.ripSettingsShow("MP2");  // MP2 rips follow the MP3 settings
    rip.setRipBitrate(14);
    rip.setShownValue("mRipFilenameFormatStored", 6);
    rip.setCustomFormat("[ARTIST]-[title].[ext]");
    rip.addCharChange("-", "");
    rip.addCharChange("x", "y");
    rip.deleteCharChange(1);
    const QString preview = rip.previewPath("MP3");
    EXPECT_TRUE(preview.endsWith("/BANDalpha.mp3")) << qPrintable(preview);
    EXPECT_NE(rip.previewPath("OGG"), preview);  // only the shown format's sheet is being edited
    rip.ripSettingsCancel();
    EXPECT_TRUE(rip.previewPath("MP3").endsWith("/01 Alpha.mp3"));

    rip.ripSettingsShow("MP2");
    rip.setCustomFormat("[Title]");
    rip.setShownValue("mRipFilenameFormatStored", 6);
    rip.addCharChange("a", QString());
    rip.ripSettingsSave();
    rip.ripSettingsShow("WAV");
    rip.setShownValue("mono", 1);
    rip.ripSettingsSave();
    rip.multiRipSettingsShow();
    rip.setMultiRipFormat("WAV", true);
    rip.setMultiRipFormat("MP3", false);
    rip.multiRipSettingsSave();

    Defaults::standard().reload();
    const QVariantMap stored = Defaults::standard().dictionaryForKey("mRipSettingsDictionaryStored");
    EXPECT_EQ(stored.value("mp2"), stored.value("mp3"));
    EXPECT_EQ(stored.value("mp3").toMap().value("charchange"),
              (QVariantList{QVariantMap{{"replace", "a"}, {"with", ""}}}));
    EXPECT_EQ(stored.value("WAV").toMap().value("mono").toInt(), 1);
    EXPECT_EQ(stored.value("wma"), stored.value("WAV"));
    EXPECT_EQ(stored.value("ogg").toMap(), RipSettings::defaultFormatSettings());
    EXPECT_EQ(Defaults::standard().arrayForKey("mMultiRipStored"), (QVariantList{"OGG", "WAV"}));
    EXPECT_TRUE(rip.previewPath("MP3").endsWith("/Alph.mp3"));

    rip.ripSettingsShow("MP3");
    rip.ripSettingsDefault();
    rip.ripSettingsSave();
    EXPECT_EQ(RipSettings::stored().forFormat("MP2"), RipSettings::defaultFormatSettings());
}
