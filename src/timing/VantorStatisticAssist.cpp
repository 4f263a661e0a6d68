#include "VantorStatisticAssist.h"

#include "VantorLogging.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace {
constexpr double kTolerance = 1e-10;
constexpr double kLowest = std::numeric_limits<double>::lowest();
constexpr double kLargest = std::numeric_limits<double>::max();

// A negative window length has no meaning; it is taken as an unbounded window.
int checkedMaxCount(int maxCount, const char* function)
{
    if (maxCount >= 0)
        return maxCount;
    qCWarning(lcTiming).noquote() << function << "negative window length" << maxCount << "taken as unbounded";
    return 0;
}
} // namespace

VantorStatisticAssist::VantorStatisticAssist(int maxCount, int validMinCount)
    : m_maxCount(checkedMaxCount(maxCount, "VantorStatisticAssist::VantorStatisticAssist"))
    , m_validMinCount(std::min(m_maxCount, validMinCount))
    , m_max(kLowest)
    , m_min(kLargest)
{
}

void VantorStatisticAssist::AppendData(double value)
{
    double removed = 0.0;
    const bool full = m_maxCount != 0 && m_data.size() >= m_maxCount;
    if (full)
        removed = m_data.takeFirst();
    m_data.append(value);
    m_sum += value - removed;
    // A NaN or an infinity poisons the running sum even after it left the window; then,
    // as samples leave, the sum is taken afresh from the window until it is finite again.
    // A window that keeps every sample keeps the poison too: no scan could clear it.
    if (full && !std::isfinite(m_sum))
        m_sum = std::accumulate(m_data.cbegin(), m_data.cend(), 0.0);
    m_avg = m_sum / m_data.size();
    recalcMinMaxValue(value, removed);
}

void VantorStatisticAssist::ClearAllData()
{
    m_data.clear();
    reset();
}

double VantorStatisticAssist::GetMaxData(bool* valid) const
{
    if (valid)
        *valid = checkValidation();
    return m_max;
}

double VantorStatisticAssist::GetMinData(bool* valid) const
{
    if (valid)
        *valid = checkValidation();
    return m_min;
}

double VantorStatisticAssist::GetAvgData(bool* valid) const
{
    if (valid)
        *valid = checkValidation();
    return m_avg;
}

bool VantorStatisticAssist::IsQueueFull() const
{
    return m_maxCount != 0 && m_data.size() >= m_maxCount;
}

void VantorStatisticAssist::SetMaxCount(int maxCount)
{
    m_maxCount = checkedMaxCount(maxCount, "VantorStatisticAssist::SetMaxCount");
}

void VantorStatisticAssist::SetValidMinCount(int validMinCount)
{
    m_validMinCount = std::min(validMinCount, m_maxCount);
}

bool VantorStatisticAssist::checkValidation() const
{
    return m_validMinCount == 0 || m_data.size() >= m_validMinCount;
}

void VantorStatisticAssist::recalcMinMaxValue(double added, double removed)
{
    // Only a bounded window loses samples; when the one that left may have been the
    // extreme, the window is scanned once for the new one.
    if (added >= m_max - kTolerance) {
        m_max = added;
    } else if (m_maxCount >= 1 && removed >= m_max - kTolerance) {
        double max = kLowest;
        for (double v : qAsConst(m_data))
            max = std::max(max, v);
        m_max = max;
    }

    if (added <= m_min + kTolerance) {
        m_min = added;
    } else if (m_maxCount >= 1 && removed <= m_min + kTolerance) {
        double min = kLargest;
        for (double v : qAsConst(m_data))
            min = std::min(min, v);
        m_min = min;
    }
}

void VantorStatisticAssist::reset()
{
    m_max = kLowest;
    m_min = kLargest;
    m_avg = 0;
    m_sum = 0;
}
