#include "SiblingTempFile.h"

#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>

#include <cerrno>
#include <climits>
#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The file a name finally stands for: a symbolic link is followed, as far as it goes, so
// that rewriting through a link replaces the file it points to and keeps the link.
QString followLinks(const QString& name)
{
    QFileInfo info(name);
    for (int depth = 0; depth < 40 && info.isSymLink(); ++depth)
        info.setFile(info.symLinkTarget());
    return info.isSymLink() ? name : info.filePath();
}

} // namespace

SiblingTempFile::SiblingTempFile(const QString& target)
    : m_target(followLinks(target))
{
}

SiblingTempFile::~SiblingTempFile()
{
    if (!m_committed && !m_path.isEmpty())
        QFile::remove(m_path);
}

bool SiblingTempFile::create()
{
    const QFileInfo info(m_target);
    struct stat existing;
    const QByteArray target = QFile::encodeName(m_target);
    const bool replaces = ::stat(target.constData(), &existing) == 0 && S_ISREG(existing.st_mode);
    // A file its owner made read-only, or one this user may not write, is not replaced
    // behind their back (as QSaveFile refuses it too).
    if (replaces && ((existing.st_mode & 0222) == 0 || ::access(target.constData(), W_OK) != 0)) {
        m_readOnly = true;
        return false;
    }
    // The temporary name adds a dot before the target's name and a dot and six letters
    // after it; a target name near the length limit is cut to leave room for them.
    QString base = info.fileName();
    while (base.size() > 1 && QFile::encodeName(base).size() > NAME_MAX - 8)
        base.chop(base.size() > 2 && base.at(base.size() - 1).isLowSurrogate() ? 2 : 1);
    static const char kLetters[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    for (int attempt = 0; attempt < 100; ++attempt) {
        QString name = info.absolutePath() + QLatin1String("/.") + base + QLatin1Char('.');
        for (int i = 0; i < 6; ++i)
            name += QLatin1Char(kLetters[QRandomGenerator::global()->bounded(int(sizeof(kLetters) - 1))]);
        // Made as any new file is (the user's umask applies), or with the permissions of the
        // file it is going to replace.
        const int fd = ::open(QFile::encodeName(name).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd < 0) {
            if (errno == EEXIST)
                continue;
            return false;
        }
        if (replaces)
            ::fchmod(fd, existing.st_mode & 0777);
        ::close(fd);
        m_path = name;
        return true;
    }
    return false;
}

bool SiblingTempFile::commit()
{
    if (m_path.isEmpty())
        return false;
    const QByteArray from = QFile::encodeName(m_path);
    const QByteArray to = QFile::encodeName(m_target);
    if (std::rename(from.constData(), to.constData()) != 0)
        return false;
    m_committed = true;
    return true;
}
