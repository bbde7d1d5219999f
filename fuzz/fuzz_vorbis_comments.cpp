// Feeds arbitrary bytes to the Vorbis comment-header editor (open, then write
// the stream again), to the readers of the comment entries and pictures, and to
// the picture-block reader directly.
#include "tags/OggTags.h"
#include "tags/vcedit.h"

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    QVariantMap picture;
    artworkFromPictureBlock(QByteArray::fromRawData(reinterpret_cast<const char*>(data), qsizetype(size)), &picture);
    if (size == 0)
        return 0;
    FILE* in = fmemopen(const_cast<uint8_t*>(data), size, "rb");
    if (!in)
        return 0;
    vcedit_state* editor = vcedit_new_state();
    if (vcedit_open(editor, in) == 0) {
        const vorbis_comment* comments = vcedit_comments(editor);
        QList<QByteArray> entries;
        for (int i = 0; i < comments->comments; ++i)
            entries.append(QByteArray(comments->user_comments[i], comments->comment_lengths[i]));
        oggRecordFromEntries(entries);
        oggArtworkFromEntries(entries);
        vorbis_comment_add(vcedit_comments(editor), "TITLE=fuzz");
        long written = 0;
        vcedit_write(editor, [&](const unsigned char*, long length) {
            written += length;
            return true;
        });
    } else if (!vcedit_error(editor)) {
        std::abort();  // a refusal always says why
    }
    vcedit_clear(editor);
    std::fclose(in);
    return 0;
}
