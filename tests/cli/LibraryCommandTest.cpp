#include "common/TestSupport.h"
#include "core/Defaults.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <gtest/gtest.h>

using testsupport::builtProgram;
using testsupport::run;
using testsupport::writeFile;

namespace {

void storeRoots(const QVariantList& roots)
{
    Defaults::standard().setObject("rootItem", roots);
    ASSERT_TRUE(Defaults::standard().synchronize());
}

} // namespace

TEST(LibraryCommand, ListsRootsRecursivelyAsTextAndJson)
{
    QTemporaryDir dir;
    const QString root = dir.path();
    writeFile(root + "/Album/01 Song.mp3", "x");
    writeFile(root + "/Album/cover.jpg", "x");
    writeFile(root + "/.config/hidden.mp3", "x");
    writeFile(root + "/ring.m4r", "x");
    ASSERT_TRUE(QFile::link(root, root + "/Album/up"));
    storeRoots({root, "/"});

    QByteArray out;
    ASSERT_EQ(run(builtProgram("velmora-cli"), {"library"}, &out), 0) << out.constData();
    const QString text = QString::fromUtf8(out);
    EXPECT_TRUE(text.contains(root + "\n")) << qPrintable(text);
    EXPECT_TRUE(text.contains("\n  Album/\n")) << qPrintable(text);
    EXPECT_TRUE(text.contains("\n    01 Song.mp3\n"));
    EXPECT_TRUE(text.contains("\n    up/  (already listed)\n"));
    EXPECT_TRUE(text.contains("\n  ring.m4r\n"));
    EXPECT_FALSE(text.contains("cover.jpg"));
    EXPECT_FALSE(text.contains("hidden.mp3"));
    // "/" is named but not walked unless asked for.
    EXPECT_TRUE(text.contains("\n/  (depth limit)\n")) << qPrintable(text);

    ASSERT_EQ(run(builtProgram("velmora-cli"), {"library", "--json", "--depth", "1", root}, &out), 0);
    const QJsonArray roots = QJsonDocument::fromJson(out).object()["roots"].toArray();
    ASSERT_EQ(roots.size(), 1);
    EXPECT_EQ(roots[0]["path"].toString(), root);
    QStringList names;
    for (const QJsonValue& entry : roots[0]["children"].toArray()) {
        names << entry["name"].toString();
        if (entry["name"].toString() == "Album") {
            EXPECT_TRUE(entry["truncated"].toBool());
            EXPECT_EQ(entry["path"].toString(), root + "/Album");
        }
    }
    names.sort();
    EXPECT_EQ(names, (QStringList{"Album", "ring.m4r"}));
}

TEST(LibraryCommand, AddsAndRemovesRoots)
{
    QTemporaryDir dir;
    storeRoots({});
    QByteArray out;
    ASSERT_EQ(run(builtProgram("velmora-cli"), {"library", "--add", dir.path()}, &out), 0) << out.constData();
    Defaults::standard().reload();
    EXPECT_EQ(Defaults::standard().arrayForKey("rootItem"), QVariantList{dir.path()});

    EXPECT_EQ(run(builtProgram("velmora-cli"), {"library", "--add", dir.path() + "/none"}, &out), 1);
    EXPECT_EQ(run(builtProgram("velmora-cli"), {"library", "--remove", "/not/a/root"}, &out), 1);
    EXPECT_EQ(run(builtProgram("velmora-cli"), {"library", "--depth", "x"}, &out), 2);

    ASSERT_EQ(run(builtProgram("velmora-cli"), {"library", "--remove", dir.path()}, &out), 0);
    EXPECT_TRUE(out.isEmpty()) << out.constData();
    Defaults::standard().reload();
    EXPECT_TRUE(Defaults::standard().arrayForKey("rootItem").isEmpty());
}
