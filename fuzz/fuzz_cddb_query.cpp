// Feeds arbitrary bytes to the readers of CDDB query and server-list answers.
#include "disc/FreeDBAnswers.h"

#include <QSet>
#include <QVariantMap>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using namespace FreeDBAnswers;
    const QStringList lines =
        FreeDBAnswers::lines(decode(QByteArray(reinterpret_cast<const char*>(data), qsizetype(size))));
    statusCode(lines);
    const Matches exact = exactMatches(lines, QStringLiteral("/cd"));
    if (exact.albums.isEmpty() != exact.readArgument.isEmpty())
        std::abort();
    // Inexact matches never repeat a title.
    QSet<QString> titles;
    for (const QVariant& album : inexactMatches(lines, QStringLiteral("/cd")).albums) {
        const QString title = album.toMap().value(QStringLiteral("title")).toString();
        if (titles.contains(title))
            std::abort();
        titles.insert(title);
    }
    for (const QVariant& server : serverList(lines)) {
        if (server.toMap().size() != 4)
            std::abort();
    }
    return 0;
}
