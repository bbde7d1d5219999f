#pragma once
// What the commands that read discs share: the --server option and waiting on
// the watcher's event loop.
#include "disc/FreeDBWrapper.h"

#include <QEventLoop>
#include <QTimer>

#include <functional>
#include <optional>

// "host", "host:8080", "host/~cddb/cddb.cgi" or "host:8080/cgi" as a server record.
inline std::optional<QVariantMap> serverRecord(const QString& text)
{
    QString hostAndPort = text;
    QString cgi = FreeDBWrapper::defaultServer().value("cgi").toString();
    if (const qsizetype slash = text.indexOf('/'); slash >= 0) {
        hostAndPort = text.left(slash);
        cgi = text.mid(slash);
    }
    QString host = hostAndPort;
    QString port = QStringLiteral("80");
    if (const qsizetype colon = hostAndPort.lastIndexOf(':'); colon >= 0) {
        host = hostAndPort.left(colon);
        port = hostAndPort.mid(colon + 1);
        bool isNumber = false;
        const int value = port.toInt(&isNumber);
        if (!isNumber || value < 1 || value > 65535)
            return std::nullopt;
    }
    if (host.isEmpty())
        return std::nullopt;
    return QVariantMap{{"host", host}, {"port", port}, {"cgi", cgi}, {"location", "Given on the command line"}};
}

// Runs the event loop until done() holds.
inline void waitUntil(const std::function<bool()>& done)
{
    if (done())
        return;
    QEventLoop loop;
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, &loop, [&] {
        if (done())
            loop.quit();
    });
    timer.start(20);
    loop.exec();
}
