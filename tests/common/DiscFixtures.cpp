#include "common/DiscFixtures.h"

#include <QDir>
#include <QFile>
#include <QHostAddress>
#include <QMutexLocker>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>

#include <cmath>
#include <future>

namespace discfixtures {

namespace {

QString msf(qint64 sectors)
{
    return QString::asprintf("%02lld:%02lld:%02lld", sectors / (60 * kSectorsPerSecond),
                             sectors / kSectorsPerSecond % 60, sectors % kSectorsPerSecond);
}

int digitSum(qint64 n)
{
    int sum = 0;
    for (; n > 0; n /= 10)
        sum += int(n % 10);
    return sum;
}

}  // namespace

TrackPlan audio(qint64 sectors, qint64 pregap, const QString& title, const QString& performer)
{
    TrackPlan track;
    track.sectors = sectors;
    track.pregap = pregap;
    track.title = title;
    track.performer = performer;
    return track;
}

TrackPlan data(qint64 sectors, const QString& mode, qint64 pregap)
{
    TrackPlan track = audio(sectors, pregap);
    track.mode = mode;
    return track;
}

ImagePlan disc(const QList<TrackPlan>& tracks, const QString& title, const QString& performer)
{
    ImagePlan plan;
    plan.tracks = tracks;
    plan.title = title;
    plan.performer = performer;
    return plan;
}

ImagePlan sparse(const QList<TrackPlan>& tracks)
{
    ImagePlan plan = disc(tracks);
    plan.sparse = true;
    return plan;
}

QByteArray sectorBytes(qint64 sector)
{
    // Little-endian 16-bit stereo music (cd-paranoia guesses the byte order
    // from how smooth the samples are): two sines whose frequencies and slowly
    // swelling loudness leave no two sectors of a test image alike.
    QByteArray bytes(kSectorBytes, Qt::Uninitialized);
    for (int i = 0; i < 588; ++i) {
        const double t = double(sector * 588 + i) / 44100.0;
        const double swell = 1.0 + 0.3 * std::sin(2 * M_PI * 0.05 * t);
        const int left = int(std::lround(7000 * swell * std::sin(2 * M_PI * 441.3 * t)));
        const int right = int(std::lround(5000 * swell * std::sin(2 * M_PI * 331.7 * t)));
        bytes[4 * i] = char(left & 0xFF);
        bytes[4 * i + 1] = char((left >> 8) & 0xFF);
        bytes[4 * i + 2] = char(right & 0xFF);
        bytes[4 * i + 3] = char((right >> 8) & 0xFF);
    }
    return bytes;
}

QByteArray cueText(const ImagePlan& plan, const QString& binName)
{
    QString text = QString::fromUtf8(plan.before);
    if (!plan.title.isEmpty())
        text += QStringLiteral("TITLE \"%1\"\n").arg(plan.title);
    if (!plan.performer.isEmpty())
        text += QStringLiteral("PERFORMER \"%1\"\n").arg(plan.performer);
    text += QStringLiteral("FILE \"%1\" BINARY\n").arg(plan.fileLine.isEmpty() ? binName : plan.fileLine);
    qint64 position = 0;
    for (qsizetype i = 0; i < plan.tracks.size(); ++i) {
        const TrackPlan& track = plan.tracks[i];
        text += QString::asprintf("  TRACK %02d %s\n", int(i + 1), qPrintable(track.mode));
        if (!track.title.isEmpty())
            text += QStringLiteral("    TITLE \"%1\"\n").arg(track.title);
        if (!track.performer.isEmpty())
            text += QStringLiteral("    PERFORMER \"%1\"\n").arg(track.performer);
        if (track.pregap > 0)
            text += QStringLiteral("    INDEX 00 %1\n").arg(msf(position));
        position += track.pregap;
        text += QStringLiteral("    INDEX 01 %1\n").arg(msf(position));
        position += track.sectors;
    }
    return plan.latin1 ? text.toLatin1() : text.toUtf8();
}

Image writeImage(const QString& folder, const QString& name, const ImagePlan& plan)
{
    QDir().mkpath(folder);
    Image image;
    image.cue = folder + '/' + name + ".cue";
    image.bin = folder + '/' + name + ".bin";
    for (const TrackPlan& track : plan.tracks) {
        image.sectors += track.pregap;
        image.starts << image.sectors;
        image.sectors += track.sectors;
    }
    QFile bin(image.bin);
    if (!bin.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return {};
    if (plan.sparse) {
        bin.resize(image.sectors * kSectorBytes);
    } else {
        for (qint64 sector = 0; sector < image.sectors; ++sector)
            bin.write(sectorBytes(sector));
    }
    bin.close();
    QFile cue(image.cue);
    if (!cue.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return {};
    cue.write(cueText(plan, name + ".bin"));
    return image;
}

QString publishedQuery(const QList<qint64>& starts, qint64 leadout)
{
    // Offsets count the 2-second lead-in; sums and length are in whole seconds.
    int n = 0;
    QStringList offsets;
    for (qint64 start : starts) {
        n += digitSum((start + 150) / 75);
        offsets << QString::number(start + 150);
    }
    const qint64 seconds = (leadout + 150) / 75;
    const qint64 length = seconds - (starts.first() + 150) / 75;
    const quint32 id = (quint32(n % 0xFF) << 24) | (quint32(length) << 8) | quint32(starts.size());
    return QString::asprintf("%08x+%d+", id, int(starts.size())) + offsets.join('+') + '+' + QString::number(seconds);
}

QString routineQuery(const QList<qint64>& starts, qint64 leadout)
{
    QStringList parts = publishedQuery(starts, leadout).split('+');
    const qint64 offset = starts.last() + 150;
    parts[parts.size() - 2] = QString::number(offset - offset % kSectorsPerSecond);
    return parts.join('+');
}

class CddbServer::Thread : public QThread {
public:
    explicit Thread(Handler handler) : handler_(std::move(handler)) {}

    std::promise<quint16> listening;
    mutable QMutex mutex;
    QStringList requests;

protected:
    void run() override
    {
        QTcpServer server;
        if (!server.listen(QHostAddress::LocalHost, 0)) {
            listening.set_value(0);
            return;
        }
        QObject::connect(&server, &QTcpServer::newConnection, &server, [this, &server] {
            while (QTcpSocket* socket = server.nextPendingConnection())
                serve(socket);
        });
        listening.set_value(server.serverPort());
        exec();
    }

private:
    void serve(QTcpSocket* socket)
    {
        auto* received = new QByteArray;
        QObject::connect(socket, &QObject::destroyed, [received] { delete received; });
        QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        QObject::connect(socket, &QTcpSocket::readyRead, socket, [this, socket, received] {
            *received += socket->readAll();
            const qsizetype end = received->indexOf("\r\n\r\n");
            if (end < 0 || received->isEmpty())
                return;
            const QList<QByteArray> requestLine = received->left(received->indexOf("\r\n")).split(' ');
            received->clear();
            const QString target = QString::fromLatin1(requestLine.value(1));
            {
                QMutexLocker lock(&mutex);
                requests << target;
            }
            const Answer answer = handler_(target);
            if (answer.kind == Answer::Kind::Silent)
                return;
            const qsizetype announced = answer.body.size() + (answer.kind == Answer::Kind::CutShort ? 4096 : 0);
            QByteArray head = "HTTP/1.1 " + QByteArray::number(answer.httpStatus) +
                              (answer.httpStatus < 400 ? " OK" : " Refused") +
                              "\r\nContent-Type: " + answer.contentType +
                              "\r\nContent-Length: " + QByteArray::number(announced) + "\r\nConnection: close\r\n\r\n";
            socket->write(head + answer.body);
            socket->disconnectFromHost();
        });
    }

    Handler handler_;
};

CddbServer::CddbServer(Handler handler) : thread_(std::make_unique<Thread>(std::move(handler)))
{
    auto listening = thread_->listening.get_future();
    thread_->start();
    port_ = listening.get();
}

CddbServer::~CddbServer()
{
    thread_->quit();
    thread_->wait();
}

QVariantMap CddbServer::record(const QString& cgi) const
{
    return {{"host", "127.0.0.1"}, {"port", QString::number(port_)}, {"cgi", cgi}, {"location", "Test server"}};
}

QStringList CddbServer::requests() const
{
    QMutexLocker lock(&thread_->mutex);
    return thread_->requests;
}

QByteArray CddbServer::lines(const QStringList& lines)
{
    QByteArray text;
    for (const QString& line : lines)
        text += line.toUtf8() + "\r\n";
    return text;
}

}  // namespace discfixtures
