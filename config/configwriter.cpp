#include "config/configwriter.h"

#include "config/csvimporter.h"
#include "config/utf8streambuf.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <ostream>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The file a path stands for once its links are followed; a dangling link
// stands for the file it names. Empty for links that go round in a loop.
QString followLinks(const QString& path)
{
    QFileInfo info(path);
    for (int hops = 0; info.isSymLink(); ++hops) {
        if (hops == 40)
            return QString();
        info.setFile(info.symLinkTarget());
    }
    return info.absoluteFilePath();
}

} // namespace

CConfigWriter::Result CConfigWriter::Save(CTreeItemRoot& root, const QString& path, bool plain)
{
    const Result result = Replace(path, [&root, plain](QIODevice& device) {
        CUtf8StreamBuf buffer(&device, !plain);
        std::wostream out(&buffer);
        const bool exported = CCsvLoader(&root).Export(out);
        return buffer.finish() && exported && out.good();
    });
    // The plain form has one step only: whatever fails, the writer failed.
    return plain && result == NotPlaced ? NotWritten : result;
}

CConfigWriter::Result CConfigWriter::Replace(const QString& path, const std::function<bool(QIODevice&)>& fill)
{
    const QString targetPath = followLinks(path);
    if (targetPath.isEmpty())
        return NotWritten;
    const QByteArray target = QFile::encodeName(targetPath);
    const QByteArray folder = QFile::encodeName(QFileInfo(targetPath).absolutePath());
    const QByteArray pending = QFile::encodeName(PendingName(targetPath));

    struct stat old;
    const bool exists = ::stat(target.constData(), &old) == 0;
    if (exists && (!S_ISREG(old.st_mode) || !(old.st_mode & (S_IWUSR | S_IWGRP | S_IWOTH)) ||
                   ::access(target.constData(), W_OK) != 0))
        return NotWritten;

    // An unnamed file leaves nothing behind if the program dies while writing.
    int fd = ::open(folder.constData(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0666);
    const bool named = fd < 0 && (errno == EOPNOTSUPP || errno == EISDIR || errno == EINVAL);
    if (named) {
        ::unlink(pending.constData());
        fd = ::open(pending.constData(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0666);
    }
    if (fd < 0)
        return NotWritten;
    if (exists) {
        // The new file is the saver's: it gets the old one's owner and group
        // where the saver may give them (root may, anyone for a group of
        // theirs), so that a service keeps its file. Then the mode, which a
        // change of owner may have cut.
        [[maybe_unused]] const bool owned =
            ::fchown(fd, old.st_uid, old.st_gid) == 0 || ::fchown(fd, uid_t(-1), old.st_gid) == 0;
        ::fchmod(fd, old.st_mode & 07777);
    }

    bool written;
    {
        // Unbuffered, so that a short write (a full disk) shows in its answer.
        QFile device;
        written =
            device.open(fd, QIODevice::WriteOnly | QIODevice::Unbuffered, QFileDevice::DontCloseHandle) &&
            fill(device) && ::fsync(fd) == 0;
    }
    if (!written) {
        ::close(fd);
        if (named)
            ::unlink(pending.constData());
        return NotWritten;
    }
    if (!named) {
        ::unlink(pending.constData());
        char self[64];
        std::snprintf(self, sizeof self, "/proc/self/fd/%d", fd);
        if (::linkat(AT_FDCWD, self, AT_FDCWD, pending.constData(), AT_SYMLINK_FOLLOW) != 0) {
            ::close(fd);
            return NotPlaced;
        }
    }
    ::close(fd);
    if (::rename(pending.constData(), target.constData()) != 0) {
        ::unlink(pending.constData());
        return NotPlaced;
    }
    // The rename is on disk once the folder is.
    const int dir = ::open(folder.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir >= 0) {
        ::fsync(dir);
        ::close(dir);
    }
    return Saved;
}

QString CConfigWriter::PendingName(const QString& target)
{
    const QFileInfo info(target);
    return info.absolutePath() + "/." + info.fileName() + ".saving";
}
