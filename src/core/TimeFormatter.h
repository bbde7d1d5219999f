#pragma once
#include <QObject>
#include <QPointer>
#include <QString>
#include <QVariant>

// Hours-minutes-seconds for the time fields: formats seconds as "HH:MM:SS" and
// reads "S", "M:S" or "H:M:S" back, refusing times above a limit (100 hours,
// or the maximum of an attached slider).
class TimeFormatter {
public:
    static constexpr int kDefaultLimit = 360000;

    // "%02d:%02d:%02d"; null for anything that is not a number.
    QString stringForObjectValue(const QVariant& value) const;
    // Parses a text; false with *errorDescription set when it is above the limit.
    bool getObjectValue(QVariant* value, const QString& text, QString* errorDescription) const;
    // Any object with a "maximum" property (a QSlider); null detaches it.
    void setSlider(QObject* slider);

    int limit() const;
    static QString format(int seconds);

private:
    QPointer<QObject> slider_;
};
