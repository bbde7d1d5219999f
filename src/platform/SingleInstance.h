#pragma once
#include <QObject>
#include <QStringList>

class QLocalServer;

// One Velmora per user: the first instance listens on a local socket; a later
// one hands its file arguments over to it and ends.
class SingleInstance : public QObject {
    Q_OBJECT
public:
    explicit SingleInstance(const QString& name, QObject* parent = nullptr);
    ~SingleInstance() override;

    // Sends the files to a running instance; true if one took them.
    bool sendToRunningInstance(const QStringList& files, int timeoutMs = 2000);
    // Starts listening; false if the name cannot be taken.
    bool listen();

    static QString defaultName();

signals:
    void filesReceived(const QStringList& files);

private:
    QString name_;
    QLocalServer* server_ = nullptr;
};
