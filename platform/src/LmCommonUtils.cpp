#include "LmCommonUtils.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

bool LmCommonUtils::DelDir(const QString& path)
{
    if (path.isEmpty())
        return false;
    // A link to a folder is removed itself; what it points at belongs to someone else.
    if (QFileInfo(path).isSymLink())
        return QFile::remove(path);
    QDir dir(path);
    if (!dir.exists())
        return true;
    return dir.removeRecursively();
}
