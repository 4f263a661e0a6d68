#include "VantorEventPublisher.h"

#include "VantorUtils_p.h"

#include <CEventMessageCommon.h>
#include <CPackMessageCommon.h>
#include <KorvoKeys.h>
#include <LmCore.h>
#include <LmPresenterClass.h>
#include <VantorConstants.h>
#include <VantorFields.h>
#include <ZentraFields.h>

#include <QTime>

void VantorEventPublisher::putEvent(LmPresenterClass* presenter, const QVariant& type, const QVariant& msg)
{
    LmPresenterClass* target = presenter ? presenter : VantorUtils_p::instance()->defaultPresenter();
    auto event = new CEventMessageCommon;
    event->SetType(type);
    event->SetSrcid(target->pluginPid());
    event->SetMsg(msg);
    target->PutEvent(target->pluginPid(), event);
}

int VantorEventPublisher::SendEventMsg(LmPresenterClass* presenter, int msgId, const QVariant& data)
{
    putEvent(presenter, QVariant(msgId), data);
    return 0;
}

int VantorEventPublisher::SendEventMsg(LmPresenterClass* presenter, const QString& key, const QVariant& data)
{
    return SendEventMsg(presenter, VantorUtils_p::instance()->eventIds().GetKorvoEventMsgIdByStr(key), data);
}

void VantorEventPublisher::PutBusiMsg(LmPresenterClass* presenter, const QString& level, const QString& text,
                                      const QString& type, const QString& subType, const QString& itemName,
                                      const QString& itemValue, const QString& tradingAccount)
{
    CPackMessageCommon pack;
    pack.AddVaule(Vantor_Fields::System::BusiMsgLevel, level);
    pack.AddVaule(Vantor_Fields::System::BusiMsgType, type);
    pack.AddVaule(Vantor_Fields::System::BusiMsgSubType, subType);
    pack.AddVaule(Zentra_Fields::System::textDescription, text);
    pack.AddVaule(Vantor_Fields::System::itemName, itemName);
    pack.AddVaule(Vantor_Fields::System::itemValue, itemValue);
    if (!tradingAccount.isEmpty())
        pack.AddVaule(Zentra_Fields::UserAccount::tradingAccount, tradingAccount);

    const int msgId =
        VantorUtils_p::instance()->eventIds().GetKorvoEventMsgIdByStr(Korvo_Keys::EventMsgName::BUSI_MSG_ADD);
    putEvent(presenter, QVariant(msgId), pack.GetPackedMsg(false));
}

void VantorEventPublisher::RecordWidgetOperation(const QString& object, const QString& type, const QString& text,
                                                 const QString& status, const QString& menu)
{
    const QString menuText =
        menu.isEmpty() ? LmCore::instance()->getCommonInfo(Constants::CURRENT_MENU).toString() : menu;

    QVariantMap operation;
    operation.insert(QStringLiteral("object"), object);
    operation.insert(QStringLiteral("type"), type);
    operation.insert(QStringLiteral("text"), text);
    operation.insert(QStringLiteral("time"), QTime::currentTime().toString(QStringLiteral("hh:mm:ss.zzz")));
    if (!status.isEmpty())
        operation.insert(QStringLiteral("status"), status);

    QVariantMap record;
    record.insert(Vantor_Fields::System::itemType, Zentra_Values::ClinetInfoUpload::UserOperRecord);
    record.insert(Vantor_Fields::System::itemValue, menuText);
    record.insert(Vantor_Fields::System::itemValueEx, operation);

    // Operation records always go through the library's own presenter.
    putEvent(nullptr, QVariant(VantorEventMsgID::CLIENT_INFO_UPLOAD), record);
}
