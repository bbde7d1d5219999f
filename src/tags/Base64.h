#pragma once
#include <QByteArray>
#include <QString>

#include <optional>

// Base64 of RFC 4648 (standard alphabet, "=" padding, no line breaks), used for
// pictures inside Vorbis comments. Decoding skips characters outside the
// alphabet (blanks, line breaks, bytes above 127) and stops at "=".
namespace Base64 {

QString base64Encoding(const QByteArray& bytes);
// Throws std::invalid_argument for a missing text (nullopt).
QByteArray dataWithBase64EncodedString(const std::optional<QString>& text);
QByteArray encode(const char* bytes, qsizetype length);
QByteArray encode(const QByteArray& bytes);
QByteArray decode(const char* text, qsizetype length);
QByteArray decode(const QByteArray& text);

} // namespace Base64

// UU decoding of a body without length characters or begin/end lines: each
// group of four characters gives up to three bytes.
namespace UU {

// Decodes until `length` bytes are produced (possibly in mid-group) or the text ends.
QByteArray decode(const char* text, qsizetype textLength, qsizetype length);
QByteArray decode(const QByteArray& text, qsizetype length);
// Decodes the whole text.
QByteArray decode(const QByteArray& text);

} // namespace UU
