#pragma once

#include "VantorGlobal.h"
#include "VantorTypes.h"

// Records and answers the initialisation states of the client modules.
class VANTORUTILS_EXPORT VantorInitStateMgr;
