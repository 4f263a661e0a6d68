#pragma once

#include "VantorGlobal.h"
#include "VantorTypes.h"

// Keeps current and historical resource data of the machine and a weighted health score.
class VANTORUTILS_EXPORT VantorSystemMonitor;
