// Feeds arbitrary bytes to the property-list reader: the whole-document parse
// (playlists, media sets, settings) and the streaming walk of the iTunes import.
#include "playlists/ITunesLibrary.h"
#include "playlists/XmlPlistReader.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const char* bytes = reinterpret_cast<const char*>(data);
    QString error;
    // A refused document always says why.
    if (!XmlPlist::parse(QByteArray::fromRawData(bytes, qsizetype(size)), &error) && error.isEmpty())
        std::abort();
    error.clear();
    if (!ITunesLibrary::parse(bytes, qsizetype(size), &error) && error.isEmpty())
        std::abort();
    return 0;
}
