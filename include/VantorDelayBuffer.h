#pragma once

#include "VantorGlobal.h"
#include "VantorTypes.h"

// Collects values and hands them over in batches at a fixed interval.
class VANTORUTILS_EXPORT VantorDelayBuffer;
