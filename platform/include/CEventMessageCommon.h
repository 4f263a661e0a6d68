#pragma once

#include "CMessageCommon.h"

// The envelope of an event put on the client's event bus.
class VANTORPLATFORM_EXPORT CEventMessageCommon : public CMessageCommon
{
public:
    CEventMessageCommon() = default;
    ~CEventMessageCommon() override;
};
