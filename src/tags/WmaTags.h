#pragma once
#include <QString>
#include <QVariantMap>

#include <optional>

// The track record of a WMA (ASF) file. May throw on a malformed attribute;
// the tag dispatcher catches it and falls back to the file name.
std::optional<QVariantMap> getWMAComments(const QString& path);
