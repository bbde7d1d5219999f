// Feeds arbitrary bytes to the MP4 atom scanner and the readers built on it.
#include "tags/Mp4AtomTree.h"
#include "tags/Mp4Tags.h"

#include <QBuffer>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    QByteArray bytes(reinterpret_cast<const char*>(data), qsizetype(size));
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::ReadOnly);
    for (bool deep : {false, true}) {
        mp4::AtomTree tree;
        if (!tree.scan(&buffer, deep))
            continue;
        mp4::commentsFromTree(tree);
        mp4::coverPayloads(tree);
        tree.movieDetails();
        tree.findAtom("moov.trak:[2].mdia.minf.stbl.stsd.mp4a.esds");
        tree.findAtom("moov.udta.meta.uuid=\xA9inf");
        for (const mp4::AtomRecord& atom : tree.atoms())
            tree.findParentAtom(atom.number, atom.level);
    }
    return 0;
}
