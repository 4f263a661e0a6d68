#pragma once

#include "VantorGlobal.h"
#include "VantorTypes.h"

// Runs one server function on the calling thread: packs the request, sends it through
// the presenter, pages through the reply, retries failures and time-outs, honours a
// total time limit and an external stop.
class VANTORUTILS_EXPORT IVantorQueryExecuteItem;
