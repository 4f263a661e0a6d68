#include "SiblingTempFile.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryFile>

#include <cstdio>

SiblingTempFile::SiblingTempFile(const QString& target)
    : m_target(target)
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
    QTemporaryFile tmp(info.absolutePath() + QLatin1String("/.") + info.fileName() + QLatin1String(".XXXXXX"));
    tmp.setAutoRemove(false);
    if (!tmp.open())
        return false;
    m_path = tmp.fileName();
    // A temporary file is private to its owner; the finished file is not.
    tmp.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadGroup
                       | QFileDevice::ReadOther);
    tmp.close();
    return true;
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
