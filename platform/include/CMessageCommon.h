#pragma once

#include "VantorPlatformGlobal.h"

#include <QString>
#include <QVariant>

// A message envelope: the packed message, its type (a function id or an event id) and
// the id of the plug-in that sends it.
class VANTORPLATFORM_EXPORT CMessageCommon
{
public:
    CMessageCommon() = default;
    virtual ~CMessageCommon();

    void SetMsg(const QVariant& msg) { m_msg = msg; }
    void SetType(const QVariant& type) { m_type = type; }
    void SetSrcid(const QString& srcId) { m_srcId = srcId; }

    const QVariant& GetMsg() const { return m_msg; }
    const QVariant& GetType() const { return m_type; }
    const QString& GetSrcid() const { return m_srcId; }

private:
    QVariant m_msg;
    QVariant m_type;
    QString m_srcId;
};
