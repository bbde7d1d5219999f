#pragma once
#include <QString>
#include <QVariant>

#include <functional>
#include <memory>
#include <mutex>
#include <vector>

struct Notification {
    QString name;
    QVariant object;
};

// The process-wide notification bus. Observers register a callback for a name
// under an owner; post() calls them synchronously on the poster's thread, in
// the order they registered. Registration is thread-safe and a callback may
// add or remove observers (itself included) while it is being called.
class NotificationCenter {
public:
    using Handler = std::function<void(const Notification&)>;

    static NotificationCenter& defaultCenter();

    void addObserver(const void* owner, const QString& name, Handler handler);
    // Removes every registration of the owner, or only those for one name.
    void removeObserver(const void* owner);
    void removeObserver(const void* owner, const QString& name);

    void post(const QString& name, const QVariant& object = {});

    int observerCount(const QString& name) const;

private:
    struct Registration {
        const void* owner;
        QString name;
        Handler handler;
        bool removed = false;
    };
    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<Registration>> registrations_;
};
