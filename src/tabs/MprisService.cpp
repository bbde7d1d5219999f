#include "tabs/MprisService.h"

#include "core/NotificationCenter.h"
#include "core/Notifications.h"
#include "core/StringUtils.h"
#include "platform/AppPaths.h"
#include "platform/SafeFile.h"
#include "player/MqpWrapper.h"
#include "tabs/PlaySourcesWrapper.h"
#include "tags/TagFacade.h"

#include <QBuffer>
#include <QCryptographicHash>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QFileInfo>
#include <QImage>
#include <QUrl>
#include <QtConcurrent>

#include <unistd.h>

namespace {

constexpr qlonglong kMicroseconds = 1000000;
const QString kPlayerInterface = QStringLiteral("org.mpris.MediaPlayer2.Player");

// The first embedded picture of a song as a PNG in the artwork cache; "" when it has none.
QString artworkFile(const QString& song)
{
    const QVariantList pictures = getAlbumArt(song);
    const QImage image = pictures.isEmpty() ? QImage() : pictures.first().toMap().value("Image").value<QImage>();
    if (image.isNull())
        return {};
    const QString folder = AppPaths::artworkCacheDir();
    createDirectoriesAtPath(folder);
    const QByteArray key = QCryptographicHash::hash(song.toUtf8(), QCryptographicHash::Sha1).toHex();
    const QString file = folder + QStringLiteral("/playing-%1.png").arg(QString::fromLatin1(key));
    QByteArray png;
    QBuffer buffer(&png);
    buffer.open(QIODevice::WriteOnly);
    if (!image.save(&buffer, "PNG") || !SafeFile::writeFile(file, png))
        return {};
    return file;
}

}  // namespace

MprisService::MprisService(PlaySourcesWrapper& play, QObject* parent)
    : QObject(parent), play_(play), bus_(QStringLiteral("unconnected"))
{
    new MprisRootAdaptor(this);
    auto* player = new MprisPlayerAdaptor(this);
    connect(this, &MprisService::seeked, player, &MprisPlayerAdaptor::Seeked);
    connect(&play_, &PlaySourcesWrapper::nowPlaying, this, &MprisService::updateMetadata);
    connect(&play_, &PlaySourcesWrapper::stateChanged, this, [this] {
        const QString status = playbackStatus();
        if (status == lastStatus_)
            return;
        lastStatus_ = status;
        if (status == QLatin1String("Stopped"))
            updateMetadata();
        announce(kPlayerInterface, {{"PlaybackStatus", status}});
    });
    connect(&play_, &PlaySourcesWrapper::volumeChanged, this, [this](int volume) {
        announce(kPlayerInterface, {{"Volume", volume / 100.0}});
    });
    lastStatus_ = playbackStatus();
}

MprisService::~MprisService()
{
    for (QFuture<void>& pending : artwork_)
        pending.waitForFinished();
    if (bus_.isConnected()) {
        bus_.unregisterObject(QString::fromLatin1(kObjectPath));
        bus_.unregisterService(serviceName_);
    }
}

bool MprisService::registerOn(QDBusConnection bus)
{
    if (!bus.isConnected())
        return false;
    if (!bus.registerObject(QString::fromLatin1(kObjectPath), this, QDBusConnection::ExportAdaptors))
        return false;
    // A second Velmora (or the command line) takes a name of its own.
    serviceName_ = QString::fromLatin1(kServiceName);
    if (!bus.registerService(serviceName_)) {
        serviceName_ += QStringLiteral(".instance%1").arg(getpid());
        if (!bus.registerService(serviceName_)) {
            bus.unregisterObject(QString::fromLatin1(kObjectPath));
            return false;
        }
    }
    bus_ = bus;
    return true;
}

QString MprisService::playbackStatus() const
{
    switch (play_.state()) {
    case PlaySourcesWrapper::State::Playing:
    case PlaySourcesWrapper::State::Reading:
        return QStringLiteral("Playing");
    case PlaySourcesWrapper::State::Paused:
        return QStringLiteral("Paused");
    case PlaySourcesWrapper::State::Stopped:
        break;
    }
    return QStringLiteral("Stopped");
}

qlonglong MprisService::positionMicroseconds() const
{
    return qlonglong(play_.position()) * kMicroseconds;
}

QString MprisService::trackId() const
{
    return QStringLiteral("/org/velmora/track/%1").arg(track_);
}

void MprisService::updateMetadata()
{
    const QString path = play_.playingPath();
    metadata_.clear();
    if (!path.isEmpty()) {
        ++track_;
        const QVariantMap record = play_.playingRecord();
        const QString title = record.value("title").toString();
        metadata_.insert("mpris:trackid", QVariant::fromValue(QDBusObjectPath(trackId())));
        metadata_.insert("xesam:title", title.isEmpty() ? QFileInfo(path).completeBaseName() : title);
        if (!record.value("artist").toString().isEmpty())
            metadata_.insert("xesam:artist", QStringList{record.value("artist").toString()});
        if (!record.value("album").toString().isEmpty())
            metadata_.insert("xesam:album", record.value("album").toString());
        qlonglong seconds = record.value("duration").toLongLong();
        if (seconds <= 0 && play_.player())
            seconds = play_.player()->length();
        if (seconds > 0)
            metadata_.insert("mpris:length", seconds * kMicroseconds);
        metadata_.insert("xesam:url", QUrl::fromLocalFile(path).toString());
        // The picture is written off the main thread and announced when ready.
        artwork_.removeIf([](const QFuture<void>& done) { return done.isFinished(); });
        artwork_ << QtConcurrent::run([this, path, track = track_] {
            const QString file = artworkFile(path);
            if (file.isEmpty())
                return;
            QMetaObject::invokeMethod(
                this,
                [this, file, track] {
                    if (track != track_ || metadata_.isEmpty())
                        return;
                    metadata_.insert("mpris:artUrl", QUrl::fromLocalFile(file).toString());
                    announce(kPlayerInterface, {{"Metadata", metadata_}});
                },
                Qt::QueuedConnection);
        });
    }
    announce(kPlayerInterface, {{"Metadata", metadata_}});
}

void MprisService::announce(const QString& interface, const QVariantMap& changed)
{
    if (!bus_.isConnected())
        return;
    QDBusMessage signal =
        QDBusMessage::createSignal(QString::fromLatin1(kObjectPath), QStringLiteral("org.freedesktop.DBus.Properties"),
                                   QStringLiteral("PropertiesChanged"));
    signal << interface << changed << QStringList();
    bus_.send(signal);
}

// ---------------------------------------------------------------- adaptors

MprisRootAdaptor::MprisRootAdaptor(MprisService* service) : QDBusAbstractAdaptor(service)
{
}

QStringList MprisRootAdaptor::supportedMimeTypes() const
{
    return {QStringLiteral("audio/mpeg"),   QStringLiteral("audio/ogg"),      QStringLiteral("audio/x-vorbis+ogg"),
            QStringLiteral("audio/mp4"),    QStringLiteral("audio/aac"),      QStringLiteral("audio/x-wav"),
            QStringLiteral("audio/x-aiff"), QStringLiteral("audio/x-ms-wma"), QStringLiteral("audio/flac")};
}

MprisPlayerAdaptor::MprisPlayerAdaptor(MprisService* service) : QDBusAbstractAdaptor(service), service_(service)
{
}

double MprisPlayerAdaptor::volume() const
{
    return service_->play().volume() / 100.0;
}

void MprisPlayerAdaptor::setVolume(double volume)
{
    service_->play().setVolume(int(std::lround(std::clamp(volume, 0.0, 1.0) * 100)));
}

bool MprisPlayerAdaptor::canPlay() const
{
    return !service_->play().songs().isEmpty();
}

void MprisPlayerAdaptor::Next()
{
    service_->play().nextSong();
}

void MprisPlayerAdaptor::Pause()
{
    if (service_->play().state() == PlaySourcesWrapper::State::Playing)
        service_->play().pausePlaying();
}

void MprisPlayerAdaptor::PlayPause()
{
    if (service_->play().state() == PlaySourcesWrapper::State::Playing)
        Pause();
    else
        Play();
}

void MprisPlayerAdaptor::Stop()
{
    service_->play().stopPlayingSong();
}

void MprisPlayerAdaptor::Play()
{
    PlaySourcesWrapper& play = service_->play();
    if (play.state() == PlaySourcesWrapper::State::Paused)
        play.resumePlaying();
    else if (play.state() == PlaySourcesWrapper::State::Stopped)
        play.playSelectedSong();
}

void MprisPlayerAdaptor::seekTo(qlonglong microseconds)
{
    PlaySourcesWrapper& play = service_->play();
    const qlonglong length = service_->metadata().value("mpris:length").toLongLong();
    if (length > 0 && microseconds > length) {
        play.nextSong();
        return;
    }
    play.setTimeSeconds(int(std::max<qlonglong>(microseconds, 0) / kMicroseconds));
    emit service_->seeked(service_->positionMicroseconds());
}

void MprisPlayerAdaptor::Seek(qlonglong offset)
{
    if (service_->play().player())
        seekTo(service_->positionMicroseconds() + offset);
}

void MprisPlayerAdaptor::SetPosition(const QDBusObjectPath& trackId, qlonglong position)
{
    const qlonglong length = service_->metadata().value("mpris:length").toLongLong();
    if (trackId.path() == service_->trackId() && position >= 0 && (length <= 0 || position <= length) &&
        service_->play().player())
        seekTo(position);
}

void MprisPlayerAdaptor::OpenUri(const QString& uri)
{
    const QUrl url(uri);
    if (url.isLocalFile())
        NotificationCenter::defaultCenter().post(VLFileOpenNotification,
                                                 QVariantMap{{"filearray", QStringList{url.toLocalFile()}}});
}
