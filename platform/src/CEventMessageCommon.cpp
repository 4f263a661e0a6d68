#include "CEventMessageCommon.h"

CEventMessageCommon::~CEventMessageCommon() = default;
