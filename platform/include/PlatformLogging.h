#pragma once

#include "VantorPlatformGlobal.h"

#include <QLoggingCategory>

VANTORPLATFORM_EXPORT Q_DECLARE_LOGGING_CATEGORY(lcPlatform)
