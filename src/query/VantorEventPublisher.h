#pragma once

#include <QString>
#include <QVariant>

class LmPresenterClass;

// Puts events on the client's event bus: named events, business messages for the
// message centre and records of user operations. A null presenter means the library's
// default presenter.
class VantorEventPublisher
{
public:
    static int SendEventMsg(LmPresenterClass* presenter, int msgId, const QVariant& data);
    static int SendEventMsg(LmPresenterClass* presenter, const QString& key, const QVariant& data);
    static void PutBusiMsg(LmPresenterClass* presenter, const QString& level, const QString& text,
                           const QString& type, const QString& subType, const QString& itemName,
                           const QString& itemValue, const QString& tradingAccount);
    static void RecordWidgetOperation(const QString& object, const QString& type, const QString& text,
                                      const QString& status, const QString& menu);

private:
    static void putEvent(LmPresenterClass* presenter, const QVariant& type, const QVariant& msg);
};
