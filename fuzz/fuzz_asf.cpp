// Feeds arbitrary bytes to both WMA (ASF) readers.
#include "tags/WmaTags.h"

#include <QBuffer>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly);
    try {
        getWMAComments(buffer);
    } catch (const WmaAttributeError&) {
        // A mapped attribute of another type: the dispatcher falls back to the file name.
    }
    wmatag_wrapper::commentsFromHead(bytes.left(65536), QStringLiteral("Artist-Album-01-Title.wma"));
    return 0;
}
