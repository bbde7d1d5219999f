#pragma once
// Disc images (a cue sheet and its BIN) and a local CDDB server, made by the tests.
#include <QByteArray>
#include <QList>
#include <QMutex>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <functional>
#include <memory>

namespace discfixtures {

constexpr qint64 kSectorBytes = 2352;
constexpr qint64 kSectorsPerSecond = 75;

struct TrackPlan {
    qint64 sectors = 4 * kSectorsPerSecond;  // from INDEX 01 to the next track
    QString mode = "AUDIO";
    qint64 pregap = 0;  // sectors of INDEX 00 before INDEX 01
    QString title;      // CD-Text
    QString performer;
};

struct ImagePlan {
    QList<TrackPlan> tracks;
    QString title;
    QString performer;
    bool sparse = false;  // a BIN of zeros made by extending the file, for long discs
    QString fileLine;     // the FILE name written; the BIN's own name when empty
    QByteArray before;    // lines written before FILE
    bool latin1 = false;  // the cue sheet in Latin-1 rather than UTF-8
};

// Makers that keep the tables of layouts short.
TrackPlan audio(qint64 sectors, qint64 pregap = 0, const QString& title = {}, const QString& performer = {});
TrackPlan data(qint64 sectors, const QString& mode = "MODE1/2352", qint64 pregap = 0);
ImagePlan disc(const QList<TrackPlan>& tracks, const QString& title = {}, const QString& performer = {});
ImagePlan sparse(const QList<TrackPlan>& tracks);

struct Image {
    QString cue;
    QString bin;
    QList<qint64> starts;  // INDEX 01 of each track, in sectors from the start of the BIN
    qint64 sectors = 0;    // the BIN's length
};

// Writes folder/name.cue and folder/name.bin. Every sector of a BIN that is not
// sparse holds audio of its own (sectorBytes), so a rip can be checked.
Image writeImage(const QString& folder, const QString& name, const ImagePlan& plan);
QByteArray cueText(const ImagePlan& plan, const QString& binName);
QByteArray sectorBytes(qint64 sector);

// The CDDB disc ID and query string by the published algorithm, from the
// tracks' first sectors and the lead-out (sectors from the disc's start).
QString publishedQuery(const QList<qint64>& starts, qint64 leadout);
// The same as the disc-ID routine makes it: it leaves the table's last byte
// uncopied, so the last track's offset drops to its whole second.
QString routineQuery(const QList<qint64>& starts, qint64 leadout);

// An HTTP server on 127.0.0.1 on a thread of its own, answering every GET
// through a handler (called on that thread).
class CddbServer {
public:
    struct Answer {
        enum class Kind { Whole, Silent, CutShort };
        QByteArray body;
        int httpStatus = 200;
        Kind kind = Kind::Whole;
        QByteArray contentType = "text/plain";
    };
    using Handler = std::function<Answer(const QString& target)>;

    explicit CddbServer(Handler handler);
    ~CddbServer();
    CddbServer(const CddbServer&) = delete;
    CddbServer& operator=(const CddbServer&) = delete;

    quint16 port() const { return port_; }
    // A server record for this server, as the FreeDB client keeps them.
    QVariantMap record(const QString& cgi = "/~cddb/cddb.cgi") const;
    // The request targets ("/~cddb/cddb.cgi?cmd=..."), in the order they came.
    QStringList requests() const;

    // Lines joined and ended by "\r\n".
    static QByteArray lines(const QStringList& lines);

private:
    class Thread;
    std::unique_ptr<Thread> thread_;
    quint16 port_ = 0;
};

}  // namespace discfixtures
