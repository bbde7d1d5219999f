#pragma once
#include <QByteArray>
#include <QString>
#include <QVariant>

#include <optional>

// Property lists (XML or binary) as QVariant trees: dictionaries are QVariantMap,
// arrays QVariantList, strings QString, integers qint64, reals double, booleans
// bool, data QByteArray, dates QDateTime.
namespace PropertyList {

std::optional<QVariant> parse(const QByteArray& bytes, QString* error = nullptr);
std::optional<QVariant> read(const QString& path, QString* error = nullptr);

QByteArray toXml(const QVariant& value);
// Writes an XML property list as a new file beside the target and renames it
// over the target, so a failure leaves the old file as it was (*error says why).
bool write(const QString& path, const QVariant& value, QString* error = nullptr);

} // namespace PropertyList
