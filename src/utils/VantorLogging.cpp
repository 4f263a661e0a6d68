#include "VantorLogging.h"

Q_LOGGING_CATEGORY(lcQuery, "vantor.query")
Q_LOGGING_CATEGORY(lcTiming, "vantor.timing")
Q_LOGGING_CATEGORY(lcTables, "vantor.tables")
Q_LOGGING_CATEGORY(lcMonitor, "vantor.monitor")
Q_LOGGING_CATEGORY(lcBusiness, "vantor.business")
Q_LOGGING_CATEGORY(lcUtils, "vantor.utils")
Q_LOGGING_CATEGORY(lcWidgets, "vantor.widgets")
