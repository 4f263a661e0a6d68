#pragma once

#include "VantorPlatformGlobal.h"

#include <QMap>
#include <QReadWriteLock>
#include <QString>
#include <QVariant>

// The platform core: process-wide common info, per-user settings, the order station,
// the local-network flag and the cached application version.
class VANTORPLATFORM_EXPORT LmCore
{
public:
    enum SettingScope { SystemScope = 0, UserScope = 1 };

    static LmCore* instance();

    QVariant getCommonInfo(const QString& key) const;
    void setCommonInfo(const QString& key, const QVariant& value);

    // User settings live in an INI file in the per-user folder (<app dir>/cfg/user-settings.ini
    // for the system scope, <app dir>/cfg/<account>/user-settings.ini for the user scope).
    QVariant settings(const QString& key, const QVariant& defaultValue = QVariant(),
                      const QString& group = QString(), SettingScope scope = UserScope) const;
    void setSettings(const QString& key, const QVariant& value, const QString& group = QString(),
                     SettingScope scope = UserScope);
    QString settingsFilePath(SettingScope scope) const;

    // The base order-station string, from the "OrderStation" section of the static
    // configuration unless the runtime has set one.
    QString getOrderStation() const;
    void setOrderStation(const QString& station);

    bool IsLocalNet() const;
    void setLocalNet(bool localNet);

    static QString GetAppVersion();
    static void SetAppVersion(const QString& version);

private:
    LmCore();

    mutable QReadWriteLock m_lock;
    QMap<QString, QVariant> m_commonInfo;
    QString m_orderStation;
    bool m_orderStationSet = false;
    int m_localNet = -1; // -1: not decided yet, read from configuration
};
