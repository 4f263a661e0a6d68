#pragma once

#include "VantorGlobal.h"
#include "VantorTypes.h"

class LmPresenterClass;
class LmPluginBaseWidget;
class QWidget;

// The library's front door for plug-ins: static functions that forward to the private
// singleton. Nothing here throws; failures come back as return values and error texts.
class VANTORUTILS_EXPORT VantorUtils
{
public:
    // ---- Server requests ----

    // ---- Events, business messages and order pushes ----

    // ---- Once timers ----

    // ---- Table files ----

    // ---- Numbers, formulas, maps and strings ----

    // Splits a large order quantity into child quantities of at most maxPiece, in order,
    // with no last piece below minPiece when that can be avoided: (1050, 500, 100) gives
    // 500, 450, 100. A maxPiece that is not positive leaves the total in one piece.
    static QList<int> SplitBigNumIntoSmallNumList(qint64 total, int maxPiece, int minPiece);

    // ---- Screens, passwords, versions, paths and downloads ----
};
