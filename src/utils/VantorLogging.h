#pragma once

#include <QLoggingCategory>

// One category per subsystem. Every line starts with the class-qualified function name:
//   qCInfo(lcQuery).noquote() << "IVantorQueryExecuteItem::run" << text;
Q_DECLARE_LOGGING_CATEGORY(lcQuery)
Q_DECLARE_LOGGING_CATEGORY(lcTiming)
Q_DECLARE_LOGGING_CATEGORY(lcTables)
Q_DECLARE_LOGGING_CATEGORY(lcMonitor)
Q_DECLARE_LOGGING_CATEGORY(lcBusiness)
Q_DECLARE_LOGGING_CATEGORY(lcUtils)
Q_DECLARE_LOGGING_CATEGORY(lcWidgets)
