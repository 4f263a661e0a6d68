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

    // Creates a one-shot timer for `obj` when `timerId` is empty and writes its id ("0",
    // "1", ... per object) into `timerId`; then starts the named timer for `msec` unless it
    // is already running (a running timer keeps its first deadline). `obj` must also be a
    // QObject; the timer is its child and fires on its thread.
    static void OnceTimer(int msec, IOnceTimerBase* obj, QString& timerId);
    // Stops the named timer of `obj`; true if such a timer was found.
    static bool StopOnceTimer(IOnceTimerBase* obj, const QString& timerId);

    // ---- Table files ----

    // ---- Numbers, formulas, maps and strings ----

    // ---- Screens, passwords, versions, paths and downloads ----
};
