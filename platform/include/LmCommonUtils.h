#pragma once

#include "VantorPlatformGlobal.h"

#include <QString>

class VANTORPLATFORM_EXPORT LmCommonUtils
{
public:
    // Deletes a directory and everything below it; false when something was left behind.
    static bool DelDir(const QString& path);
};
