#pragma once
// A disc image opened by the audio-CD watcher and named by a local CDDB server,
// for the Rip tab's tests.
#include "common/DiscFixtures.h"
#include "common/TestSupport.h"
#include "core/Job.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "disc/CdDrives.h"
#include "disc/FreeDBWrapper.h"
#include "disc/MountedCDWrapper.h"
#include "encode/ExportJobs.h"
#include "tabs/RipSourcesWrapper.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include <gtest/gtest.h>

#include <memory>

namespace ripfixtures {

using namespace discfixtures;

// No drives: the discs of these tests are images.
class NoDrives : public CdDriveAdapter {
public:
    QStringList drives() override { return {}; }
    std::optional<DiscTable> readDisc(const QString&) override { return std::nullopt; }
    bool eject(const QString&) override { return false; }
    void startMonitoring() override {}
};

// Names the server gives every disc: the match "Band / Record", and titles
// Alpha, Beta (by Guest, who then stays the artist) and Gamma.
inline CddbServer::Answer cddbAnswer(const QString& target)
{
    if (target.contains("cmd=cddb+query")) {
        const QString id = target.section("query+", 1).left(8);
        return {QStringLiteral("200 rock %1 Band / Record\r\n").arg(id).toUtf8()};
    }
    return {CddbServer::lines(
        {"210 rock x", "DYEAR=2001", "DGENRE=Rock", "TTITLE0=Alpha", "TTITLE1=Guest / Beta", "TTITLE2=Gamma", "."})};
}

struct RipFixture {
    QTemporaryDir dir;
    ExportJobs jobs;
    std::unique_ptr<CddbServer> server;
    std::unique_ptr<mounted_cd_wrapper> watcher;
    std::unique_ptr<RipSourcesWrapper> rip;
    Image image;
    QString cdpath;
    QStringList failures;

    explicit RipFixture(const ImagePlan& plan, bool lookUp = true)
    {
        NotificationCenter::defaultCenter().post(VLLameFoundNewNotification,
                                                 QVariantMap{{"lamepath", "/usr/bin/lame"}, {"lameversion", "LAME"}});
        image = writeImage(dir.filePath("image"), "disc", plan);
        server = std::make_unique<CddbServer>(cddbAnswer);
        watcher = std::make_unique<mounted_cd_wrapper>(
            std::make_unique<NoDrives>(), CdWatcherOptions{dir.filePath("discs"), lookUp, {server->record(), 60000}});
        rip = std::make_unique<RipSourcesWrapper>(*watcher);
        rip->setFailureHandler([this](const QString& message) { failures << message; });
        QObject::connect(watcher.get(), &mounted_cd_wrapper::opened,
                         [this](const QString&, const QString& path) { cdpath = path; });
        watcher->openImage(image.cue);
        EXPECT_TRUE(QTest::qWaitFor([&] { return !cdpath.isEmpty(); }, 30000));
        EXPECT_TRUE(QTest::qWaitFor(
            [&] {
                const FreeDBWrapper* freedb = watcher->freeDBWrapper(cdpath);
                return !freedb || (!freedb->isBusy() && !freedb->cdInfo().isEmpty());
            },
            30000));
        rip->selectDisc(cdpath);
    }

    QString out(const QString& name = "out") const { return dir.filePath(name); }

    // Settings with intermediates in a cache folder of the test's own.
    RipSettings settings() const
    {
        RipSettings settings = RipSettings::stored();
        settings.cacheFolder = dir.filePath("cache");
        return settings;
    }

    JobResult ripTracks(const QString& type, const RipSettings& settings, QList<int> numbers = {})
    {
        for (int row = 0; row < rip->tracks().size(); ++row)
            rip->setTrackSelected(row, numbers.isEmpty() || numbers.contains(rip->tracks()[row].number));
        const auto request = rip->ripRequest(type, out());
        EXPECT_TRUE(request.has_value());
        const JobResult result = rip->makeRipJob(*request, settings)->run();
        jobs.waitForBackgroundWork();
        return result;
    }

    // The image's audio of a track (1-based), as the disc holds it.
    QByteArray trackAudio(int number) const
    {
        QByteArray pcm;
        const qint64 end = number < image.starts.size() ? image.starts[number] : image.sectors;
        for (qint64 sector = image.starts[number - 1]; sector < end; ++sector)
            pcm += sectorBytes(sector);
        return pcm;
    }

    // Every file under a folder, relative to it.
    static QStringList filesUnder(const QString& folder)
    {
        QStringList files;
        const QDir root(folder);
        for (const QFileInfo& info : root.entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot)) {
            if (info.isDir() && !info.isSymLink()) {
                for (const QString& inner : filesUnder(info.filePath()))
                    files << info.fileName() + '/' + inner;
            } else {
                files << info.fileName();
            }
        }
        files.sort();
        return files;
    }
};

}  // namespace ripfixtures
