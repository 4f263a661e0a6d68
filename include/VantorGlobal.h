#pragma once

#include <QtCore/qglobal.h>

#if defined(VANTORUTILS_BUILDING)
#define VANTORUTILS_EXPORT Q_DECL_EXPORT
#else
#define VANTORUTILS_EXPORT Q_DECL_IMPORT
#endif
