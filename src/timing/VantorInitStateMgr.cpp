#include "VantorInitStateMgr.h"

#include <QMutexLocker>
#include <QReadWriteLock>
#include "VantorLogging.h"

VantorInitStateMgr* VantorInitStateMgr::instance()
{
    static VantorInitStateMgr mgr;
    return &mgr;
}

VantorInitStateMgr::VantorInitStateMgr() = default;

VantorInitStateMgr::~VantorInitStateMgr() = default;

bool VantorInitStateMgr::canStateReinit(InitState state)
{
    return state == NotInit || state == InitFailed || state == InitPartFailed || state == InitPending;
}

bool VantorInitStateMgr::StartInit(const QString& type)
{
    if (!CanReinit(type))
        return false;
    QWriteLocker locker(&m_lock);
    m_states.insert(type, Initing);
    qCDebug(lcTiming).noquote() << "VantorInitStateMgr::StartInit" << type << int(Initing);
    return true;
}

bool VantorInitStateMgr::FinishInit(const QString& type, bool ok, bool complete)
{
    const InitState state = !ok ? InitFailed : (complete ? InitSucceeded : InitPending);
    QWriteLocker locker(&m_lock);
    m_states.insert(type, state);
    qCDebug(lcTiming).noquote() << "VantorInitStateMgr::FinishInit" << type << int(state);
    return true;
}

bool VantorInitStateMgr::SuspendInit(const QString& type)
{
    QWriteLocker locker(&m_lock);
    m_states.insert(type, InitPartFailed);
    qCDebug(lcTiming).noquote() << "VantorInitStateMgr::SuspendInit" << type << int(InitPartFailed);
    return true;
}

bool VantorInitStateMgr::Reset(const QString& type)
{
    QWriteLocker locker(&m_lock);
    const auto it = m_states.find(type);
    if (it == m_states.end() || it.value() == Initing)
        return false;
    it.value() = NotInit;
    qCDebug(lcTiming).noquote() << "VantorInitStateMgr::Reset" << type << int(NotInit);
    return true;
}

bool VantorInitStateMgr::CanReinit(const QString& type)
{
    QReadLocker locker(&m_lock);
    const auto it = m_states.constFind(type);
    return it == m_states.constEnd() || canStateReinit(it.value());
}

VantorInitStateMgr::InitState VantorInitStateMgr::GetInitState(const QString& type)
{
    QReadLocker locker(&m_lock);
    return m_states.value(type, NotInit);
}

QString VantorInitStateMgr::GetInitStateName(const QString& type)
{
    const InitState state = GetInitState(type);
    switch (state) {
    case NotInit:
        return QStringLiteral("未初始化");
    case Initing:
        return QStringLiteral("正在初始化");
    case InitFailed:
        return QStringLiteral("初始化失败");
    case InitPartFailed:
        return QStringLiteral("初始化部分失败");
    case InitPending:
        return QStringLiteral("待定");
    case InitSucceeded:
        return QStringLiteral("初始化成功");
    }
    return QString();
}

bool VantorInitStateMgr::HasType(const QString& type)
{
    QReadLocker locker(&m_lock);
    return m_states.contains(type);
}

bool VantorInitStateMgr::IsInited(const QString& type)
{
    QReadLocker locker(&m_lock);
    return m_states.value(type, NotInit) == InitSucceeded;
}
