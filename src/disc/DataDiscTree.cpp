#include "disc/DataDiscTree.h"

#include "core/Job.h"
#include "platform/SafeFile.h"

#include <QFileInfo>

// libisofs's own declaration of the burner's data source (libburn puts its
// copy in a namespace of its own in C++); the two are one C struct.
#define LIBISOFS_WITHOUT_LIBBURN
#include <libisofs/libisofs.h>

#include <atomic>
#include <cstring>
#include <mutex>

namespace {

// libisofs hides its stream object from C++ (a member is named "class"); this
// is the same layout under other names, as its header advises.
struct ProducerStream {
    IsoStreamIface* iface;
    int refcount;
    void* data;
};

// What a stream reads from: the producer, and the bytes of its last request.
struct StreamState {
    static constexpr qint64 kChunk = 1 << 20;  // large reads: each request opens and closes the file
    QuenlorFileProducer* producer;
    qint64 size;
    qint64 position = 0;  // of the next byte handed to libisofs
    QByteArray chunk;     // bytes from chunkStart on
    qint64 chunkStart = 0;
    ino_t inode;
};

StreamState* stateOf(IsoStream* stream)
{
    return static_cast<StreamState*>(reinterpret_cast<ProducerStream*>(stream)->data);
}

int streamOpen(IsoStream* stream)
{
    StreamState* state = stateOf(stream);
    state->position = 0;
    state->chunk.clear();
    state->chunkStart = 0;
    state->producer->prepareFileForVerification();
    return ISO_SUCCESS;
}

int streamClose(IsoStream*)
{
    return ISO_SUCCESS;
}

off_t streamSize(IsoStream* stream)
{
    return off_t(stateOf(stream)->size);
}

int streamRead(IsoStream* stream, void* buffer, size_t count)
{
    StreamState* state = stateOf(stream);
    if (state->position >= state->size)
        return 0;
    if (state->position >= state->chunkStart + state->chunk.size()) {
        // The last request takes the whole rest, so the appended tag is never split.
        const qint64 remaining = state->size - state->position;
        const qint64 wanted = remaining <= StreamState::kChunk + QuenlorFileProducer::kTagSize ? remaining
                                                                                             : StreamState::kChunk;
        state->chunk.resize(qsizetype(wanted));
        const qint64 got = state->producer->produceFile(state->chunk.data(), wanted, state->position);
        if (got <= 0)
            return ISO_FILE_READ_ERROR;
        state->chunk.truncate(qsizetype(std::min(got, remaining)));
        state->chunkStart = state->position;
    }
    const qint64 offset = state->position - state->chunkStart;
    const qint64 given = std::min<qint64>(qint64(count), state->chunk.size() - offset);
    std::memcpy(buffer, state->chunk.constData() + offset, size_t(given));
    state->position += given;
    return int(given);
}

int streamRepeatable(IsoStream*)
{
    return 1;
}

void streamId(IsoStream* stream, unsigned int* fsId, dev_t* devId, ino_t* inoId)
{
    *fsId = 0x564C;  // Velmora's producers
    *devId = 0;
    *inoId = stateOf(stream)->inode;
}

void streamFree(IsoStream* stream)
{
    delete stateOf(stream);
}

IsoStreamIface producerInterface = {0,       {'v', 'l', 'm', 'p'}, streamOpen, streamClose, streamSize, streamRead,
                                    streamRepeatable, streamId, streamFree, nullptr, nullptr, nullptr, nullptr};

IsoStream* newProducerStream(QuenlorFileProducer* producer)
{
    static std::atomic<ino_t> nextInode {1};
    // libisofs frees the stream itself, with free().
    auto* stream = static_cast<ProducerStream*>(std::calloc(1, sizeof(ProducerStream)));
    stream->iface = &producerInterface;
    stream->refcount = 1;
    stream->data = new StreamState{producer, producer->calculateSizeOfFile(), 0, {}, 0, nextInode++};
    return reinterpret_cast<IsoStream*>(stream);
}

bool initLibisofs(QString* error)
{
    static int result = 0;
    static std::once_flag once;
    std::call_once(once, [] {
        result = iso_init();
        // Its messages reach the user through the job, not standard error.
        iso_set_msgs_severities(const_cast<char*>("NEVER"), const_cast<char*>("FATAL"),
                                const_cast<char*>("libisofs : "));
    });
    if (result < 0 && error)
        *error = QStringLiteral("libisofs cannot start: %1").arg(QString::fromUtf8(iso_error_to_msg(result)));
    return result >= 0;
}

QString isoError(int code)
{
    return QString::fromUtf8(iso_error_to_msg(code));
}

}  // namespace

DataDiscFolder* DataDiscFolder::childFolder(const QString& wanted, bool preserveOrder)
{
    for (const std::unique_ptr<DataDiscFolder>& folder : folders) {
        if (folder->name == wanted || (preserveOrder && folder->name.size() > 3 && folder->name.mid(3) == wanted))
            return folder.get();
    }
    return nullptr;
}

DataDiscFolder* createVirtualFoldersOnRoot(DataDiscFolder* root, QStringList components, bool preserveOrder)
{
    DataDiscFolder* folder = root;
    while (!components.isEmpty()) {
        const QString first = components.first();
        if (folder->name == first || (preserveOrder && folder->name.size() > 3 && folder->name.mid(3) == first)) {
            components.removeFirst();
        } else if (DataDiscFolder* child = folder->childFolder(first, preserveOrder)) {
            folder = child;
            components.removeFirst();
        } else {
            for (const QString& component : std::as_const(components)) {
                auto made = std::make_unique<DataDiscFolder>();
                made->name = preserveOrder ? QString::asprintf("%03d", folder->childCount()) + component : component;
                folder->folders.push_back(std::move(made));
                folder = folder->folders.back().get();
            }
            components.clear();
        }
    }
    return folder;
}

struct DataDiscImage::Image {
    IsoImage* image = nullptr;
    IsoWriteOpts* options = nullptr;
};

DataDiscImage::~DataDiscImage()
{
    if (image_) {
        if (image_->options)
            iso_write_opts_free(image_->options);
        if (image_->image)
            iso_image_unref(image_->image);
        delete image_;
    }
}

bool DataDiscImage::build(DataDiscFolder& root, bool joliet, QStringList* leftOut, QString* error)
{
    if (!initLibisofs(error))
        return false;
    image_ = new Image;
    const QByteArray volume = root.name.left(32).toUtf8();
    int result = iso_image_new(volume.constData(), &image_->image);
    if (result < 0) {
        *error = isoError(result);
        return false;
    }
    iso_image_set_volume_id(image_->image, volume.constData());

    std::function<bool(DataDiscFolder&, IsoDir*)> add = [&](DataDiscFolder& folder, IsoDir* dir) {
        for (const std::unique_ptr<DataDiscFolder>& child : folder.folders) {
            IsoDir* made = nullptr;
            result = iso_tree_add_new_dir(dir, child->name.toUtf8().constData(), &made);
            if (result < 0) {
                leftOut->append(QStringLiteral("the folder %1: %2").arg(child->name, isoError(result)));
                continue;
            }
            if (!add(*child, made))
                return false;
        }
        for (const std::unique_ptr<QuenlorFileProducer>& file : folder.files) {
            if (!file->prepareFileForBurn()) {
                leftOut->append(QStringLiteral("%1: it cannot be read").arg(file->sourcePath()));
                continue;
            }
            IsoStream* stream = newProducerStream(file.get());
            IsoFile* made = nullptr;
            // The new file takes the stream's reference, or it is dropped here.
            result = iso_tree_add_new_file(dir, file->diskName().toUtf8().constData(), stream, &made);
            if (result < 0)
                iso_stream_unref(stream);
            if (result < 0)
                leftOut->append(QStringLiteral("%1: %2").arg(file->sourcePath(), isoError(result)));
        }
        for (const DataDiscFolder::MemoryFile& file : folder.memoryFiles) {
            // The memory stream frees its bytes with free().
            auto* bytes = static_cast<unsigned char*>(std::malloc(size_t(std::max<qsizetype>(file.bytes.size(), 1))));
            std::memcpy(bytes, file.bytes.constData(), size_t(file.bytes.size()));
            IsoStream* stream = nullptr;
            result = iso_memory_stream_new(bytes, ssize_t(file.bytes.size()), &stream);
            if (result < 0) {
                std::free(bytes);
                *error = isoError(result);
                return false;
            }
            IsoFile* made = nullptr;
            result = iso_tree_add_new_file(dir, file.name.toUtf8().constData(), stream, &made);
            if (result < 0)
                iso_stream_unref(stream);
            if (result < 0)
                leftOut->append(QStringLiteral("%1: %2").arg(file.name, isoError(result)));
        }
        return true;
    };
    if (!add(root, iso_image_get_root(image_->image)))
        return false;

    // Level 3 with Rock Ridge names keeps every file whole and its name as given.
    result = iso_write_opts_new(&image_->options, 2);
    if (result >= 0)
        result = iso_write_opts_set_iso_level(image_->options, 3);
    if (result >= 0)
        result = iso_write_opts_set_joliet(image_->options, joliet ? 1 : 0);
    if (result >= 0 && joliet)
        result = iso_write_opts_set_joliet_longer_paths(image_->options, 1);
    if (result < 0) {
        *error = isoError(result);
        return false;
    }
    return true;
}

burn_source* DataDiscImage::source(QString* error)
{
    burn_source* source = nullptr;
    const int result = iso_image_create_burn_source(image_->image, image_->options, &source);
    if (result < 0) {
        *error = isoError(result);
        return nullptr;
    }
    return source;
}

void DataDiscImage::freeSource(burn_source* source)
{
    if (--source->refcount < 1) {
        if (source->free_data)
            source->free_data(source);
        std::free(source);
    }
}

QString DataDiscImage::writeTo(Job& job, const QString& path)
{
    QString error;
    burn_source* image = source(&error);
    if (!image)
        return QStringLiteral("The disc image cannot be made: %1").arg(error);
    SafeFile::Replacement file(path);
    const qint64 total = std::max<qint64>(image->get_size(image), 1);
    qint64 written = 0;
    // libisofs hands its image out in whole 2048-byte blocks only.
    QByteArray block(2048, Qt::Uninitialized);
    QString problem;
    auto readInto = [&](unsigned char* into, int size) {
        return image->read_xt ? image->read_xt(image, into, size) : image->read(image, into, size);
    };
    if (!file.create())
        problem = QStringLiteral("%1 cannot be made: %2").arg(path, file.errorString());
    while (problem.isEmpty()) {
        if (job.isCancelled()) {
            problem = QStringLiteral("cancelled");
            break;
        }
        const int got = readInto(reinterpret_cast<unsigned char*>(block.data()), int(block.size()));
        if (got < 0)
            problem = QStringLiteral("The disc image cannot be made: a file could not be read.");
        if (got <= 0)
            break;
        if (!file.write(QByteArray::fromRawData(block.constData(), got)))
            problem = QStringLiteral("%1 cannot be written: %2").arg(path, file.errorString());
        written += got;
        job.setProgress(100.0 * double(written) / double(total), QStringLiteral("Writing the disc image"));
    }
    // Stops libisofs's writer thread when the image was not read to its end.
    if (!problem.isEmpty() && image->version > 0 && image->cancel)
        image->cancel(image);
    freeSource(image);
    if (problem.isEmpty() && written < total)
        problem = QStringLiteral("The disc image ended after %1 of %2 bytes.").arg(written).arg(total);
    if (problem.isEmpty() && !file.commit())
        problem = QStringLiteral("%1 cannot be written: %2").arg(path, file.errorString());
    return problem;
}
