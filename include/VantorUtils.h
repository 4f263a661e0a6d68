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

    // ---- Screens, passwords, versions, paths and downloads ----
};
