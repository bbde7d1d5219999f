#include "disc/OpticalMediaWrapper.h"
#include "common/BurnFixtures.h"
#include "common/TestSupport.h"

#include <QDir>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using namespace burnfixtures;

namespace {

class DataDisc : public ::testing::Test {
protected:
    QTemporaryDir dir {testsupport::homeDir() + "/data-disc-XXXXXX"};

    QString path(const QString& name) const { return dir.filePath(name); }
    QString mp3(const QString& name, const QString& title)
    {
        const QString wav = path(title + ".wav");
        const QString out = path(name);
        QDir().mkpath(QFileInfo(out).path());
        EXPECT_TRUE(makeTone(wav, 1.0, 440) && makeMp3(wav, out, title, "Band"));
        return out;
    }
    static QByteArray isoinfo(const QStringList& arguments)
    {
        QByteArray output;
        EXPECT_EQ(testsupport::run("isoinfo", arguments, &output), 0) << output.constData();
        return output;
    }
};

TEST_F(DataDisc, FoldersNamesPlaylistsAndTagsOnAnIsoImage)
{
    const QStringList files = {mp3("lib/Rock/one.mp3", "One"), mp3("lib/Rock/two.mp3", "Two"),
                               mp3("lib/Jazz/three.mp3", "Three"), path("lib/Jazz/missing.mp3")};
    QDir().mkpath(path("pl/Playlists"));
    QDir().mkpath(path("pl/M3U"));
    testsupport::writeFile(path("pl/Playlists/Mix.cd3"), "<plist/>");
    testsupport::writeFile(path("pl/M3U/Mix.m3u"), "#EXTM3U\nlib/Rock/one.mp3\n");
    const QVariantMap request{{"selectedfiles", files},
                              {"destinationpaths", QStringList{"lib/Rock", "lib/Rock", "lib/Jazz", "lib/Jazz"}},
                              {"m3uplaylists", QStringList{path("pl/Playlists/Mix.cd3")}},
                              {"cdtitle", "Party"},
                              {"makemp3ifneeded", false}};
    DataDiscOptions options;
    options.preserveOrder = true;
    options.stripID3v2 = true;
    options.appendID3v1 = true;
    BurnSetup setup;
    setup.image = path("disc.iso");
    OpticalMediaWrapper wrapper;
    const auto job = wrapper.burnMP3CD(request, setup, options);
    job->wait();
    ASSERT_TRUE(job->result().ok()) << qPrintable(job->result().error);
    EXPECT_EQ(job->messages(), QStringList{"Left out missing.mp3: it is no longer there"});

    const QStringList listed = QString::fromUtf8(isoinfo({"-R", "-f", "-i", setup.image})).split('\n', Qt::SkipEmptyParts);
    EXPECT_EQ(QSet<QString>(listed.begin(), listed.end()),
              (QSet<QString>{"/000lib", "/000lib/000Rock", "/000lib/001Jazz", "/000lib/000Rock/000one.mp3",
                             "/000lib/000Rock/001two.mp3", "/000lib/001Jazz/000three.mp3", "/000Mix.m3u"}));
    EXPECT_TRUE(isoinfo({"-d", "-i", setup.image}).contains("Joliet"));
    EXPECT_EQ(isoinfo({"-R", "-i", setup.image, "-x", "/000Mix.m3u"}), QByteArray("#EXTM3U\nlib/Rock/one.mp3\n"));

    // Each MP3: the source without its ID3v2 tag, then an ID3v1 tag made from it.
    const struct {
        const char* disc;
        int source;
        const char* title;
    } rows[] = {{"/000lib/000Rock/000one.mp3", 0, "One"}, {"/000lib/000Rock/001two.mp3", 1, "Two"},
                {"/000lib/001Jazz/000three.mp3", 2, "Three"}};
    for (const auto& row : rows) {
        const QByteArray source = testsupport::readFile(files[row.source]);
        ASSERT_TRUE(source.startsWith("ID3"));
        const auto* size = reinterpret_cast<const unsigned char*>(source.constData()) + 6;
        const int tag = 10 + (size[0] << 21 | size[1] << 14 | size[2] << 7 | size[3]);
        const QByteArray onDisc = isoinfo({"-R", "-i", setup.image, "-x", row.disc});
        ASSERT_EQ(onDisc.size(), source.size() - tag + 128) << row.disc;
        EXPECT_TRUE(onDisc.left(onDisc.size() - 128) == source.mid(tag)) << row.disc;
        const QByteArray v1 = onDisc.right(128);
        EXPECT_TRUE(v1.startsWith("TAG" + QByteArray(row.title) + '\0')) << row.disc;
        EXPECT_EQ(v1.mid(33, 5), QByteArray("Band\0", 5)) << row.disc;
        EXPECT_EQ(quint8(v1[127]), 17) << row.disc;  // Rock
    }
}

TEST_F(DataDisc, FoldersAreFoundOrMadeWithOrderPrefixes)
{
    DataDiscFolder root;
    root.name = "Disc";
    root.memoryFiles.push_back({"a", {}});
    root.memoryFiles.push_back({"b", {}});
    DataDiscFolder* rock = createVirtualFoldersOnRoot(&root, {"Rock"}, true);
    EXPECT_EQ(rock->name, QStringLiteral("002Rock"));
    EXPECT_EQ(createVirtualFoldersOnRoot(&root, {"Rock"}, true), rock);
    DataDiscFolder* deep = createVirtualFoldersOnRoot(&root, {"Rock", "Live", "1999"}, true);
    EXPECT_EQ(deep->name, QStringLiteral("0001999"));
    EXPECT_EQ(rock->folders.front()->name, QStringLiteral("000Live"));
    // A component named like the folder in hand is taken as that folder.
    EXPECT_EQ(createVirtualFoldersOnRoot(&root, {"Disc", "Rock"}, true), rock);
    EXPECT_EQ(createVirtualFoldersOnRoot(&root, {"Jazz"}, false)->name, QStringLiteral("Jazz"));
    EXPECT_EQ(createVirtualFoldersOnRoot(&root, {}, false), &root);
}

TEST_F(DataDisc, SizesAreDecimalMegabytes)
{
    testsupport::writeFile(path("a"), QByteArray(699999, 'a'));
    testsupport::writeFile(path("b"), QByteArray(300001, 'b'));
    EXPECT_EQ(OpticalMediaWrapper::computeSize({path("a")}), 0);
    EXPECT_EQ(OpticalMediaWrapper::computeSize({path("a"), path("b"), path("gone")}), 1);
    EXPECT_EQ(OpticalMediaWrapper::m3uPathFor("/home/u/Velmora/Playlists/Mix.cd3"),
              QStringLiteral("/home/u/Velmora/M3U/Mix.m3u"));
}

}  // namespace
