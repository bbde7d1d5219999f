#pragma once
#include <QString>
#include <QVariantList>
#include <QVariantMap>

#include <optional>

struct Notification;

// One disc of the audio-CD watcher as a music source: the track files of its
// folder, with the first CD info that arrives laid over them.
class audiocd_wrapper {
public:
    // description: a disc description of the watcher. When it holds a "genre",
    // its FreeDB client is asked to read "genre+discid".
    explicit audiocd_wrapper(const QVariantMap& description);
    ~audiocd_wrapper();
    audiocd_wrapper(const audiocd_wrapper&) = delete;
    audiocd_wrapper& operator=(const audiocd_wrapper&) = delete;

    // Lists the files under folder in track order, leaving out names beginning with ".".
    void getTracksFromPath(const QString& folder);
    int count() const { return int(tracks_.size()); }
    // {"path", "title", "genre", "year"} from the folder, or the track info of
    // the CD info with the path of the file at the same place.
    QVariantMap track(int index) const;
    bool hasCDInfo() const { return merged_.has_value(); }

private:
    void vlHaveCDInfoNotification(const Notification& note);

    QVariantList tracks_;
    std::optional<QVariantList> merged_;
};
