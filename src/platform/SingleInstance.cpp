#include "platform/SingleInstance.h"

#include <QDataStream>
#include <QLocalServer>
#include <QLocalSocket>

#include <unistd.h>

SingleInstance::SingleInstance(const QString& name, QObject* parent) : QObject(parent), name_(name) {}

SingleInstance::~SingleInstance() = default;

QString SingleInstance::defaultName()
{
    return QStringLiteral("velmora-%1").arg(getuid());
}

bool SingleInstance::sendToRunningInstance(const QStringList& files, int timeoutMs)
{
    QLocalSocket socket;
    socket.connectToServer(name_);
    if (!socket.waitForConnected(timeoutMs))
        return false;
    QByteArray message;
    QDataStream out(&message, QIODevice::WriteOnly);
    out << files;
    socket.write(message);
    if (!socket.waitForBytesWritten(timeoutMs))
        return false;
    socket.disconnectFromServer();
    return true;
}

bool SingleInstance::listen()
{
    server_ = new QLocalServer(this);
    server_->setSocketOptions(QLocalServer::UserAccessOption);
    if (!server_->listen(name_)) {
        // A socket left behind by an instance that crashed: nobody answered it.
        QLocalServer::removeServer(name_);
        if (!server_->listen(name_))
            return false;
    }
    connect(server_, &QLocalServer::newConnection, this, [this] {
        while (QLocalSocket* socket = server_->nextPendingConnection()) {
            connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
            connect(socket, &QLocalSocket::readChannelFinished, this, [this, socket] {
                QDataStream in(socket->readAll());
                QStringList files;
                in >> files;
                if (in.status() == QDataStream::Ok && !files.isEmpty())
                    emit filesReceived(files);
            });
        }
    });
    return true;
}
