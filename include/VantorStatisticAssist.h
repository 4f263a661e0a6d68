#pragma once

#include "VantorGlobal.h"
#include "VantorTypes.h"

#include <QList>

// A sliding window of the most recent samples of a measured quantity (response times,
// for example) with its maximum, minimum and mean at constant cost per sample, and a flag
// that says whether enough samples were gathered for the figures to be trusted.
class VANTORUTILS_EXPORT VantorStatisticAssist
{
public:
    // maxCount 0: unbounded window. validMinCount is clamped to at most maxCount; 0 means
    // the figures are always valid.
    explicit VantorStatisticAssist(int maxCount = 0, int validMinCount = 0);
    VantorStatisticAssist(const VantorStatisticAssist& other) = default;
    VantorStatisticAssist(VantorStatisticAssist&& other) = default;
    VantorStatisticAssist& operator=(const VantorStatisticAssist& other) = default;
    VantorStatisticAssist& operator=(VantorStatisticAssist&& other) = default;
    ~VantorStatisticAssist() = default;

    // Adds a sample; a full window drops its oldest sample first (one per call).
    void AppendData(double value);
    // Empties the window and resets the figures; the two counts are kept.
    void ClearAllData();

    // The figures; `valid` (when given) tells whether the window holds enough samples.
    // An empty window answers the lowest finite double as maximum and the largest as
    // minimum.
    double GetMaxData(bool* valid = nullptr) const;
    double GetMinData(bool* valid = nullptr) const;
    double GetAvgData(bool* valid = nullptr) const;

    bool IsQueueFull() const;
    // Stores the new length only: the window is not trimmed at once.
    void SetMaxCount(int maxCount);
    // Stores min(validMinCount, max count): an unbounded window cannot get a threshold.
    void SetValidMinCount(int validMinCount);

private:
    bool checkValidation() const;
    void recalcMinMaxValue(double added, double removed);
    void reset();

    QList<double> m_data;
    int m_maxCount = 0;
    int m_validMinCount = 0;
    double m_max;
    double m_min;
    double m_avg = 0;
    double m_sum = 0;
};
