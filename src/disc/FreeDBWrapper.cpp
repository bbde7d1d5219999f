#include "disc/FreeDBWrapper.h"

#include "core/Defaults.h"
#include "core/Job.h"
#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "core/Preferences.h"
#include "disc/FreeDBAnswers.h"
#include "platform/Desktop.h"

#include <QCoreApplication>
#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QUrl>

#include <pwd.h>
#include <unistd.h>

namespace {

// A CDDB answer is a few kilobytes; a server sending more than this is not answering.
constexpr qint64 kMaxAnswerBytes = 16 << 20;

QString loginName()
{
    const passwd* entry = ::getpwuid(::getuid());
    return entry && entry->pw_name ? QString::fromLocal8Bit(entry->pw_name) : QString();
}

QString machineName()
{
    char name[256] = {};
    if (::gethostname(name, sizeof name - 1) != 0)
        return {};
    return QString::fromLocal8Bit(name);
}

QString storedOr(const char* key, const QString& fallback)
{
    const Defaults& defaults = Defaults::standard();
    return defaults.hasKey(key) ? defaults.stringForKey(key) : fallback;
}

QString orDefault(const QString& value, const char* fallback)
{
    return value.isEmpty() ? QString::fromLatin1(fallback) : value;
}

}  // namespace

FreeDBWrapper& FreeDBWrapper::getSharedObject()
{
    // Ends with the application, before the threads it may have started are gone.
    static FreeDBWrapper* shared = [] {
        auto* wrapper = new FreeDBWrapper(QCoreApplication::instance());
        wrapper->awakeFromNibble();
        return wrapper;
    }();
    return *shared;
}

QVariantMap FreeDBWrapper::defaultServer()
{
    return {
        {"host", "gnudb.gnudb.org"}, {"port", "80"}, {"cgi", "/~cddb/cddb.cgi"}, {"location", "Default FreeDB Host"}};
}

QString FreeDBWrapper::escapedString(const QString& text)
{
    QString escaped = text;
    for (QChar c : {'&', '<', '>', '"', '\'', '/'})
        escaped.replace(c, ':');
    return escaped;
}

QString FreeDBWrapper::requestURL(Request kind, const QVariantMap& server, const QString& argument,
                                  const QString& userName, const QString& hostName)
{
    const QString host = server.value("host").toString();
    const QString port = server.value("port").toString();
    const QString cgi = server.value("cgi").toString();
    const QString client = QStringLiteral("velmora");
    const QString version = QStringLiteral("1");
    switch (kind) {
    case Query:
        return QStringLiteral("http://%1:%2%3?cmd=cddb+query+%4&hello=%5+%6+%7+%8&proto=6")
            .arg(host, port, cgi, argument, userName, hostName, client, version);
    case Read:
        return QStringLiteral("http://%1:%2%3?cmd=cddb+read+%4&hello=%5+%6+%7+%8&proto=6")
            .arg(host, port, cgi, argument, userName, hostName, client, version);
    case ServerList:
        // Only this request puts a "/" between port and path when the path lacks one.
        return QString(cgi.startsWith('/') ? QStringLiteral("http://%1:%2%3?cmd=sites&hello=%4+%5+%6+%7&proto=6")
                                           : QStringLiteral("http://%1:%2/%3?cmd=sites&hello=%4+%5+%6+%7&proto=6"))
            .arg(host, port, cgi, userName, hostName, client, version);
    case None:
        break;
    }
    return {};
}

bool FreeDBWrapper::isDisabled()
{
    return Defaults::standard().integerForKey(PrefKeys::DisableFreeDB) != 0;
}

FreeDBWrapper::FreeDBWrapper(QObject* parent) : QObject(parent)
{
}

FreeDBWrapper::FreeDBWrapper(const QString& cdPath, FreeDBReplyTarget* owner, Options options, QObject* parent)
    : QObject(parent), cdPath_(cdPath), owner_(owner), options_(std::move(options))
{
    awakeFromNibble();
}

FreeDBWrapper::~FreeDBWrapper()
{
    NotificationCenter::defaultCenter().removeObserver(this);
    // The transfer hands its answer to this object: it must have ended first.
    if (transfer_) {
        transfer_->cancel();
        transfer_->wait();
    }
}

void FreeDBWrapper::awakeFromNibble()
{
    NotificationCenter& center = NotificationCenter::defaultCenter();
    center.removeObserver(this);
    center.addObserver(this, VLFreeDBDiscIDNotification,
                       [this](const Notification& note) { getFreeDBInfo(note.object.toString()); });
    center.addObserver(this, VLUnmountNotification, [this](const Notification&) { vlUnmountNotification(); });
    center.addObserver(this, VLNeedCDInfoNotification, [this](const Notification&) { needCDInfo(); });

    hostName_ = orDefault(storedOr(PrefKeys::HostName, machineName()), "host");
    userName_ = orDefault(storedOr(PrefKeys::UserName, loginName()), "user");
    defaultHostName_ = storedOr(PrefKeys::DefaultHostName, defaultServer().value("host").toString());
    if (options_.server) {
        serverList_ = {*options_.server};
        server_ = *options_.server;
        return;
    }
    serverList_ = Defaults::standard().arrayForKey(PrefKeys::FreeDBServerList);
    server_ = getSelectedHost(defaultHostName_);
    if (serverList_.isEmpty())
        getFreeDBServerList();
}

bool FreeDBWrapper::getFreeDBInfo(const QString& query)
{
    if (isDisabled())
        return false;
    return getFreeDBQuery(query);
}

bool FreeDBWrapper::getFreeDBQuery(const QString& query)
{
    if (cdPath_.isEmpty()) {
        Desktop::beep();
        return false;
    }
    return send(Query, query);
}

bool FreeDBWrapper::getFreeDBRead(const QString& genreAndDiscid)
{
    return send(Read, genreAndDiscid);
}

bool FreeDBWrapper::getFreeDBServerList()
{
    return send(ServerList, {});
}

bool FreeDBWrapper::send(Request kind, const QString& argument)
{
    if (transfer_) {
        Desktop::beep();
        return false;
    }
    const QString address = requestURL(kind, server_, argument, escapedString(userName_), escapedString(hostName_));
    const QUrl url(address);
    // A request that cannot even be addressed goes nowhere and says nothing.
    if (!url.isValid() || url.host().isEmpty())
        return false;
    static const char* const titles[] = {"Fetching the FreeDB server list from %1", "Looking up the disc at %1",
                                         "Reading the disc's titles from %1"};
    kind_ = kind;
    const quint64 serial = ++serial_;
    const int timeoutMs = options_.timeoutMs;
    transfer_ = Job::create(QString::fromLatin1(titles[kind]).arg(url.host()),
                            [this, url, serial, timeoutMs](Job& job) { return transfer(job, url, serial, timeoutMs); });
    transfer_->start();
    return true;
}

// On the job's own thread: one GET with its own network access and event loop.
JobResult FreeDBWrapper::transfer(Job& job, const QUrl& url, quint64 serial, int timeoutMs)
{
    QNetworkAccessManager network;
    QNetworkRequest request(url);
    request.setTransferTimeout(timeoutMs);
    request.setHeader(QNetworkRequest::UserAgentHeader, QStringLiteral("velmora/1"));
    std::unique_ptr<QNetworkReply> reply(network.get(request));
    QByteArray data;
    bool tooLarge = false;
    QEventLoop loop;
    QObject::connect(reply.get(), &QNetworkReply::readyRead, &loop, [&] {
        data += reply->readAll();
        if (data.size() > kMaxAnswerBytes) {
            tooLarge = true;
            reply->abort();
        }
        job.setProgress(-1, QStringLiteral("Received %1 bytes").arg(data.size()));
    });
    QObject::connect(reply.get(), &QNetworkReply::finished, &loop, &QEventLoop::quit);
    {
        const Job::CancelHook hook =
            job.onCancel([&loop] { QMetaObject::invokeMethod(&loop, &QEventLoop::quit, Qt::QueuedConnection); });
        if (!reply->isFinished())
            loop.exec();
    }
    if (job.isCancelled()) {
        reply->abort();
        return JobResult::cancelled();
    }
    if (!tooLarge && reply->isOpen())
        data += reply->readAll();

    QString failure;
    const int httpStatus = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (tooLarge) {
        failure = QStringLiteral("The answer is larger than %1 MB.").arg(kMaxAnswerBytes >> 20);
    } else if (reply->error() == QNetworkReply::OperationCanceledError) {
        // Nothing but the transfer timeout aborts a request still running.
        failure = QStringLiteral("The request timed out.");
    } else if (httpStatus >= 400) {
        failure = QStringLiteral("The server answered %1 %2.")
                      .arg(httpStatus)
                      .arg(reply->attribute(QNetworkRequest::HttpReasonPhraseAttribute).toString());
    } else if (reply->error() == QNetworkReply::RemoteHostClosedError) {
        failure = QStringLiteral("The server closed the connection before the whole answer came.");
    } else if (reply->error() != QNetworkReply::NoError) {
        failure = reply->errorString();
    }
    QMetaObject::invokeMethod(
        this, [this, serial, data, failure, url] { transferEnded(serial, data, failure, url.toString()); },
        Qt::QueuedConnection);
    return failure.isEmpty() ? JobResult::succeeded() : JobResult::failed(failure);
}

void FreeDBWrapper::transferEnded(quint64 serial, const QByteArray& data, const QString& failure, const QString& url)
{
    if (!transfer_ || serial != serial_)
        return;
    transfer_.reset();
    if (failure.isEmpty()) {
        connectionDidFinishLoading(data);
    } else {
        kind_ = None;
        statusField_ = QStringLiteral("Failed! %1 %2").arg(failure, url);
        emit changed();
    }
    emit requestEnded();
}

void FreeDBWrapper::connectionDidFinishLoading(const QByteArray& data)
{
    statusField_ = QStringLiteral("OK!  Received %1 bytes of data").arg(data.size());
    const Request kind = kind_;
    kind_ = None;
    emit changed();
    if (isDisabled() || data.isEmpty() || kind == None)
        return;
    const QStringList lines = FreeDBAnswers::lines(FreeDBAnswers::decode(data));
    const QString status = FreeDBAnswers::statusCode(lines);
    switch (kind) {
    case ServerList:
        if (status == QLatin1String("210"))
            rebuildServerList(FreeDBAnswers::serverList(lines));
        break;
    case Query:
        if (status == QLatin1String("200"))
            exactMatch(lines);
        else if (status == QLatin1String("210") || status == QLatin1String("211"))
            inexactMatch(lines);
        break;
    case Read:
        readFreeDBAlbum(lines);
        break;
    case None:
        break;
    }
}

void FreeDBWrapper::exactMatch(const QStringList& lines)
{
    const FreeDBAnswers::Matches matches = FreeDBAnswers::exactMatches(lines, cdPath_);
    albums_ = matches.albums;
    albumMenu_.clear();
    for (const QVariant& album : albums_)
        albumMenu_ << album.toMap().value("title").toString();
    albumMenuEnabled_ = false;
    artistField_.clear();
    albumField_.clear();
    emit changed();
    if (!albums_.isEmpty())
        answer(VLHaveAlbumsInfoNotification, albums_);
    if (!matches.readArgument.isEmpty())
        getFreeDBRead(matches.readArgument);
}

void FreeDBWrapper::inexactMatch(const QStringList& lines)
{
    const FreeDBAnswers::Matches matches = FreeDBAnswers::inexactMatches(lines, cdPath_);
    albums_ = matches.albums;
    albumMenu_.clear();
    for (const QVariant& album : albums_)
        albumMenu_ << album.toMap().value("title").toString();
    albumMenuEnabled_ = albums_.size() > 1;
    emit changed();
    answer(VLHaveAlbumsInfoNotification, albums_);
    if (!matches.readArgument.isEmpty())
        getFreeDBRead(matches.readArgument);
}

void FreeDBWrapper::readFreeDBAlbum(const QStringList& lines)
{
    cdInfo_ = FreeDBAnswers::cdInfo(lines, cdPath_);
    answer(VLHaveCDInfoNotification, cdInfo_);
}

void FreeDBWrapper::rebuildServerList(const QVariantList& servers)
{
    if (servers.isEmpty())
        return;
    serverList_ = servers;
    Defaults::standard().setObject(PrefKeys::FreeDBServerList, serverList_);
    Defaults::standard().synchronize();
    server_ = getSelectedHost(defaultHostName_);
    emit serverListChanged();
    emit changed();
}

void FreeDBWrapper::answer(const char* name, const QVariant& object)
{
    if (owner_)
        owner_->reply(QString::fromLatin1(name), object);
    else
        NotificationCenter::defaultCenter().post(QString::fromLatin1(name), object);
}

void FreeDBWrapper::needCDInfo()
{
    if (!albums_.isEmpty())
        answer(VLHaveReqestedAlbumsInfoNotification, albums_);
    if (!cdInfo_.isEmpty())
        answer(VLHaveReqestedCDInfoNotification, cdInfo_);
}

void FreeDBWrapper::vlUnmountNotification()
{
    albumMenu_.clear();
    albumMenuEnabled_ = false;
    artistField_.clear();
    albumField_.clear();
    albums_.clear();
    emit changed();
}

void FreeDBWrapper::selectAlbum(int index)
{
    if (index < 0 || index >= albums_.size())
        return;
    const QVariantMap album = albums_.at(index).toMap();
    const QStringList parts = FreeDBAnswers::artistAndAlbum(album.value("title").toString().trimmed());
    artistField_ = parts[0];
    albumField_ = parts[1];
    emit changed();
    getFreeDBRead(album.value("genre").toString() + '+' + album.value("discid").toString());
}

void FreeDBWrapper::refreshHostList()
{
    getFreeDBServerList();
}

QVariantList FreeDBWrapper::serverTable() const
{
    return serverList_.isEmpty() ? QVariantList{server_} : serverList_;
}

void FreeDBWrapper::makeDefaultHost(int row)
{
    const QVariantList rows = serverTable();
    if (row < 0 || row >= rows.size())
        return;
    server_ = rows.at(row).toMap();
    defaultHostName_ = server_.value("host").toString();
    Defaults::standard().setObject(PrefKeys::DefaultHostName, defaultHostName_);
    Defaults::standard().synchronize();
    emit changed();
}

QVariantMap FreeDBWrapper::getSelectedHost(const QString& host) const
{
    for (const QVariant& server : serverList_) {
        if (server.toMap().value("host").toString() == host)
            return server.toMap();
    }
    return defaultServer();
}

void FreeDBWrapper::disable(bool off)
{
    Defaults::standard().setInteger(PrefKeys::DisableFreeDB, off ? 1 : 0);
    Defaults::standard().synchronize();
    emit changed();
}

void FreeDBWrapper::setUserName(const QString& name)
{
    Defaults::standard().setObject(PrefKeys::UserName, name);
    Defaults::standard().synchronize();
    userName_ = orDefault(name, "user");
    emit changed();
}

void FreeDBWrapper::setHostName(const QString& name)
{
    Defaults::standard().setObject(PrefKeys::HostName, name);
    Defaults::standard().synchronize();
    hostName_ = orDefault(name, "host");
    emit changed();
}
