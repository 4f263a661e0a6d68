#include "VantorUtils.h"

#include "VantorUtils_p.h"

#include "business/VantorQuantityRules.h"

QList<int> VantorUtils::SplitBigNumIntoSmallNumList(qint64 total, int maxPiece, int minPiece)
{
    return VantorQuantityRules::SplitBigNumIntoSmallNumList(total, maxPiece, minPiece);
}
