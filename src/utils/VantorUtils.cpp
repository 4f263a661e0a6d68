#include "VantorUtils.h"

#include "VantorUtils_p.h"
