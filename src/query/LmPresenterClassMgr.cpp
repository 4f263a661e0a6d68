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
    m_presenter = presenter;
}

QString LmPresenterClassMgr::pluginPid() const
{
    QReadLocker locker(&m_lock);
    return m_presenter ? m_presenter->pluginPid() : QString();
}

int LmPresenterClassMgr::sendRequest(CMessageCommon* msg, QVariant& reply, unsigned long timeout) const
{
    QReadLocker locker(&m_lock);
    if (!m_presenter) {
        delete msg;
        return NoPresenter;
    }
    return m_presenter->sendRequest_Sync_Block(msg, reply, timeout);
}
