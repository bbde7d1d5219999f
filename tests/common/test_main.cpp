// The main() of every test program: a fresh, private home for the process so
// that settings, playlists and caches never touch the developer's own.
#include "common/TestSupport.h"

#include <gtest/gtest.h>

#ifdef VELMORA_TEST_WIDGETS
#include <QApplication>
using TestApplication = QApplication;
#else
#include <QCoreApplication>
using TestApplication = QCoreApplication;
#endif

int main(int argc, char** argv)
{
    testsupport::useFreshHome();
    TestApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
