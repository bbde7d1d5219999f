#include "playlists/XmlPlistReader.h"

#include <QBuffer>
#include <QDateTime>
#include <QFile>

#include <vector>

namespace XmlPlist {

Cursor::Cursor(QIODevice* device) : reader_(device) {}

void Cursor::fail(const QString& message)
{
    if (error_.isEmpty())
        error_ = QStringLiteral("line %1: %2").arg(reader_.lineNumber()).arg(message);
}

QString Cursor::errorString() const
{
    if (!error_.isEmpty())
        return error_;
    if (reader_.hasError())
        return QStringLiteral("line %1: %2").arg(reader_.lineNumber()).arg(reader_.errorString());
    return {};
}

bool Cursor::checkDocumentType()
{
    // The property-list DOCTYPE names an external DTD and nothing else; a
    // document that declares its own entities is not one we accept.
    if (!reader_.entityDeclarations().isEmpty() || !reader_.notationDeclarations().isEmpty()
        || reader_.text().contains(QLatin1String("<!ENTITY"))) {
        fail(QStringLiteral("the document declares entities"));
        return false;
    }
    return true;
}

bool Cursor::enterRoot()
{
    while (!reader_.atEnd()) {
        switch (reader_.readNext()) {
        case QXmlStreamReader::DTD:
            if (!checkDocumentType())
                return false;
            break;
        case QXmlStreamReader::EntityReference:
            fail(QStringLiteral("the document uses entities"));
            return false;
        case QXmlStreamReader::StartElement:
            if (reader_.name() != QLatin1String("plist")) {
                fail(QStringLiteral("the root element is not <plist>"));
                return false;
            }
            if (!nextStart()) {
                fail(QStringLiteral("the property list is empty"));
                return false;
            }
            return true;
        default:
            break;
        }
    }
    fail(QStringLiteral("no <plist> element"));
    return false;
}

bool Cursor::nextStart()
{
    for (;;) {
        switch (reader_.readNext()) {
        case QXmlStreamReader::StartElement:
            return true;
        case QXmlStreamReader::EndElement:
        case QXmlStreamReader::EndDocument:
        case QXmlStreamReader::Invalid:
            return false;
        case QXmlStreamReader::EntityReference:
            fail(QStringLiteral("the document uses entities"));
            return false;
        case QXmlStreamReader::Characters:
            if (!reader_.isWhitespace()) {
                fail(QStringLiteral("text outside of a value"));
                return false;
            }
            break;
        default:
            break;
        }
    }
}

bool Cursor::nextKey(QString* key)
{
    if (failed() || !nextStart())
        return false;
    if (reader_.name() != QLatin1String("key")) {
        fail(QStringLiteral("a dictionary holds <%1> where a <key> belongs").arg(reader_.name()));
        return false;
    }
    *key = reader_.readElementText();
    if (failed())
        return false;
    if (!nextStart()) {
        fail(QStringLiteral("the key \"%1\" has no value").arg(*key));
        return false;
    }
    return true;
}

bool Cursor::nextElement()
{
    return !failed() && nextStart();
}

QString Cursor::readText()
{
    return reader_.readElementText();
}

bool Cursor::skipValue()
{
    int depth = 1;
    while (depth > 0) {
        switch (reader_.readNext()) {
        case QXmlStreamReader::StartElement:
            if (++depth > kMaxPlistDepth) {
                fail(QStringLiteral("the property list is nested too deeply"));
                return false;
            }
            break;
        case QXmlStreamReader::EndElement:
            --depth;
            break;
        case QXmlStreamReader::EntityReference:
            fail(QStringLiteral("the document uses entities"));
            return false;
        case QXmlStreamReader::EndDocument:
        case QXmlStreamReader::Invalid:
            fail(QStringLiteral("the document ends inside a value"));
            return false;
        default:
            break;
        }
    }
    return true;
}

std::optional<QVariant> Cursor::readValue()
{
    struct Frame {
        bool isDict;
        QVariantMap map;
        QVariantList list;
        QString key;
    };
    // An explicit stack instead of recursion: the depth of the input decides
    // only how much heap is used, up to the limit.
    std::vector<Frame> stack;
    QVariant result;
    bool done = false;

    auto deliver = [&](QVariant value) {
        if (stack.empty()) {
            result = std::move(value);
            done = true;
        } else if (stack.back().isDict) {
            stack.back().map.insert(stack.back().key, std::move(value));
        } else {
            stack.back().list.append(std::move(value));
        }
    };

    while (!done) {
        const QStringView name = reader_.name();
        if (name == QLatin1String("dict") || name == QLatin1String("array")) {
            if (int(stack.size()) >= kMaxPlistDepth) {
                fail(QStringLiteral("the property list is nested too deeply"));
                return std::nullopt;
            }
            stack.push_back(Frame{name == QLatin1String("dict"), {}, {}, {}});
        } else if (name == QLatin1String("string")) {
            deliver(reader_.readElementText());
        } else if (name == QLatin1String("integer")) {
            bool ok = false;
            const QString text = reader_.readElementText().trimmed();
            const qint64 value = text.toLongLong(&ok);
            if (!ok) {
                // Unsigned values beyond the signed range are kept as they are.
                const quint64 unsignedValue = text.toULongLong(&ok);
                if (!ok) {
                    fail(QStringLiteral("\"%1\" is not an integer").arg(text));
                    return std::nullopt;
                }
                deliver(QVariant(qint64(unsignedValue)));
            } else {
                deliver(QVariant(value));
            }
        } else if (name == QLatin1String("real")) {
            bool ok = false;
            const double value = reader_.readElementText().trimmed().toDouble(&ok);
            if (!ok) {
                fail(QStringLiteral("a <real> that is not a number"));
                return std::nullopt;
            }
            deliver(QVariant(value));
        } else if (name == QLatin1String("true") || name == QLatin1String("false")) {
            const bool value = name == QLatin1String("true");
            reader_.readElementText();
            deliver(QVariant(value));
        } else if (name == QLatin1String("date")) {
            deliver(QVariant(QDateTime::fromString(reader_.readElementText().trimmed(), Qt::ISODate)));
        } else if (name == QLatin1String("data")) {
            QByteArray text = reader_.readElementText().toLatin1();
            text.replace(' ', "").replace('\n', "").replace('\t', "").replace('\r', "");
            deliver(QVariant(QByteArray::fromBase64(text)));
        } else {
            fail(QStringLiteral("unknown element <%1>").arg(name));
            return std::nullopt;
        }
        if (failed())
            return std::nullopt;

        // Find the start of the next value to read, closing finished containers.
        while (!done) {
            Frame& top = stack.back();
            const bool more = top.isDict ? nextKey(&top.key) : nextElement();
            if (failed())
                return std::nullopt;
            if (more)
                break;
            Frame finished = std::move(stack.back());
            stack.pop_back();
            deliver(finished.isDict ? QVariant(std::move(finished.map)) : QVariant(std::move(finished.list)));
        }
    }
    return result;
}

std::optional<QVariant> parse(const QByteArray& bytes, QString* error)
{
    QByteArray copy = bytes;
    QBuffer buffer(&copy);
    buffer.open(QIODevice::ReadOnly);
    Cursor cursor(&buffer);
    std::optional<QVariant> value;
    if (cursor.enterRoot())
        value = cursor.readValue();
    if (!value && error)
        *error = cursor.errorString();
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
    Cursor cursor(&file);
    std::optional<QVariant> value;
    if (cursor.enterRoot())
        value = cursor.readValue();
    if (!value && error)
        *error = cursor.errorString();
    return value;
}

} // namespace XmlPlist
