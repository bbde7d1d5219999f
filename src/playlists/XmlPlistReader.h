#pragma once
#include <QByteArray>
#include <QString>
#include <QVariant>
#include <QXmlStreamReader>

#include <optional>

class QIODevice;

// A streaming reader of XML property lists. Playlists, media sets and the
// iTunes library are XML property lists; reading them here rather than through
// a tree parser keeps memory flat on large files, refuses documents that
// declare entities, and refuses nesting deeper than kMaxPlistDepth without
// recursion, so no input can exhaust the stack.
namespace XmlPlist {

inline constexpr int kMaxPlistDepth = 4096;

// The whole document as a QVariant tree (dictionaries QVariantMap, arrays
// QVariantList, strings QString, integers qint64, reals double, booleans bool,
// data QByteArray, dates QDateTime); nothing and a message when the bytes are
// not an XML property list.
std::optional<QVariant> parse(const QByteArray& bytes, QString* error = nullptr);
std::optional<QVariant> read(const QString& path, QString* error = nullptr);

// Element-level access for readers that walk a large document themselves.
class Cursor {
public:
    explicit Cursor(QIODevice* device);

    // Moves to the root value inside <plist>; false on anything else.
    bool enterRoot();
    // Inside a <dict> at the current depth: reads the next key and leaves the
    // reader on the start of its value. False at the end of the dictionary.
    bool nextKey(QString* key);
    // Inside an <array>: moves to the start of the next element; false at its end.
    bool nextElement();
    // The value at the current start element, converted in full.
    std::optional<QVariant> readValue();
    // The text of a <string> (or any scalar) at the current start element.
    QString readText();
    // Skips the value at the current start element (depth-limited).
    bool skipValue();

    QStringView elementName() const { return reader_.name(); }
    bool failed() const { return !error_.isEmpty() || reader_.hasError(); }
    QString errorString() const;

private:
    bool nextStart();
    bool checkDocumentType();
    void fail(const QString& message);

    QXmlStreamReader reader_;
    QString error_;
};

} // namespace XmlPlist
