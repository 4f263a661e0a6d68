#include "PlatformLogging.h"

Q_LOGGING_CATEGORY(lcPlatform, "vantor.platform")
