#pragma once
#include <QDBusAbstractAdaptor>
#include <QDBusConnection>
#include <QDBusObjectPath>
#include <QFuture>
#include <QObject>
#include <QStringList>
#include <QVariantMap>

class PlaySourcesWrapper;

// The Play tab on the desktop's session bus as an MPRIS2 media player
// (org.mpris.MediaPlayer2.velmora at /org/mpris/MediaPlayer2), so that media
// keys and the desktop's "now playing" show and control it. Properties that
// change are announced with org.freedesktop.DBus.Properties.PropertiesChanged.
class MprisService : public QObject {
    Q_OBJECT
public:
    static constexpr const char* kObjectPath = "/org/mpris/MediaPlayer2";
    static constexpr const char* kServiceName = "org.mpris.MediaPlayer2.velmora";

    explicit MprisService(PlaySourcesWrapper& play, QObject* parent = nullptr);
    ~MprisService() override;

    // Claims the name on bus (a per-process name when another Velmora has it);
    // false when the bus cannot be reached.
    bool registerOn(QDBusConnection bus);
    QString serviceName() const { return serviceName_; }

    PlaySourcesWrapper& play() { return play_; }
    QString playbackStatus() const;
    QVariantMap metadata() const { return metadata_; }
    qlonglong positionMicroseconds() const;
    QString trackId() const;

signals:
    void seeked(qlonglong position);

private:
    void updateMetadata();
    void announce(const QString& interface, const QVariantMap& changed);

    PlaySourcesWrapper& play_;
    QDBusConnection bus_;
    QString serviceName_;
    QVariantMap metadata_;
    QString lastStatus_;
    quint64 track_ = 0;
    QList<QFuture<void>> artwork_;
};

// org.mpris.MediaPlayer2
class MprisRootAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.mpris.MediaPlayer2")
    Q_PROPERTY(bool CanQuit READ falseValue)
    Q_PROPERTY(bool CanRaise READ falseValue)
    Q_PROPERTY(bool HasTrackList READ falseValue)
    Q_PROPERTY(QString Identity READ identity)
    Q_PROPERTY(QString DesktopEntry READ desktopEntry)
    Q_PROPERTY(QStringList SupportedUriSchemes READ supportedUriSchemes)
    Q_PROPERTY(QStringList SupportedMimeTypes READ supportedMimeTypes)
public:
    explicit MprisRootAdaptor(MprisService* service);
    bool falseValue() const { return false; }
    QString identity() const { return QStringLiteral("Velmora"); }
    QString desktopEntry() const { return QStringLiteral("com.dorvane.velmora"); }
    QStringList supportedUriSchemes() const { return {QStringLiteral("file")}; }
    QStringList supportedMimeTypes() const;

public slots:
    void Raise() {}
    void Quit() {}
};

// org.mpris.MediaPlayer2.Player
class MprisPlayerAdaptor : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.mpris.MediaPlayer2.Player")
    Q_PROPERTY(QString PlaybackStatus READ playbackStatus)
    Q_PROPERTY(double Rate READ rate WRITE setRate)
    Q_PROPERTY(double MinimumRate READ rate)
    Q_PROPERTY(double MaximumRate READ rate)
    Q_PROPERTY(QVariantMap Metadata READ metadata)
    Q_PROPERTY(double Volume READ volume WRITE setVolume)
    Q_PROPERTY(qlonglong Position READ position)
    Q_PROPERTY(bool CanGoNext READ canPlay)
    Q_PROPERTY(bool CanGoPrevious READ falseValue)
    Q_PROPERTY(bool CanPlay READ canPlay)
    Q_PROPERTY(bool CanPause READ trueValue)
    Q_PROPERTY(bool CanSeek READ trueValue)
    Q_PROPERTY(bool CanControl READ trueValue)
public:
    explicit MprisPlayerAdaptor(MprisService* service);
    QString playbackStatus() const { return service_->playbackStatus(); }
    double rate() const { return 1.0; }
    void setRate(double) {}
    QVariantMap metadata() const { return service_->metadata(); }
    double volume() const;
    void setVolume(double volume);
    qlonglong position() const { return service_->positionMicroseconds(); }
    bool canPlay() const;
    bool trueValue() const { return true; }
    bool falseValue() const { return false; }

public slots:
    void Next();
    void Previous() {}
    void Pause();
    void PlayPause();
    void Stop();
    void Play();
    void Seek(qlonglong offset);
    void SetPosition(const QDBusObjectPath& trackId, qlonglong position);
    void OpenUri(const QString& uri);

signals:
    void Seeked(qlonglong Position);

private:
    void seekTo(qlonglong microseconds);
    MprisService* service_;
};
