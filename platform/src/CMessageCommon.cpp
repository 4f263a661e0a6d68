#include "CMessageCommon.h"

CMessageCommon::~CMessageCommon() = default;
