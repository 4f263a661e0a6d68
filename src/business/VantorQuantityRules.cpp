#include "VantorQuantityRules.h"

#include "VantorLogging.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <limits>

qint64 VantorQuantityRules::roundQty(double x)
{
    const double nudged = x < -1e-10 ? x - 0.000001 : x + 0.000001;
    if (std::isnan(nudged))
        return 0;
    // 2^63 is exactly representable; anything at or beyond it does not fit.
    constexpr double limit = 9223372036854775808.0;
    if (nudged >= limit)
        return std::numeric_limits<qint64>::max();
    if (nudged <= -limit)
        return std::numeric_limits<qint64>::min();
    return static_cast<qint64>(nudged); // truncates toward zero
}

namespace {

// The remainder of a quantity by a step, as integer division truncating toward zero gives
// it; a step of -1 leaves none (the smallest quantity divided by -1 would not fit).
qint64 remainderOf(qint64 quantity, qint64 step)
{
    return step == -1 ? 0 : quantity % step;
}

// What remains of a quantity once a part is taken, held at the 64-bit limits instead of
// wrapping when saturated holdings meet.
qint64 minusSaturated(qint64 quantity, qint64 part)
{
    qint64 rest = 0;
    if (!__builtin_sub_overflow(quantity, part, &rest))
        return rest;
    return part < 0 ? std::numeric_limits<qint64>::max() : std::numeric_limits<qint64>::min();
}

} // namespace

// A board-lot step of zero cannot divide a quantity; it is taken as a step of one unit so
// that a caller's mistake costs a log line instead of the process.
qint64 VantorQuantityRules::usableStep(int step, const char* caller)
{
    if (step != 0)
        return step;
    qCWarning(lcBusiness).noquote() << caller << QStringLiteral("整手步长为0，按1处理");
    return 1;
}

// What may be sold of a holding when less than all of it is wanted: whole steps of the
// wanted quantity, except that the holding's odd lot goes with the order in place of the
// part of the wanted quantity above its last whole step, when that part reaches it.
qint64 VantorQuantityRules::sellableBelowHolding(qint64 wanted, qint64 available, qint64 step, int minimum)
{
    if (wanted < minimum)
        return 0;
    const qint64 oddLot = remainderOf(available, step);
    const qint64 wantedOver = remainderOf(wanted, step);
    if (oddLot != 0 && wantedOver >= oddLot)
        return wanted - wantedOver + oddLot;
    return wanted - wantedOver;
}

qint64 VantorQuantityRules::GetSoldableQty(double wanted, double available, int step, int minimum)
{
    const qint64 w = roundQty(wanted);
    const qint64 a = roundQty(available);
    if (w >= a)
        return a;
    return sellableBelowHolding(w, a, usableStep(step, "VantorBusiUtils::GetSoldableQty"), minimum);
}

qint64 VantorQuantityRules::GetFloorByStepAndMinLimit(double value, int step, int minimum)
{
    const qint64 v = roundQty(value);
    if (v < minimum)
        return 0;
    return v - remainderOf(v, usableStep(step, "VantorBusiUtils::GetFloorByStepAndMinLimit"));
}

QList<qint64> VantorQuantityRules::GetSoldableQtyList(double total, const QList<double>& availableList, int step,
                                                      int minimum, SoldQtyAllocStrategy strategy)
{
    QList<qint64> result;
    if (strategy != SoldQtyAllocSequential && strategy != SoldQtyAllocRoundLot)
        return result;
    const qint64 lot = usableStep(step, "VantorBusiUtils::GetSoldableQtyList");
    qint64 remaining = roundQty(total);
    result.reserve(availableList.size());
    for (double available : availableList) {
        const qint64 a = roundQty(available);
        if (strategy == SoldQtyAllocSequential) {
            const qint64 q = remaining >= a ? a : sellableBelowHolding(remaining, a, lot, minimum);
            result.append(q);
            remaining = minusSaturated(remaining, q);
            continue;
        }
        // Whole steps only: each holding gives its whole steps while the total lasts; the
        // part of the total below one step is dropped, and the minimum does not apply.
        const qint64 wholeSteps = a - remainderOf(a, lot);
        if (remaining >= wholeSteps) {
            result.append(wholeSteps);
            remaining = minusSaturated(remaining, wholeSteps);
        } else if (remaining < 1) {
            result.append(0);
        } else {
            result.append(remaining - remainderOf(remaining, lot));
            remaining = 0;
        }
    }
    return result;
}

QList<int> VantorQuantityRules::SplitBigNumIntoSmallNumList(qint64 total, int maxPiece, int minPiece)
{
    // A single piece must be an int itself; a total that is not has no answer but refusal.
    const bool fitsInt = total >= INT_MIN && total <= INT_MAX;
    if (total <= maxPiece || maxPiece <= 0) {
        if (maxPiece <= 0)
            qCWarning(lcBusiness).noquote() << "VantorUtils::SplitBigNumIntoSmallNumList"
                                            << QStringLiteral("单笔最大数量%1无效，不拆分").arg(maxPiece);
        if (!fitsInt) {
            qCWarning(lcBusiness).noquote() << "VantorUtils::SplitBigNumIntoSmallNumList"
                                            << QStringLiteral("数量%1超出单笔范围").arg(total);
            return {};
        }
        return {static_cast<int>(total)};
    }
    const qint64 n = total / maxPiece;
    if (n > MaxSplitPieces) {
        qCWarning(lcBusiness).noquote() << "VantorUtils::SplitBigNumIntoSmallNumList"
                                        << QStringLiteral("拆分笔数%1超过上限%2").arg(n).arg(MaxSplitPieces);
        return {};
    }
    // A minimum above the maximum no piece can meet: the pieces are then cut at the
    // maximum alone, never made negative or larger than it.
    if (minPiece > maxPiece) {
        qCWarning(lcBusiness).noquote() << "VantorUtils::SplitBigNumIntoSmallNumList"
                                        << QStringLiteral("单笔最小数量%1大于单笔最大数量%2，按不限最小数量拆分")
                                               .arg(minPiece)
                                               .arg(maxPiece);
        minPiece = 0;
    }
    const qint64 maxP = maxPiece;
    if (n == 1) {
        const qint64 rest = total - maxP;
        if (rest >= minPiece)
            return {maxPiece, static_cast<int>(rest)};
        return {static_cast<int>(total - minPiece), minPiece};
    }
    QList<int> pieces;
    pieces.reserve(static_cast<int>(n + 1));
    for (qint64 i = 0; i < n - 1; ++i)
        pieces.append(maxPiece);
    // What is left lies between one and two maximum pieces; it never ends in a piece
    // smaller than the minimum when the minimum can be met.
    const qint64 rest = total - (n - 1) * maxP;
    if (rest == maxP) {
        pieces.append(maxPiece);
    } else if (rest >= maxP + minPiece) {
        pieces.append(maxPiece);
        pieces.append(static_cast<int>(rest - maxP));
    } else {
        pieces.append(static_cast<int>(rest - minPiece));
        pieces.append(minPiece);
    }
    return pieces;
}

double VantorQuantityRules::calcTodayProfit(qint64 heldQty, double lastPrice, double preClosePrice, qint64 buyQty,
                                            double buyAmount, qint64 sellQty, double sellAmount)
{
    return double(buyQty) * lastPrice - buyAmount + (lastPrice - preClosePrice) * double(heldQty)
        + (sellAmount - double(sellQty) * preClosePrice);
}

double VantorQuantityRules::calcTodayProfitRate(QString& errorText, const double& first, const double& todayProfit,
                                                const double& third, const double& fourth)
{
    const double base = first - todayProfit;
    const double delta = third - fourth;
    const double denominator = base - delta + std::max(delta, 0.0);
    if (!(denominator > 1e-10)) {
        errorText = QStringLiteral("持仓金额为0");
        return 0;
    }
    return todayProfit / denominator;
}
