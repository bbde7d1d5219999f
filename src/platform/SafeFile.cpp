#include "platform/SafeFile.h"

#include "platform/FileNames.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/fs.h>
#include <mutex>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace SafeFile {

namespace {

std::mutex injectorMutex;
FaultInjector injector;

bool injected(Step step, const QString& target)
{
    std::lock_guard lock(injectorMutex);
    if (!injector || !injector(step, target))
        return false;
    errno = EIO;
    return true;
}

QByteArray native(const QString& path)
{
    return QFile::encodeName(path);
}

QString reason(int error)
{
    switch (error) {
    case ENOSPC:
    case EFBIG:
    case EDQUOT:
        return QStringLiteral("the disk is full");
    case EROFS:
        return QStringLiteral("the disk is read-only");
    case EACCES:
    case EPERM:
        return QStringLiteral("permission denied");
    default:
        return QString::fromLocal8Bit(std::strerror(error));
    }
}

QString quoted(const QString& path)
{
    return QLatin1Char('"') + path + QLatin1Char('"');
}

QString parentOf(const QString& path)
{
    return QFileInfo(path).absolutePath();
}

void syncFolder(const QString& folder)
{
    const int fd = ::open(native(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0) {
        ::fsync(fd);
        ::close(fd);
    }
}

// A short hidden name that cannot be mistaken for a finished file; it keeps the
// extension, because several tools choose their output format by it.
QString temporaryName(const QString& folder, const QString& target)
{
    static const char letters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    QString suffix = QFileInfo(target).suffix().left(16);
    QString name = QStringLiteral(".velmora-");
    for (int i = 0; i < 8; ++i)
        name += QLatin1Char(letters[QRandomGenerator::global()->bounded(int(sizeof letters - 1))]);
    if (!suffix.isEmpty())
        name += QLatin1Char('.') + suffix;
    return folder + QLatin1Char('/') + name;
}

mode_t newFileMode()
{
    return 0666 & ~FileNames::currentUmask();
}

} // namespace

void setFaultInjector(FaultInjector newInjector)
{
    std::lock_guard lock(injectorMutex);
    injector = std::move(newInjector);
}

QString resolvedTarget(const QString& path)
{
    struct stat info {};
    if (::lstat(native(path).constData(), &info) == 0 && S_ISLNK(info.st_mode)) {
        const QString canonical = QFileInfo(path).canonicalFilePath();
        if (!canonical.isEmpty())
            return canonical;
    }
    return QFileInfo(path).absoluteFilePath();
}

namespace {

// Why the existing file `target` (as stat saw it) is not to be replaced; `path` is the name the user knows.
QString refusalOf(const QString& path, const QString& target, const struct stat& info)
{
    if (!S_ISREG(info.st_mode))
        return quoted(path) + QStringLiteral(" is not a regular file.");
    // The mode decides, not access(): a superuser may write anything, but a file
    // its owner marked read-only stays as it is.
    if ((info.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0 || ::access(native(target).constData(), W_OK) != 0)
        return quoted(path) + QStringLiteral(" is read-only; it was left as it is.");
    if (::access(native(parentOf(target)).constData(), W_OK | X_OK) != 0)
        return QStringLiteral("Cannot write into the folder of ") + quoted(path) + QStringLiteral(": ") +
               reason(errno) + '.';
    return {};
}

} // namespace

QString refusalToReplace(const QString& path)
{
    const QString target = resolvedTarget(path);
    struct stat info {};
    if (::stat(native(target).constData(), &info) != 0)
        return errno == ENOENT ? QString() : quoted(path) + QStringLiteral(" cannot be read: ") + reason(errno) + '.';
    return refusalOf(path, target, info);
}

bool copyInto(const QString& source, int fd, QString* error)
{
    const int in = ::open(native(source).constData(), O_RDONLY | O_CLOEXEC);
    if (in < 0) {
        if (error)
            *error = quoted(source) + QStringLiteral(" cannot be read: ") + reason(errno) + '.';
        return false;
    }
    bool ok = true;
    // A clone shares the blocks where the file system can; otherwise the kernel copies.
    if (::ioctl(fd, FICLONE, in) != 0) {
        for (;;) {
            const ssize_t copied = ::copy_file_range(in, nullptr, fd, nullptr, 1 << 30, 0);
            if (copied > 0)
                continue;
            if (copied == 0)
                break;
            if (errno == EXDEV || errno == EINVAL || errno == ENOSYS || errno == EOPNOTSUPP) {
                char buffer[1 << 16];
                ssize_t got;
                while ((got = ::read(in, buffer, sizeof buffer)) > 0) {
                    for (ssize_t done = 0; done < got;) {
                        const ssize_t put = ::write(fd, buffer + done, size_t(got - done));
                        if (put < 0) {
                            ok = false;
                            break;
                        }
                        done += put;
                    }
                    if (!ok)
                        break;
                }
                ok = ok && got == 0;
            } else {
                ok = false;
            }
            break;
        }
    }
    const int saved = errno;
    ::close(in);
    if (!ok && error)
        *error = QStringLiteral("Cannot copy ") + quoted(source) + QStringLiteral(": ") + reason(saved) + '.';
    return ok;
}

Replacement::Replacement(const QString& target) : target_(resolvedTarget(target)) {}

Replacement::~Replacement()
{
    if (!committed_)
        discard();
}

bool Replacement::fail(const QString& text)
{
    error_ = text;
    discard();
    return false;
}

void Replacement::discard()
{
    if (fd_ >= 0)
        ::close(fd_);
    fd_ = -1;
    if (!named_.isEmpty())
        ::unlink(native(named_).constData());
    named_.clear();
}

QString Replacement::path() const
{
    if (!named_.isEmpty())
        return named_;
    return fd_ >= 0 ? QStringLiteral("/proc/self/fd/%1").arg(fd_) : QString();
}

bool Replacement::create()
{
    discard();
    committed_ = false;
    struct stat info {};
    hadTarget_ = ::stat(native(target_).constData(), &info) == 0;
    if (hadTarget_) {
        if (const QString refused = refusalOf(target_, target_, info); !refused.isEmpty())
            return fail(refused);
        mode_ = info.st_mode & 07777;
    } else {
        mode_ = newFileMode();
    }
    const QString folder = parentOf(target_);
    if (injected(Step::Create, target_))
        return fail(QStringLiteral("Cannot write into the folder of ") + quoted(target_) + QStringLiteral(": ") +
                    reason(EIO) + '.');
    // An unnamed file vanishes by itself if we are killed before the rename.
    fd_ = ::open(native(folder).constData(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (fd_ >= 0)
        return true;
    if (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL && errno != ENOENT)
        return fail(QStringLiteral("Cannot write into the folder of ") + quoted(target_) + QStringLiteral(": ") +
                    reason(errno) + '.');
    for (int attempt = 0; attempt < 100; ++attempt) {
        const QString name = temporaryName(folder, target_);
        fd_ = ::open(native(name).constData(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd_ >= 0) {
            named_ = name;
            return true;
        }
        if (errno != EEXIST)
            break;
    }
    return fail(QStringLiteral("Cannot write into the folder of ") + quoted(target_) + QStringLiteral(": ") +
                reason(errno) + '.');
}

bool Replacement::createCopy()
{
    if (!create())
        return false;
    if (!hadTarget_)
        return true;
    if (injected(Step::Write, target_))
        return fail(QStringLiteral("Cannot write ") + quoted(target_) + QStringLiteral(": ") + reason(ENOSPC) + '.');
    QString error;
    if (!copyInto(target_, fd_, &error))
        return fail(error);
    ::lseek(fd_, 0, SEEK_SET);
    return true;
}

bool Replacement::write(const QByteArray& bytes)
{
    if (fd_ < 0)
        return false;
    if (injected(Step::Write, target_))
        return fail(QStringLiteral("Cannot write ") + quoted(target_) + QStringLiteral(": ") + reason(ENOSPC) + '.');
    for (qsizetype done = 0; done < bytes.size();) {
        const ssize_t put = ::write(fd_, bytes.constData() + done, size_t(bytes.size() - done));
        if (put < 0) {
            if (errno == EINTR)
                continue;
            return fail(QStringLiteral("Cannot write ") + quoted(target_) + QStringLiteral(": ") + reason(errno) + '.');
        }
        done += put;
    }
    return true;
}

namespace {
thread_local Batch* batchInUse = nullptr;

// Gives an unnamed new file a name just long enough to rename it over the
// target, and renames it: "" on success, else the reason.
QString renameOver(int fd, QString& named, const QString& target)
{
    const QString folder = parentOf(target);
    if (named.isEmpty()) {
        const QByteArray self = QStringLiteral("/proc/self/fd/%1").arg(fd).toLatin1();
        for (int attempt = 0; attempt < 100 && named.isEmpty(); ++attempt) {
            const QString name = temporaryName(folder, target);
            if (::linkat(AT_FDCWD, self.constData(), AT_FDCWD, native(name).constData(), AT_SYMLINK_FOLLOW) == 0)
                named = name;
            else if (errno != EEXIST)
                return QStringLiteral("Cannot write ") + quoted(target) + QStringLiteral(": ") + reason(errno) + '.';
        }
    }
    if (injected(Step::Rename, target))
        return QStringLiteral("Cannot replace ") + quoted(target) + QStringLiteral(": ") + reason(EIO) + '.';
    if (::rename(native(named).constData(), native(target).constData()) != 0)
        return QStringLiteral("Cannot replace ") + quoted(target) + QStringLiteral(": ") + reason(errno) + '.';
    named.clear();
    return {};
}

void dropStaged(int fd, const QString& named)
{
    ::close(fd);
    if (!named.isEmpty())
        ::unlink(native(named).constData());
}
} // namespace

bool Replacement::commit(const std::function<QString(const QString&)>& check)
{
    if (fd_ < 0)
        return false;
    if (injected(Step::Check, target_))
        return fail(QStringLiteral("The new version of ") + quoted(target_) +
                    QStringLiteral(" did not read back as written; the file was left as it was."));
    if (check) {
        if (const QString problem = check(path()); !problem.isEmpty())
            return fail(problem);
    }
    Batch* const batch = batchInUse;
    if (injected(Step::Sync, target_) || ::fchmod(fd_, mode_) != 0 || (!batch && ::fsync(fd_) != 0))
        return fail(QStringLiteral("Cannot write ") + quoted(target_) + QStringLiteral(": ") +
                    reason(errno ? errno : EIO) + '.');
    if (batch) {
        batch->stage({std::exchange(fd_, -1), std::exchange(named_, {}), target_});
        committed_ = true;
        return true;
    }
    if (const QString problem = renameOver(fd_, named_, target_); !problem.isEmpty())
        return fail(problem);
    committed_ = true;
    ::close(fd_);
    fd_ = -1;
    syncFolder(parentOf(target_));
    return true;
}

Batch::~Batch()
{
    for (const Staged& staged : staged_)
        dropStaged(staged.fd, staged.named);
}

Batch::Use::Use(Batch& batch) : previous_(std::exchange(batchInUse, &batch)) {}

Batch::Use::~Use()
{
    batchInUse = previous_;
}

void Batch::stage(Staged staged)
{
    std::vector<Staged> full;
    {
        std::lock_guard lock(mutex_);
        staged_.push_back(std::move(staged));
        if (staged_.size() >= kStagedLimit)
            full.swap(staged_);
    }
    if (!full.empty())
        complete(std::move(full));
}

QHash<QString, QString> Batch::finish()
{
    std::vector<Staged> rest;
    {
        std::lock_guard lock(mutex_);
        rest.swap(staged_);
    }
    complete(std::move(rest));
    std::lock_guard lock(mutex_);
    return std::exchange(failed_, {});
}

void Batch::complete(std::vector<Staged> staged)
{
    // One flush per file system: syncfs writes back every new file on it (and
    // reports a write-back error any of them had) before any rename is made.
    QHash<dev_t, int> flushed;  // device -> errno of its flush (0: flushed)
    QHash<QString, QString> failed;
    QStringList folders;
    for (Staged& file : staged) {
        struct stat info {};
        int error = ::fstat(file.fd, &info) == 0 ? 0 : errno;
        if (!error) {
            auto found = flushed.constFind(info.st_dev);
            if (found == flushed.cend())
                found = flushed.insert(info.st_dev, ::syncfs(file.fd) == 0 ? 0 : (errno ? errno : EIO));
            error = *found;
        }
        QString problem = error ? QStringLiteral("Cannot write ") + quoted(file.target) + QStringLiteral(": ") +
                                      reason(error) + '.'
                                : renameOver(file.fd, file.named, file.target);
        dropStaged(file.fd, file.named);
        if (problem.isEmpty()) {
            if (const QString folder = parentOf(file.target); !folders.contains(folder))
                folders << folder;
        } else {
            failed.insert(file.target, problem);
        }
    }
    for (const QString& folder : folders)
        syncFolder(folder);
    std::lock_guard lock(mutex_);
    failed_.insert(failed);
}

bool writeFile(const QString& path, const QByteArray& contents, QString* error)
{
    Replacement file(path);
    const bool ok = file.create() && file.write(contents) && file.commit();
    if (!ok && error)
        *error = file.errorString();
    return ok;
}

WorkFolder::WorkFolder(const QString& target) : target_(resolvedTarget(target))
{
    QByteArray pattern = native(parentOf(target_) + QStringLiteral("/.velmora-XXXXXX"));
    if (injected(Step::Create, target_)) {
        error_ = QStringLiteral("Cannot write into the folder of ") + quoted(target_) + QStringLiteral(": ") +
                 reason(EIO) + '.';
        return;
    }
    if (::mkdtemp(pattern.data()))
        folder_ = QFile::decodeName(pattern);
    else
        error_ = QStringLiteral("Cannot write into the folder of ") + quoted(target_) + QStringLiteral(": ") +
                 reason(errno) + '.';
}

WorkFolder::~WorkFolder()
{
    if (!folder_.isEmpty())
        QDir(folder_).removeRecursively();
}

QString WorkFolder::fileFor() const
{
    return folder_ + QLatin1Char('/') + QFileInfo(target_).fileName();
}

bool WorkFolder::copyTarget()
{
    const int fd = ::open(native(fileFor()).constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) {
        error_ = QStringLiteral("Cannot write into the folder of ") + quoted(target_) + QStringLiteral(": ") +
                 reason(errno) + '.';
        return false;
    }
    const bool ok = !injected(Step::Write, target_) && copyInto(target_, fd, &error_);
    if (!ok && error_.isEmpty())
        error_ = QStringLiteral("Cannot write ") + quoted(target_) + QStringLiteral(": ") + reason(ENOSPC) + '.';
    ::close(fd);
    return ok;
}

bool WorkFolder::place(const QString& made, const std::function<QString(const QString&)>& check)
{
    if (!isValid())
        return false;
    if (injected(Step::Check, target_)) {
        error_ = QStringLiteral("The new version of ") + quoted(target_) +
                 QStringLiteral(" did not read back as written; the file was left as it was.");
        return false;
    }
    if (check) {
        if (const QString problem = check(made); !problem.isEmpty()) {
            error_ = problem;
            return false;
        }
    }
    struct stat info {};
    const mode_t mode = ::stat(native(target_).constData(), &info) == 0 ? info.st_mode & 07777 : newFileMode();
    const int fd = ::open(native(made).constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    const bool synced = fd >= 0 && !injected(Step::Sync, target_) && ::fchmod(fd, mode) == 0 && ::fsync(fd) == 0;
    const int saved = errno;
    if (fd >= 0)
        ::close(fd);
    if (!synced) {
        error_ = QStringLiteral("Cannot write ") + quoted(target_) + QStringLiteral(": ") + reason(saved ? saved : EIO) +
                 '.';
        return false;
    }
    if (injected(Step::Rename, target_) || ::rename(native(made).constData(), native(target_).constData()) != 0) {
        error_ = QStringLiteral("Cannot replace ") + quoted(target_) + QStringLiteral(": ") +
                 reason(errno ? errno : EIO) + '.';
        return false;
    }
    syncFolder(parentOf(target_));
    return true;
}

} // namespace SafeFile
