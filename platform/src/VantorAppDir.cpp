#include "VantorAppDir.h"

#include <QCoreApplication>
#include <QDir>

QString VantorAppDir::path()
{
    const QString overridden = qEnvironmentVariable("VANTOR_APP_DIR");
    if (!overridden.isEmpty())
        return QDir::cleanPath(overridden);
    if (QCoreApplication::instance())
        return QCoreApplication::applicationDirPath();
    return QDir::currentPath();
}

QString VantorAppDir::filePath(const QString& relative)
{
    QString rel = relative;
    while (rel.startsWith(QLatin1Char('/')))
        rel.remove(0, 1);
    return QDir(path()).filePath(rel);
}
