#include "CBusinessDataBase.h"

CBusinessDataBase* CBusinessDataBase::GetInstance()
{
    static CBusinessDataBase instance;
    return &instance;
}

QString CBusinessDataBase::GetLoginAccount() const
{
    QReadLocker locker(&m_lock);
    return m_loginAccount;
}

void CBusinessDataBase::SetLoginAccount(const QString& account)
{
    QWriteLocker locker(&m_lock);
    m_loginAccount = account;
}

QString CBusinessDataBase::GetLoginAccountType() const
{
    QReadLocker locker(&m_lock);
    return m_loginAccountType;
}

void CBusinessDataBase::SetLoginAccountType(const QString& type)
{
    QWriteLocker locker(&m_lock);
    m_loginAccountType = type;
}
