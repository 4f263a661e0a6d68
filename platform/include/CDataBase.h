#pragma once

#include "VantorPlatformGlobal.h"

#include <QMap>
#include <QReadWriteLock>
#include <QString>

// The static configuration store: named sections of key/value texts read from a JSON
// file { "Section": { "key": "value", ... }, ... }. The file is, in this order, the path
// in VANTOR_STATIC_CONFIG, <app dir>/cfg/static-config.json, or the embedded default.
// A file that cannot be read or parsed is logged and the embedded default is used.
class VANTORPLATFORM_EXPORT CDataBase
{
public:
    static CDataBase* GetInstance();

    // All key/value pairs of one section, ordered by key; empty when the section is missing.
    QMap<QString, QString> GetStaticValuesBySection(const QString& section) const;
    // One value; empty when the section or the key is missing.
    QString GetStaticCfgValue(const QString& section, const QString& key) const;
    QStringList sections() const;

    // Reloads from the lookup order above (tests change the environment and reload).
    void reload();
    // Loads the given JSON file; false (and the embedded default) when it is unusable.
    bool loadFile(const QString& path);
    // Where the current sections came from: a file path or ":/vantor/static-config.json".
    QString source() const;

    static QString embeddedDefaultPath();

private:
    CDataBase();
    bool parse(const QByteArray& json, const QString& origin, QMap<QString, QMap<QString, QString>>& out) const;
    void loadEmbedded();

    mutable QReadWriteLock m_lock;
    QMap<QString, QMap<QString, QString>> m_sections;
    QString m_source;
};
