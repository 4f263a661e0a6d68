#pragma once

#include "VantorPlatformGlobal.h"

#include <QReadWriteLock>
#include <QString>

// Business state of the logged-in session: the account and its type. Both are empty
// before login; the runtime (or a test) sets them.
class VANTORPLATFORM_EXPORT CBusinessDataBase
{
public:
    static CBusinessDataBase* GetInstance();

    QString GetLoginAccount() const;
    void SetLoginAccount(const QString& account);
    QString GetLoginAccountType() const;
    void SetLoginAccountType(const QString& type);

private:
    CBusinessDataBase() = default;

    mutable QReadWriteLock m_lock;
    QString m_loginAccount;
    QString m_loginAccountType;
};
