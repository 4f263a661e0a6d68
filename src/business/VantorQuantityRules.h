#pragma once

#include "VantorTypes.h"

#include <QList>

// Arithmetic of order quantities: the quantity rounding, sellable quantities by board lot
// and minimum, the spread of a total over several holdings, the split of a large order
// into child orders, and today's profit of a position. Stateless; safe from any thread.
class VantorQuantityRules
{
public:
    // A floating-point quantity as a whole number: truncated toward zero after nudging it by
    // 0.000001 away from zero, which absorbs representation error of whole quantities but
    // does not round halves (2.5 gives 2, -0.5 gives 0). NaN gives 0; values beyond the
    // 64-bit range saturate.
    static qint64 roundQty(double x);

    static qint64 GetSoldableQty(double wanted, double available, int step, int minimum);
    static QList<qint64> GetSoldableQtyList(double total, const QList<double>& availableList, int step,
                                            int minimum, SoldQtyAllocStrategy strategy);
    static qint64 GetFloorByStepAndMinLimit(double value, int step, int minimum);
    static QList<int> SplitBigNumIntoSmallNumList(qint64 total, int maxPiece, int minPiece);

    static double calcTodayProfit(qint64 heldQty, double lastPrice, double preClosePrice, qint64 buyQty,
                                  double buyAmount, qint64 sellQty, double sellAmount);
    static double calcTodayProfitRate(QString& errorText, const double& first, const double& todayProfit,
                                      const double& third, const double& fourth);

    // The most pieces a split hands out; a larger split is refused (an empty list).
    static constexpr qint64 MaxSplitPieces = 1 << 24;

private:
    static qint64 usableStep(int step, const char* caller);
    static qint64 sellableBelowHolding(qint64 wanted, qint64 available, qint64 step, int minimum);
};
