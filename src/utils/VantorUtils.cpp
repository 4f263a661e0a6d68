#include "VantorUtils.h"

#include "VantorUtils_p.h"
#include "timing/OnceTimerManager.h"

// ---- Once timers ----

void VantorUtils::OnceTimer(int msec, IOnceTimerBase* obj, QString& timerId)
{
    OnceTimerManager::instance()->OnceTimer(msec, obj, timerId);
}

bool VantorUtils::StopOnceTimer(IOnceTimerBase* obj, const QString& timerId)
{
    return OnceTimerManager::instance()->StopOnceTimer(obj, timerId);
}
