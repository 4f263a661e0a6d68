#include "LmCommonUtils.h"

#include <QDir>

bool LmCommonUtils::DelDir(const QString& path)
{
    if (path.isEmpty())
        return false;
    QDir dir(path);
    if (!dir.exists())
        return true;
    return dir.removeRecursively();
}
