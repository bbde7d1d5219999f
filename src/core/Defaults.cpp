#include "core/Defaults.h"

#include "core/Job.h"
#include "core/PropertyList.h"
#include "platform/AppPaths.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstdio>
#include <cstring>

Defaults& Defaults::standard()
{
    static Defaults defaults;
    return defaults;
}

void Defaults::loadLocked() const
{
    if (loaded_)
        return;
    loaded_ = true;
    values_.clear();
    const QString path = AppPaths::defaultsFile();
    if (!QFileInfo::exists(path))
        return;
    QString error;
    const auto root = PropertyList::read(path, &error);
    if (root && root->typeId() == QMetaType::QVariantMap) {
        values_ = root->toMap();
        return;
    }
    if (root)
        error = QStringLiteral("the top level is not a dictionary");
    // Keep the unreadable file for the user and start from the defaults. One
    // rename, so the settings file is either still there or set aside.
    const QString broken = path + ".broken";
    if (std::rename(QFile::encodeName(path).constData(), QFile::encodeName(broken).constData()) != 0) {
        std::fprintf(
            stderr, "Velmora: the settings file %s could not be read (%s) nor set aside (%s); the defaults are used.\n",
            qPrintable(path), qPrintable(error), std::strerror(errno));
        return;
    }
    std::fprintf(stderr, "Velmora: the settings file %s could not be read (%s); it was set aside as %s and the defaults are used.\n",
                 qPrintable(path), qPrintable(error), qPrintable(broken));
}

bool Defaults::hasKey(const QString& key) const
{
    std::lock_guard lock(mutex_);
    loadLocked();
    return values_.contains(key);
}

QVariant Defaults::objectForKey(const QString& key) const
{
    std::lock_guard lock(mutex_);
    loadLocked();
    return values_.value(key);
}

qint64 Defaults::integerForKey(const QString& key) const
{
    const QVariant value = objectForKey(key);
    bool ok = false;
    const qint64 number = value.toLongLong(&ok);
    if (ok)
        return number;
    // A text holding a number reads as that number, as a combo box's text does.
    return value.typeId() == QMetaType::QString ? value.toString().trimmed().toLongLong() : 0;
}

QString Defaults::stringForKey(const QString& key) const
{
    const QVariant value = objectForKey(key);
    return value.typeId() == QMetaType::QString ? value.toString() : QString();
}

QVariantList Defaults::arrayForKey(const QString& key) const
{
    const QVariant value = objectForKey(key);
    const bool isArray = value.typeId() == QMetaType::QVariantList || value.typeId() == QMetaType::QStringList;
    return isArray ? value.toList() : QVariantList();
}

QVariantMap Defaults::dictionaryForKey(const QString& key) const
{
    const QVariant value = objectForKey(key);
    return value.typeId() == QMetaType::QVariantMap ? value.toMap() : QVariantMap();
}

void Defaults::setObject(const QString& key, const QVariant& value)
{
    std::lock_guard lock(mutex_);
    loadLocked();
    values_.insert(key, value);
}

void Defaults::setInteger(const QString& key, qint64 value)
{
    setObject(key, QVariant(value));
}

void Defaults::removeObject(const QString& key)
{
    std::lock_guard lock(mutex_);
    loadLocked();
    values_.remove(key);
}

bool Defaults::synchronize()
{
    QString error;
    {
        std::lock_guard lock(mutex_);
        loadLocked();
        const QString path = AppPaths::defaultsFile();
        QDir().mkpath(QFileInfo(path).path());
        if (PropertyList::write(path, values_, &error))
            return true;
    }
    std::fprintf(stderr, "Velmora: the settings could not be saved: %s\n", qPrintable(error));
    // Listed as a failed job, so the window shows why until the user dismisses
    // it; once while the same failure waits there.
    const QString title = QStringLiteral("Saving the settings");
    for (const auto& job : JobList::shared().jobs()) {
        if (job->state() == Job::State::Finished && job->title() == title && job->result().error == error)
            return false;
    }
    Job::create(title, [error](Job&) { return JobResult::failed(error); })->run();
    return false;
}

void Defaults::reload()
{
    std::lock_guard lock(mutex_);
    loaded_ = false;
    loadLocked();
}
