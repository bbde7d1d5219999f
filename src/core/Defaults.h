#pragma once
#include <QString>
#include <QVariant>

#include <mutex>

// The user's defaults database: one property-list file (AppPaths::defaultsFile())
// read on first use and written atomically by synchronize(). Thread-safe.
class Defaults {
public:
    static Defaults& standard();

    bool hasKey(const QString& key) const;
    QVariant objectForKey(const QString& key) const;
    qint64 integerForKey(const QString& key) const;        // absent or not a number: 0
    QString stringForKey(const QString& key) const;        // absent or not a string: null
    QVariantList arrayForKey(const QString& key) const;    // absent or not an array: empty
    QVariantMap dictionaryForKey(const QString& key) const;

    void setObject(const QString& key, const QVariant& value);
    void setInteger(const QString& key, qint64 value);
    void removeObject(const QString& key);

    // Writes every value to the file; false (with a message on stderr) when it cannot.
    bool synchronize();
    // Forgets the values in memory and reads the file again.
    void reload();

private:
    Defaults() = default;
    void loadLocked() const;

    mutable std::mutex mutex_;
    mutable bool loaded_ = false;
    mutable QVariantMap values_;
};
