#include "core/NotificationCenter.h"

#include <algorithm>

NotificationCenter& NotificationCenter::defaultCenter()
{
    static NotificationCenter center;
    return center;
}

void NotificationCenter::addObserver(const void* owner, const QString& name, Handler handler)
{
    auto registration = std::make_shared<Registration>(Registration{owner, name, std::move(handler)});
    std::lock_guard lock(mutex_);
    registrations_.push_back(std::move(registration));
}

void NotificationCenter::removeObserver(const void* owner)
{
    std::lock_guard lock(mutex_);
    std::erase_if(registrations_, [owner](const auto& r) {
        if (r->owner != owner)
            return false;
        r->removed = true;
        return true;
    });
}

void NotificationCenter::removeObserver(const void* owner, const QString& name)
{
    std::lock_guard lock(mutex_);
    std::erase_if(registrations_, [&](const auto& r) {
        if (r->owner != owner || r->name != name)
            return false;
        r->removed = true;
        return true;
    });
}

void NotificationCenter::post(const QString& name, const QVariant& object)
{
    // Deliver to a snapshot so that callbacks may change the registrations;
    // one removed meanwhile is skipped.
    std::vector<std::shared_ptr<Registration>> targets;
    {
        std::lock_guard lock(mutex_);
        for (const auto& r : registrations_)
            if (r->name == name)
                targets.push_back(r);
    }
    const Notification notification{name, object};
    for (const auto& r : targets) {
        {
            std::lock_guard lock(mutex_);
            if (r->removed)
                continue;
        }
        r->handler(notification);
    }
}

int NotificationCenter::observerCount(const QString& name) const
{
    std::lock_guard lock(mutex_);
    return int(std::count_if(registrations_.begin(), registrations_.end(),
                             [&](const auto& r) { return r->name == name; }));
}
