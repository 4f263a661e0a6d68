#pragma once

#include "VantorPlatformGlobal.h"

#include <QString>

// The application directory: VANTOR_APP_DIR when set, otherwise the directory of the
// running executable. Every path below the application directory is built from it.
class VANTORPLATFORM_EXPORT VantorAppDir
{
public:
    static QString path();
    // path() joined with a relative path ("cfg/static-config.json", "/res/templates/").
    static QString filePath(const QString& relative);
};
