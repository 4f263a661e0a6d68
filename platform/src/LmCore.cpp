#include "LmCore.h"

#include "CBusinessDataBase.h"
#include "CDataBase.h"
#include "PlatformLogging.h"
#include "VantorAppDir.h"

#include <QDir>
#include <QFileInfo>
#include <QSettings>

namespace {
QReadWriteLock g_versionLock;
QString g_appVersion;
} // namespace

LmCore* LmCore::instance()
{
    static LmCore core;
    return &core;
}

LmCore::LmCore() = default;

QVariant LmCore::getCommonInfo(const QString& key) const
{
    QReadLocker locker(&m_lock);
    return m_commonInfo.value(key);
}

void LmCore::setCommonInfo(const QString& key, const QVariant& value)
{
    QWriteLocker locker(&m_lock);
    m_commonInfo.insert(key, value);
}

QString LmCore::settingsFilePath(SettingScope scope) const
{
    QString dir = QStringLiteral("cfg");
    if (scope == UserScope) {
        const QString account = CBusinessDataBase::GetInstance()->GetLoginAccount();
        dir += QLatin1Char('/') + (account.isEmpty() ? QStringLiteral("default") : account);
    }
    return VantorAppDir::filePath(dir + QStringLiteral("/user-settings.ini"));
}

static QString settingKey(const QString& group, const QString& key)
{
    return group.isEmpty() ? key : group + QLatin1Char('/') + key;
}

QVariant LmCore::settings(const QString& key, const QVariant& defaultValue, const QString& group,
                          SettingScope scope) const
{
    QSettings ini(settingsFilePath(scope), QSettings::IniFormat);
    return ini.value(settingKey(group, key), defaultValue);
}

void LmCore::setSettings(const QString& key, const QVariant& value, const QString& group, SettingScope scope)
{
    const QString path = settingsFilePath(scope);
    QDir().mkpath(QFileInfo(path).absolutePath());
    QSettings ini(path, QSettings::IniFormat);
    ini.setValue(settingKey(group, key), value);
    ini.sync();
    if (ini.status() != QSettings::NoError)
        qCWarning(lcPlatform).noquote() << "LmCore::setSettings" << "cannot write the settings file" << path << "-"
                                        << settingKey(group, key) << "is not kept";
}

QString LmCore::getOrderStation() const
{
    {
        QReadLocker locker(&m_lock);
        if (m_orderStationSet)
            return m_orderStation;
    }
    return CDataBase::GetInstance()->GetStaticCfgValue(QStringLiteral("OrderStation"), QStringLiteral("station"));
}

void LmCore::setOrderStation(const QString& station)
{
    QWriteLocker locker(&m_lock);
    m_orderStation = station;
    m_orderStationSet = true;
}

bool LmCore::IsLocalNet() const
{
    {
        QReadLocker locker(&m_lock);
        if (m_localNet >= 0)
            return m_localNet == 1;
    }
    return CDataBase::GetInstance()->GetStaticCfgValue(QStringLiteral("OrderStation"), QStringLiteral("localNet")) ==
           QLatin1String("1");
}

void LmCore::setLocalNet(bool localNet)
{
    QWriteLocker locker(&m_lock);
    m_localNet = localNet ? 1 : 0;
}

QString LmCore::GetAppVersion()
{
    QReadLocker locker(&g_versionLock);
    return g_appVersion;
}

void LmCore::SetAppVersion(const QString& version)
{
    QWriteLocker locker(&g_versionLock);
    g_appVersion = version;
}
