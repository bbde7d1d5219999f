#include "core/TimeFormatter.h"

#include "core/StringUtils.h"

#include <QStringList>

QString TimeFormatter::format(int seconds)
{
    return QString::asprintf("%02d:%02d:%02d", seconds / 3600, (seconds / 60) % 60, seconds % 60);
}

QString TimeFormatter::stringForObjectValue(const QVariant& value) const
{
    switch (value.typeId()) {
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
    case QMetaType::Float:
    case QMetaType::Long:
    case QMetaType::Short:
        return format(int(value.toDouble()));
    default:
        return QString();
    }
}

int TimeFormatter::limit() const
{
    if (slider_) {
        const QVariant maximum = slider_->property("maximum");
        if (maximum.isValid())
            return int(maximum.toDouble());
    }
    return kDefaultLimit;
}

bool TimeFormatter::getObjectValue(QVariant* value, const QString& text, QString* errorDescription) const
{
    const QStringList pieces = text.split(QLatin1Char(':'));
    qint64 seconds = 0;
    if (!text.isEmpty()) {
        if (pieces.size() == 1)
            seconds = intValue(pieces.at(0));
        else if (pieces.size() == 2)
            seconds = qint64(intValue(pieces.at(0))) * 60 + intValue(pieces.at(1));
        else
            seconds = qint64(intValue(pieces.at(0))) * 3600 + qint64(intValue(pieces.at(1))) * 60 + intValue(pieces.at(2));
    }
    const int maximum = limit();
    if (seconds > maximum) {
        if (errorDescription)
            *errorDescription = QStringLiteral("Please enter a time that is less than %1").arg(format(maximum));
        return false;
    }
    if (value)
        *value = int(seconds);
    return true;
}

void TimeFormatter::setSlider(QObject* slider)
{
    slider_ = slider;
}
