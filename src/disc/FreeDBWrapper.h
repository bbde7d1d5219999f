#pragma once
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

#include <memory>
#include <optional>

class Job;
struct JobResult;
class QUrl;

// What a disc's FreeDB client answers to instead of posting notifications.
class FreeDBReplyTarget {
public:
    virtual ~FreeDBReplyTarget() = default;
    virtual void reply(const QString& name, const QVariant& object) = 0;
};

struct FreeDBOptions {
    // A server to use instead of the one the settings choose; no server list is fetched.
    std::optional<QVariantMap> server;
    int timeoutMs = 60000;  // without a byte received for this long, a request fails
};

// A client of a FreeDB (CDDB) server over HTTP: the server list (cmd=sites),
// the query for a disc (cmd=cddb query) and the read of one match (cmd=cddb
// read), one request in flight at a time. The transfer runs as a Job; its
// answer is handled on the thread the wrapper lives in (the main thread).
// The fields a window shows (album menu, artist and album, status, server
// table) are kept here and announced with changed().
class FreeDBWrapper : public QObject {
    Q_OBJECT
public:
    enum Request { None = -1, ServerList = 0, Query = 1, Read = 2 };

    using Options = FreeDBOptions;

    // The instance of the preferences, set up on first use.
    static FreeDBWrapper& getSharedObject();
    // The built-in server record.
    static QVariantMap defaultServer();
    // Ampersands, angle brackets, quotes, apostrophes and slashes become ":".
    static QString escapedString(const QString& text);
    // The address of a request (the argument of a server-list request is unused).
    static QString requestURL(Request kind, const QVariantMap& server, const QString& argument, const QString& userName,
                              const QString& hostName);
    // The FreeDB switch of the preferences.
    static bool isDisabled();

    // A wrapper of the preferences; awakeFromNibble() sets it up.
    explicit FreeDBWrapper(QObject* parent = nullptr);
    // A wrapper for the disc at cdPath, set up at once; with an owner, results
    // go to the owner's reply() instead of the notification bus.
    FreeDBWrapper(const QString& cdPath, FreeDBReplyTarget* owner, Options options = {}, QObject* parent = nullptr);
    ~FreeDBWrapper() override;

    void awakeFromNibble();

    // Starts a query for the CDDB query string unless FreeDB is switched off.
    bool getFreeDBInfo(const QString& query);
    bool getFreeDBQuery(const QString& query);
    bool getFreeDBRead(const QString& genreAndDiscid);
    bool getFreeDBServerList();
    // Hands out the last matches and CD info again.
    void needCDInfo();
    // The album menu's choice: fills the artist and album fields and reads that match.
    void selectAlbum(int index);

    // The actions of the preferences page.
    void refreshHostList();
    void makeDefaultHost(int row);
    QVariantMap getSelectedHost(const QString& host) const;
    void disable(bool off);
    void setUserName(const QString& name);
    void setHostName(const QString& name);

    bool isBusy() const { return transfer_ != nullptr; }
    Request requestInFlight() const { return kind_; }
    QVariantMap currentServer() const { return server_; }
    QVariantList serverList() const { return serverList_; }
    // The server table: the list, or the record in use alone while the list is empty.
    QVariantList serverTable() const;
    QString userName() const { return userName_; }
    QString hostName() const { return hostName_; }
    QStringList albumMenu() const { return albumMenu_; }
    bool albumMenuEnabled() const { return albumMenuEnabled_; }
    QString artistField() const { return artistField_; }
    QString albumField() const { return albumField_; }
    QString statusField() const { return statusField_; }
    QVariantList albums() const { return albums_; }
    QVariantList cdInfo() const { return cdInfo_; }

signals:
    void changed();
    void serverListChanged();
    // A request's answer or failure has been handled (a chained read may follow).
    void requestEnded();

private:
    bool send(Request kind, const QString& argument);
    JobResult transfer(Job& job, const QUrl& url, quint64 serial, int timeoutMs);
    void transferEnded(quint64 serial, const QByteArray& data, const QString& failure, const QString& url);
    void connectionDidFinishLoading(const QByteArray& data);
    void exactMatch(const QStringList& lines);
    void inexactMatch(const QStringList& lines);
    void readFreeDBAlbum(const QStringList& lines);
    void rebuildServerList(const QVariantList& servers);
    void answer(const char* name, const QVariant& object);
    void vlUnmountNotification();

    QString cdPath_;
    FreeDBReplyTarget* owner_ = nullptr;
    Options options_;
    QVariantMap server_;
    QVariantList serverList_;
    QString userName_;
    QString hostName_;
    QString defaultHostName_;
    Request kind_ = None;
    std::shared_ptr<Job> transfer_;
    quint64 serial_ = 0;
    QVariantList albums_;
    QVariantList cdInfo_;
    QStringList albumMenu_;
    bool albumMenuEnabled_ = false;
    QString artistField_;
    QString albumField_;
    QString statusField_;
};
