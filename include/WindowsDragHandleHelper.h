#pragma once

#include "VantorGlobal.h"
#include "VantorTypes.h"

// Lets a frameless window be dragged by designated child widgets.
class VANTORUTILS_EXPORT WindowsDragHandleHelper;
