#pragma once

#include "VantorGlobal.h"
#include "VantorTypes.h"

// An INI settings file that keeps comments beside its keys, with groups, import and export.
class VANTORUTILS_EXPORT VantorSettings;
