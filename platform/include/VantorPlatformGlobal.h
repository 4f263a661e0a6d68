#pragma once

#include <QtCore/qglobal.h>

#if defined(VANTORPLATFORM_BUILDING)
#define VANTORPLATFORM_EXPORT Q_DECL_EXPORT
#else
#define VANTORPLATFORM_EXPORT Q_DECL_IMPORT
#endif
