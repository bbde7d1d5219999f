// Feeds arbitrary bytes to the reader of CDDB read answers (xmcd entries).
#include "disc/FreeDBAnswers.h"

#include <QVariantMap>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace FreeDBAnswers;
    const QStringList lines =
        FreeDBAnswers::lines(decode(QByteArray(reinterpret_cast<const char*>(data), qsizetype(size))));
    const QVariantList tracks = cdInfo(lines, QStringLiteral("/cd"));
    // Tracks are numbered in the order they come, from 01.
    for (qsizetype i = 0; i < tracks.size(); ++i) {
        if (tracks[i].toMap().value(QStringLiteral("track")).toString().toInt() != i + 1)
            std::abort();
    }
    return 0;
}
