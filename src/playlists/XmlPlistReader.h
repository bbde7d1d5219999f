#pragma once
#include <QByteArray>
#include <QByteArrayView>
#include <QLatin1StringView>
#include <QString>
#include <QVariant>

#include <optional>
#include <vector>

// A streaming reader of XML property lists. Playlists, media sets and the
// iTunes library are XML property lists in UTF-8; reading them with a small
// scanner of our own rather than through a tree parser keeps memory flat and
// a large library fast, refuses documents that declare entities, and refuses
// nesting deeper than kMaxPlistDepth without recursion, so no input can
// exhaust the stack. Every read is checked against the bytes that are left.
namespace XmlPlist {

inline constexpr int kMaxPlistDepth = 4096;

// The whole document as a QVariant tree (dictionaries QVariantMap, arrays
// QVariantList, strings QString, integers qint64, reals double, booleans bool,
// data QByteArray, dates QDateTime); nothing and a message when the bytes are
// not an XML property list.
std::optional<QVariant> parse(const QByteArray& bytes, QString* error = nullptr);
std::optional<QVariant> read(const QString& path, QString* error = nullptr);

// Element-level access for readers that walk a large document themselves.
// The bytes must outlive the cursor.
class Cursor {
public:
    Cursor(const char* data, qsizetype size);

    // Moves to the root value inside <plist>; false on anything else.
    bool enterRoot();
    // Inside a <dict>: reads the next key and leaves the cursor on the start
    // of its value. False at the end of the dictionary.
    bool nextKey(QString* key);
    // Like nextKey, without keeping the key: tells whether it equals wanted.
    bool nextKeyMatches(QLatin1StringView wanted, bool* matches);
    // Inside an <array>: moves to the start of the next element; false at its end.
    bool nextElement();
    // The value at the current start element, converted in full.
    std::optional<QVariant> readValue();
    // The text of a <string> (or any scalar) at the current start element.
    QString readText();
    // Skips the value at the current start element.
    bool skipValue();
    // After the root value: the end of <plist> and nothing but comments behind it.
    bool finish();

    QLatin1StringView elementName() const { return QLatin1StringView(name_.data(), name_.size()); }
    bool failed() const { return !error_.isEmpty(); }
    QString errorString() const { return error_; }

private:
    enum class Token { Start, End, Text, Fail };

    // The next token: a start tag (name_, and selfClosing_), an end tag, or a
    // run of character data (text_ holds the raw bytes, decoded later).
    Token next();
    bool nextStart();
    bool readTextBytes(QByteArray* out);
    bool appendDecoded(QByteArrayView raw, QByteArray* out);
    bool skipPast(QByteArrayView terminator);
    bool skipDocumentType();
    // Skips blanks, comments and processing instructions; false when one is not closed.
    bool skipMisc();
    void fail(const QString& message);

    const char* data_;
    qsizetype size_;
    qsizetype pos_ = 0;
    QByteArrayView name_;
    QByteArrayView text_;
    bool textIsRaw_ = false;   // text_ came from a CDATA section
    bool pendingEnd_ = false;  // a self-closing tag still owes its end
    QByteArray scratch_;
    std::vector<QByteArrayView> open_;
    QString error_;
};

} // namespace XmlPlist
