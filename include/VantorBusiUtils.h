#pragma once

#include "VantorGlobal.h"
#include "VantorTypes.h"

// Trading business rules: exchange and symbol dictionaries, side unions, order states,
// sellable-quantity allocation and profit. All static; the dictionaries are loaded once
// from the static configuration on first use.
class VANTORUTILS_EXPORT VantorBusiUtils
{
public:
};
