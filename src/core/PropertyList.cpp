#include "core/PropertyList.h"

#include "platform/SafeFile.h"

#include <QDateTime>
#include <QFile>
#include <QTimeZone>

#include <plist/plist.h>

#include <cstdlib>
#include <memory>

namespace {

// Property-list dates count seconds from 2001-01-01 00:00:00 UTC.
const QDateTime kPlistEpoch(QDate(2001, 1, 1), QTime(0, 0), QTimeZone::utc());

struct PlistDeleter {
    void operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }
};
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

QString takeString(char* text)
{
    QString result = QString::fromUtf8(text ? text : "");
    std::free(text);
    return result;
}

// Nesting deeper than this is refused rather than risking the stack.
constexpr int kMaxDepth = 4096;

std::optional<QVariant> toVariant(plist_t node, int depth)
{
    if (depth > kMaxDepth)
        return std::nullopt;
    switch (plist_get_node_type(node)) {
    case PLIST_DICT: {
        QVariantMap map;
        plist_dict_iter it = nullptr;
        plist_dict_new_iter(node, &it);
        for (;;) {
            char* key = nullptr;
            plist_t value = nullptr;
            plist_dict_next_item(node, it, &key, &value);
            if (!value) {
                std::free(key);
                break;
            }
            auto converted = toVariant(value, depth + 1);
            if (!converted) {
                std::free(key);
                std::free(it);
                return std::nullopt;
            }
            map.insert(takeString(key), *converted);
        }
        std::free(it);
        return QVariant(map);
    }
    case PLIST_ARRAY: {
        QVariantList list;
        const uint32_t size = plist_array_get_size(node);
        list.reserve(int(size));
        for (uint32_t i = 0; i < size; ++i) {
            auto converted = toVariant(plist_array_get_item(node, i), depth + 1);
            if (!converted)
                return std::nullopt;
            list.append(*converted);
        }
        return QVariant(list);
    }
    case PLIST_STRING:
    case PLIST_KEY: {
        char* text = nullptr;
        plist_get_string_val(node, &text);
        return QVariant(takeString(text));
    }
    case PLIST_BOOLEAN: {
        uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return QVariant(value != 0);
    }
    case PLIST_UINT: {
        uint64_t value = 0;
        plist_get_uint_val(node, &value);
        return QVariant(qint64(value));
    }
    case PLIST_REAL: {
        double value = 0;
        plist_get_real_val(node, &value);
        return QVariant(value);
    }
    case PLIST_DATA: {
        char* data = nullptr;
        uint64_t length = 0;
        plist_get_data_val(node, &data, &length);
        QByteArray bytes(data, qsizetype(length));
        std::free(data);
        return QVariant(bytes);
    }
    case PLIST_DATE: {
        int32_t sec = 0, usec = 0;
        plist_get_date_val(node, &sec, &usec);
        return QVariant(kPlistEpoch.addMSecs(qint64(sec) * 1000 + usec / 1000));
    }
    case PLIST_UID: {
        uint64_t value = 0;
        plist_get_uid_val(node, &value);
        return QVariant(qint64(value));
    }
    default:
        return QVariant();
    }
}

plist_t fromVariant(const QVariant& value)
{
    switch (value.typeId()) {
    case QMetaType::QVariantMap: {
        plist_t dict = plist_new_dict();
        const QVariantMap map = value.toMap();
        for (auto it = map.begin(); it != map.end(); ++it)
            plist_dict_set_item(dict, it.key().toUtf8().constData(), fromVariant(it.value()));
        return dict;
    }
    case QMetaType::QVariantHash: {
        plist_t dict = plist_new_dict();
        const QVariantHash hash = value.toHash();
        for (auto it = hash.begin(); it != hash.end(); ++it)
            plist_dict_set_item(dict, it.key().toUtf8().constData(), fromVariant(it.value()));
        return dict;
    }
    case QMetaType::QVariantList:
    case QMetaType::QStringList: {
        plist_t array = plist_new_array();
        for (const QVariant& item : value.toList())
            plist_array_append_item(array, fromVariant(item));
        return array;
    }
    case QMetaType::Bool:
        return plist_new_bool(value.toBool());
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Short:
    case QMetaType::UShort:
        return plist_new_uint(uint64_t(value.toLongLong()));
    case QMetaType::Double:
    case QMetaType::Float:
        return plist_new_real(value.toDouble());
    case QMetaType::QByteArray: {
        const QByteArray bytes = value.toByteArray();
        return plist_new_data(bytes.constData(), uint64_t(bytes.size()));
    }
    case QMetaType::QDateTime: {
        const qint64 ms = kPlistEpoch.msecsTo(value.toDateTime());
        return plist_new_date(int32_t(ms / 1000), int32_t((ms % 1000) * 1000));
    }
    default:
        return plist_new_string(value.toString().toUtf8().constData());
    }
}

} // namespace

namespace PropertyList {

std::optional<QVariant> parse(const QByteArray& bytes, QString* error)
{
    auto fail = [error](const QString& text) -> std::optional<QVariant> {
        if (error)
            *error = text;
        return std::nullopt;
    };
    if (bytes.isEmpty())
        return fail(QStringLiteral("the file is empty"));
    if (bytes.size() > qsizetype(UINT32_MAX))
        return fail(QStringLiteral("the file is too large"));
    plist_t root = nullptr;
    plist_from_memory(bytes.constData(), uint32_t(bytes.size()), &root);
    if (!root)
        return fail(QStringLiteral("not a property list"));
    PlistPtr owner(root);
    auto value = toVariant(root, 0);
    if (!value)
        return fail(QStringLiteral("the property list is nested too deeply"));
    return value;
}

std::optional<QVariant> read(const QString& path, QString* error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (error)
            *error = file.errorString();
        return std::nullopt;
    }
    return parse(file.readAll(), error);
}

QByteArray toXml(const QVariant& value)
{
    PlistPtr root(fromVariant(value));
    char* xml = nullptr;
    uint32_t length = 0;
    plist_to_xml(static_cast<plist_t>(root.get()), &xml, &length);
    QByteArray bytes(xml, qsizetype(length));
    plist_to_xml_free(xml);
    return bytes;
}

bool write(const QString& path, const QVariant& value, QString* error)
{
    return SafeFile::writeFile(path, toXml(value), error);
}

} // namespace PropertyList
