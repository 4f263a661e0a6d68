#include "LmPresenterClassMgr.h"

#include <CMessageCommon.h>
#include <LmPresenterClass.h>

#include <memory>

LmPresenterClassMgr::LmPresenterClassMgr(QObject* parent)
    : QObject(parent)
{
}

void LmPresenterClassMgr::setPresenter(LmPresenterClass* presenter)
{
    QWriteLocker locker(&m_lock);
    m_presenter.store(presenter, std::memory_order_release);
}

QString LmPresenterClassMgr::pluginPid() const
{
    QReadLocker locker(&m_lock);
    LmPresenterClass* const presenter = m_presenter.load(std::memory_order_relaxed);
    return presenter ? presenter->pluginPid() : QString();
}

int LmPresenterClassMgr::sendRequest(CMessageCommon* msg, QVariant& reply, unsigned long timeout) const
{
    QReadLocker locker(&m_lock);
    LmPresenterClass* const presenter = m_presenter.load(std::memory_order_relaxed);
    if (!presenter) {
        delete msg;
        return NoPresenter;
    }
    return presenter->sendRequest_Sync_Block(msg, reply, timeout);
}
