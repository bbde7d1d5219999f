#include "playlists/XmlPlistReader.h"

#include <QDateTime>
#include <QFile>

#include <algorithm>
#include <vector>

namespace XmlPlist {

namespace {

bool isSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

bool isAllSpace(QByteArrayView text)
{
    for (char c : text)
        if (!isSpace(c))
            return false;
    return true;
}

void appendUtf8(uint code, QByteArray* out)
{
    if (code < 0x80) {
        out->append(char(code));
    } else if (code < 0x800) {
        out->append(char(0xC0 | (code >> 6)));
        out->append(char(0x80 | (code & 0x3F)));
    } else if (code < 0x10000) {
        out->append(char(0xE0 | (code >> 12)));
        out->append(char(0x80 | ((code >> 6) & 0x3F)));
        out->append(char(0x80 | (code & 0x3F)));
    } else {
        out->append(char(0xF0 | (code >> 18)));
        out->append(char(0x80 | ((code >> 12) & 0x3F)));
        out->append(char(0x80 | ((code >> 6) & 0x3F)));
        out->append(char(0x80 | (code & 0x3F)));
    }
}

} // namespace

Cursor::Cursor(const char* data, qsizetype size) : data_(data), size_(size)
{
    open_.reserve(64);
}

void Cursor::fail(const QString& message)
{
    if (!error_.isEmpty())
        return;
    const qsizetype upTo = std::min(pos_, size_);
    const qsizetype line = 1 + QByteArrayView(data_, upTo).count('\n');
    error_ = QStringLiteral("line %1: %2").arg(line).arg(message);
}

bool Cursor::skipPast(QByteArrayView terminator)
{
    const qsizetype found = QByteArrayView(data_ + pos_, size_ - pos_).indexOf(terminator);
    if (found < 0) {
        pos_ = size_;
        fail(QStringLiteral("the document ends inside markup"));
        return false;
    }
    pos_ += found + terminator.size();
    return true;
}

bool Cursor::skipDocumentType()
{
    // The property-list DOCTYPE names an external DTD and nothing else; a
    // document that declares its own entities is not one we accept.
    char quote = 0;
    qsizetype subsetStart = -1;
    for (; pos_ < size_; ++pos_) {
        const char c = data_[pos_];
        if (quote) {
            if (c == quote)
                quote = 0;
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else if (c == '[' && subsetStart < 0) {
            subsetStart = pos_;
            const qsizetype close = QByteArrayView(data_ + pos_, size_ - pos_).indexOf(']');
            if (close < 0)
                break;
            const QByteArrayView subset(data_ + pos_, close);
            if (subset.contains("ENTITY") || subset.contains('%')) {
                fail(QStringLiteral("the document declares entities"));
                return false;
            }
            pos_ += close;
        } else if (c == '>') {
            ++pos_;
            return true;
        }
    }
    fail(QStringLiteral("the document ends inside its DOCTYPE"));
    return false;
}

Cursor::Token Cursor::next()
{
    if (failed())
        return Token::Fail;
    if (pendingEnd_) {
        pendingEnd_ = false;
        name_ = open_.back();
        open_.pop_back();
        return Token::End;
    }
    for (;;) {
        if (pos_ >= size_) {
            fail(QStringLiteral("the document ends inside an element"));
            return Token::Fail;
        }
        const QByteArrayView rest(data_ + pos_, size_ - pos_);
        if (rest.front() != '<') {
            const qsizetype lt = rest.indexOf('<');
            if (lt < 0) {
                pos_ = size_;
                fail(QStringLiteral("the document ends inside text"));
                return Token::Fail;
            }
            text_ = rest.first(lt);
            textIsRaw_ = false;
            pos_ += lt;
            return Token::Text;
        }
        if (rest.startsWith("<!--")) {
            pos_ += 4;
            if (!skipPast("-->"))
                return Token::Fail;
            continue;
        }
        if (rest.startsWith("<![CDATA[")) {
            pos_ += 9;
            const qsizetype start = pos_;
            if (!skipPast("]]>"))
                return Token::Fail;
            text_ = QByteArrayView(data_ + start, pos_ - 3 - start);
            textIsRaw_ = true;
            return Token::Text;
        }
        if (rest.startsWith("<?")) {
            pos_ += 2;
            if (!skipPast("?>"))
                return Token::Fail;
            continue;
        }
        if (rest.startsWith("<!")) {
            fail(QStringLiteral("a declaration inside the document"));
            return Token::Fail;
        }
        if (rest.startsWith("</")) {
            qsizetype end = 2;
            while (end < rest.size() && rest[end] != '>' && !isSpace(rest[end]))
                ++end;
            const QByteArrayView name = rest.sliced(2, end - 2);
            while (end < rest.size() && isSpace(rest[end]))
                ++end;
            if (end >= rest.size() || rest[end] != '>') {
                fail(QStringLiteral("a broken end tag"));
                return Token::Fail;
            }
            if (open_.empty() || open_.back() != name) {
                fail(QStringLiteral("the end tag </%1> does not match").arg(QLatin1StringView(name.data(), name.size())));
                return Token::Fail;
            }
            open_.pop_back();
            name_ = name;
            pos_ += end + 1;
            return Token::End;
        }

        // A start tag: its name, then attributes, which a property list does not need.
        qsizetype end = 1;
        while (end < rest.size() && rest[end] != '>' && rest[end] != '/' && !isSpace(rest[end]))
            ++end;
        const QByteArrayView name = rest.sliced(1, end - 1);
        if (name.isEmpty()) {
            fail(QStringLiteral("a tag without a name"));
            return Token::Fail;
        }
        bool selfClosing = false;
        for (;;) {
            while (end < rest.size() && isSpace(rest[end]))
                ++end;
            if (end >= rest.size()) {
                fail(QStringLiteral("the document ends inside a tag"));
                return Token::Fail;
            }
            if (rest[end] == '>') {
                ++end;
                break;
            }
            if (rest[end] == '/') {
                if (end + 1 >= rest.size() || rest[end + 1] != '>') {
                    fail(QStringLiteral("a broken tag"));
                    return Token::Fail;
                }
                end += 2;
                selfClosing = true;
                break;
            }
            // name = "value" or 'value'
            const qsizetype equals = rest.sliced(end).indexOf('=');
            if (equals < 0) {
                fail(QStringLiteral("a broken attribute"));
                return Token::Fail;
            }
            end += equals + 1;
            while (end < rest.size() && isSpace(rest[end]))
                ++end;
            if (end >= rest.size() || (rest[end] != '"' && rest[end] != '\'')) {
                fail(QStringLiteral("an attribute without quotes"));
                return Token::Fail;
            }
            const qsizetype close = rest.sliced(end + 1).indexOf(rest[end]);
            if (close < 0) {
                fail(QStringLiteral("the document ends inside an attribute"));
                return Token::Fail;
            }
            end += close + 2;
        }
        // The <plist> element itself is one level above the deepest value allowed.
        if (qsizetype(open_.size()) > kMaxPlistDepth) {
            fail(QStringLiteral("the property list is nested too deeply"));
            return Token::Fail;
        }
        open_.push_back(name);
        name_ = name;
        pendingEnd_ = selfClosing;
        pos_ += end;
        return Token::Start;
    }
}

bool Cursor::skipMisc()
{
    for (;;) {
        while (pos_ < size_ && isSpace(data_[pos_]))
            ++pos_;
        const QByteArrayView rest(data_ + pos_, size_ - pos_);
        if (rest.startsWith("<?")) {
            pos_ += 2;
            if (!skipPast("?>"))
                return false;
        } else if (rest.startsWith("<!--")) {
            pos_ += 4;
            if (!skipPast("-->"))
                return false;
        } else {
            return true;
        }
    }
}

bool Cursor::enterRoot()
{
    if (size_ >= 3 && QByteArrayView(data_, 3) == QByteArrayView("\xEF\xBB\xBF"))
        pos_ = 3;
    for (;;) {
        if (!skipMisc())
            return false;
        const QByteArrayView rest(data_ + pos_, size_ - pos_);
        if (rest.isEmpty()) {
            fail(QStringLiteral("no <plist> element"));
            return false;
        }
        if (rest.startsWith("<!DOCTYPE")) {
            pos_ += 9;
            if (!skipDocumentType())
                return false;
        } else if (rest.front() == '<') {
            if (next() != Token::Start || name_ != "plist") {
                fail(QStringLiteral("the root element is not <plist>"));
                return false;
            }
            if (!nextStart()) {
                fail(QStringLiteral("the property list is empty"));
                return false;
            }
            return true;
        } else {
            fail(QStringLiteral("text before the root element"));
            return false;
        }
    }
}

bool Cursor::finish()
{
    if (failed())
        return false;
    if (nextStart()) {
        fail(QStringLiteral("more than one value in the property list"));
        return false;
    }
    if (failed() || !open_.empty()) {
        fail(QStringLiteral("the property list is not closed"));
        return false;
    }
    if (!skipMisc())
        return false;
    if (pos_ < size_) {
        fail(QStringLiteral("content after the property list"));
        return false;
    }
    return true;
}

bool Cursor::nextStart()
{
    for (;;) {
        switch (next()) {
        case Token::Start:
            return true;
        case Token::End:
        case Token::Fail:
            return false;
        case Token::Text:
            if (textIsRaw_ || !isAllSpace(text_)) {
                fail(QStringLiteral("text outside of a value"));
                return false;
            }
            break;
        }
    }
}

bool Cursor::appendDecoded(QByteArrayView raw, QByteArray* out)
{
    if (textIsRaw_ || (!raw.contains('&') && !raw.contains('\r'))) {
        out->append(raw);
        return true;
    }
    for (qsizetype i = 0; i < raw.size(); ++i) {
        const char c = raw[i];
        if (c == '\r') {
            // Line ends read as a single line feed.
            if (i + 1 >= raw.size() || raw[i + 1] != '\n')
                out->append('\n');
            continue;
        }
        if (c != '&') {
            out->append(c);
            continue;
        }
        const qsizetype semicolon = raw.sliced(i).indexOf(';');
        if (semicolon < 2 || semicolon > 12) {
            fail(QStringLiteral("the document uses entities"));
            return false;
        }
        const QByteArrayView entity = raw.sliced(i + 1, semicolon - 1);
        if (entity == "lt") {
            out->append('<');
        } else if (entity == "gt") {
            out->append('>');
        } else if (entity == "amp") {
            out->append('&');
        } else if (entity == "quot") {
            out->append('"');
        } else if (entity == "apos") {
            out->append('\'');
        } else if (entity.front() == '#') {
            bool ok = false;
            const uint code = entity.size() > 1 && (entity[1] == 'x' || entity[1] == 'X')
                                  ? entity.sliced(2).toUInt(&ok, 16)
                                  : entity.sliced(1).toUInt(&ok, 10);
            if (!ok || code == 0 || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) {
                fail(QStringLiteral("a character reference that is no character"));
                return false;
            }
            appendUtf8(code, out);
        } else {
            fail(QStringLiteral("the document uses entities"));
            return false;
        }
        i += semicolon;
    }
    return true;
}

bool Cursor::readTextBytes(QByteArray* out)
{
    out->resize(0);
    for (;;) {
        switch (next()) {
        case Token::Text:
            if (!appendDecoded(text_, out))
                return false;
            break;
        case Token::End:
            return true;
        case Token::Start:
            fail(QStringLiteral("<%1> inside a text value").arg(elementName()));
            return false;
        case Token::Fail:
            return false;
        }
    }
}

bool Cursor::nextKey(QString* key)
{
    if (failed() || !nextStart())
        return false;
    if (name_ != "key") {
        fail(QStringLiteral("a dictionary holds <%1> where a <key> belongs").arg(elementName()));
        return false;
    }
    if (!readTextBytes(&scratch_))
        return false;
    *key = QString::fromUtf8(scratch_);
    if (!nextStart()) {
        fail(QStringLiteral("the key \"%1\" has no value").arg(*key));
        return false;
    }
    return true;
}

bool Cursor::nextKeyMatches(QLatin1StringView wanted, bool* matches)
{
    if (failed() || !nextStart())
        return false;
    if (name_ != "key") {
        fail(QStringLiteral("a dictionary holds <%1> where a <key> belongs").arg(elementName()));
        return false;
    }
    if (!readTextBytes(&scratch_))
        return false;
    *matches = QByteArrayView(scratch_) == QByteArrayView(wanted.data(), wanted.size());
    if (!nextStart()) {
        fail(QStringLiteral("a key has no value"));
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
    if (!readTextBytes(&scratch_))
        return {};
    return QString::fromUtf8(scratch_);
}

bool Cursor::skipValue()
{
    int depth = 1;
    while (depth > 0) {
        switch (next()) {
        case Token::Start:
            ++depth;
            break;
        case Token::End:
            --depth;
            break;
        case Token::Text:
            break;
        case Token::Fail:
            return false;
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
        const QByteArrayView name = name_;
        if (name == "dict" || name == "array") {
            if (int(stack.size()) >= kMaxPlistDepth) {
                fail(QStringLiteral("the property list is nested too deeply"));
                return std::nullopt;
            }
            stack.push_back(Frame{name == "dict", {}, {}, {}});
        } else if (name == "string") {
            deliver(readText());
        } else if (name == "integer") {
            bool ok = false;
            const QString text = readText().trimmed();
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
        } else if (name == "real") {
            bool ok = false;
            const double value = readText().trimmed().toDouble(&ok);
            if (!ok) {
                fail(QStringLiteral("a <real> that is not a number"));
                return std::nullopt;
            }
            deliver(QVariant(value));
        } else if (name == "true" || name == "false") {
            const bool value = name == "true";
            readText();
            deliver(QVariant(value));
        } else if (name == "date") {
            deliver(QVariant(QDateTime::fromString(readText().trimmed(), Qt::ISODate)));
        } else if (name == "data") {
            QByteArray text = readText().toLatin1();
            text.replace(' ', "").replace('\n', "").replace('\t', "").replace('\r', "");
            deliver(QVariant(QByteArray::fromBase64(text)));
        } else {
            fail(QStringLiteral("unknown element <%1>").arg(elementName()));
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
    Cursor cursor(bytes.constData(), bytes.size());
    std::optional<QVariant> value;
    if (cursor.enterRoot())
        value = cursor.readValue();
    if (value && !cursor.finish())
        value.reset();
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
    return parse(file.readAll(), error);
}

} // namespace XmlPlist
