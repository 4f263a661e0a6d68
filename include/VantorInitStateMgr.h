#pragma once

#include "VantorGlobal.h"
#include "VantorTypes.h"

#include <QHash>
#include <QReadWriteLock>
#include <QString>

// Records, per named kind of data or service, how far its initialisation has got, so that
// several plug-ins that need the same data load it once, can ask whether it is ready and
// may retry after a failure. A type never seen reads as NotInit.
class VANTORUTILS_EXPORT VantorInitStateMgr
{
public:
    enum InitState {
        NotInit = 0,        // "未初始化"
        Initing = 1,        // "正在初始化"
        InitFailed = 2,     // "初始化失败"
        InitPartFailed = 3, // "初始化部分失败"
        InitPending = 4,    // "待定"
        InitSucceeded = 5,  // "初始化成功"
    };

    static VantorInitStateMgr* instance();

    // Starts an initialisation unless one is running or one has succeeded. The test and
    // the change are two separate steps: callers that start at the same moment may both
    // be let through.
    bool StartInit(const QString& type);
    // Failed when !ok, succeeded when ok && complete, pending when ok && !complete.
    bool FinishInit(const QString& type, bool ok, bool complete);
    // Marks the type as partly failed, whatever its state (also while initialising).
    bool SuspendInit(const QString& type);
    // Back to NotInit; refused for an unknown type and while initialising.
    bool Reset(const QString& type);

    bool CanReinit(const QString& type);
    InitState GetInitState(const QString& type);
    QString GetInitStateName(const QString& type);
    bool HasType(const QString& type);
    bool IsInited(const QString& type);

    VantorInitStateMgr(const VantorInitStateMgr&) = delete;
    VantorInitStateMgr& operator=(const VantorInitStateMgr&) = delete;

private:
    VantorInitStateMgr();
    ~VantorInitStateMgr();

    static bool canStateReinit(InitState state);

    QReadWriteLock m_lock;
    QHash<QString, InitState> m_states;
};
