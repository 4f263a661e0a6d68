#include "GatewayLogging.h"

Q_LOGGING_CATEGORY(lcGateway, "vantor.gateway")
