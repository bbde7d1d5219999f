#include "tags/Base64.h"

#include <array>
#include <stdexcept>

namespace {
constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr quint8 kInvalid = 0xFF;

// Built once, on first use, from the alphabet.
const std::array<quint8, 128>& decodingTable()
{
    static const std::array<quint8, 128> table = [] {
        std::array<quint8, 128> t;
        t.fill(kInvalid);
        for (int i = 0; i < 64; ++i)
            t[static_cast<unsigned char>(kAlphabet[i])] = quint8(i);
        return t;
    }();
    return table;
}
} // namespace

namespace Base64 {

QByteArray encode(const char* bytes, qsizetype length)
{
    QByteArray out;
    if (length <= 0)
        return out;
    out.reserve((length + 2) / 3 * 4);
    const auto* in = reinterpret_cast<const unsigned char*>(bytes);
    qsizetype i = 0;
    for (; i + 2 < length; i += 3) {
        const quint32 group = (quint32(in[i]) << 16) | (quint32(in[i + 1]) << 8) | in[i + 2];
        out.append(kAlphabet[(group >> 18) & 63]).append(kAlphabet[(group >> 12) & 63])
           .append(kAlphabet[(group >> 6) & 63]).append(kAlphabet[group & 63]);
    }
    if (i < length) {
        const bool two = i + 1 < length;
        const quint32 group = (quint32(in[i]) << 16) | (two ? quint32(in[i + 1]) << 8 : 0);
        out.append(kAlphabet[(group >> 18) & 63]).append(kAlphabet[(group >> 12) & 63]);
        out.append(two ? kAlphabet[(group >> 6) & 63] : '=').append('=');
    }
    return out;
}

QByteArray encode(const QByteArray& bytes)
{
    return encode(bytes.constData(), bytes.size());
}

QString base64Encoding(const QByteArray& bytes)
{
    return QString::fromLatin1(encode(bytes));
}

QByteArray decode(const char* text, qsizetype length)
{
    const auto& table = decodingTable();
    QByteArray out;
    out.reserve(length / 4 * 3 + 3);
    quint8 group[4];
    int filled = 0;
    for (qsizetype i = 0; i < length; ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c == '=')
            break;
        if (c > 127 || table[c] == kInvalid)
            continue;
        group[filled++] = table[c];
        if (filled == 4) {
            out.append(char((group[0] << 2) | (group[1] >> 4)));
            out.append(char((group[1] << 4) | (group[2] >> 2)));
            out.append(char((group[2] << 6) | group[3]));
            filled = 0;
        }
    }
    if (filled >= 2)
        out.append(char((group[0] << 2) | (group[1] >> 4)));
    if (filled == 3)
        out.append(char((group[1] << 4) | (group[2] >> 2)));
    return out;
}

QByteArray decode(const QByteArray& text)
{
    return decode(text.constData(), text.size());
}

QByteArray dataWithBase64EncodedString(const std::optional<QString>& text)
{
    if (!text)
        throw std::invalid_argument("dataWithBase64EncodedString: no text to decode");
    return decode(text->toLatin1());
}

} // namespace Base64

namespace UU {

QByteArray decode(const char* text, qsizetype textLength, qsizetype length)
{
    QByteArray out;
    if (length <= 0)
        return out;
    out.reserve(length);
    auto value = [](char c) { return quint8((static_cast<unsigned char>(c) - 32) & 63); };
    for (qsizetype i = 0; i < textLength && out.size() < length; i += 4) {
        // A short last group reads as if padded with blanks (value 0).
        quint8 c[4];
        for (int k = 0; k < 4; ++k)
            c[k] = i + k < textLength ? value(text[i + k]) : 0;
        const char bytes[3] = {char((c[0] << 2) | (c[1] >> 4)), char((c[1] << 4) | (c[2] >> 2)),
                               char((c[2] << 6) | c[3])};
        for (int k = 0; k < 3 && out.size() < length; ++k)
            out.append(bytes[k]);
    }
    return out;
}

QByteArray decode(const QByteArray& text, qsizetype length)
{
    return decode(text.constData(), text.size(), length);
}

QByteArray decode(const QByteArray& text)
{
    return decode(text.constData(), text.size(), (text.size() + 3) / 4 * 3);
}

} // namespace UU
