// Feeds arbitrary bytes to the Base64 and UU decoders, and checks that Base64
// gives back any bytes it encoded.
#include "tags/Base64.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char*>(data), qsizetype(size));
    const QByteArray decoded = Base64::decode(bytes);
    if (decoded.size() > (bytes.size() / 4 + 1) * 3)
        std::abort();
    const QByteArray encoded = Base64::encode(bytes);
    if (encoded.size() != (bytes.size() + 2) / 3 * 4 || Base64::decode(encoded) != bytes)
        std::abort();
    const qsizetype wanted = size ? qsizetype(data[0]) * 3 : 0;
    const QByteArray uu = UU::decode(bytes.constData(), bytes.size(), wanted);
    if (uu.size() > wanted || uu.size() > (bytes.size() / 4 + 1) * 3)
        std::abort();
    UU::decode(bytes);
    return 0;
}
