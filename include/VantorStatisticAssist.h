#pragma once

#include "VantorGlobal.h"
#include "VantorTypes.h"

// A bounded window of samples with minimum, maximum and average.
class VANTORUTILS_EXPORT VantorStatisticAssist;
