#include "CDataBase.h"

#include "PlatformLogging.h"
#include "VantorAppDir.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QLocale>

#include <cmath>

static void initPlatformResources()
{
    Q_INIT_RESOURCE(platform_resources);
}

CDataBase* CDataBase::GetInstance()
{
    static CDataBase instance;
    return &instance;
}

CDataBase::CDataBase()
{
    initPlatformResources();
    reload();
}

QString CDataBase::embeddedDefaultPath()
{
    return QStringLiteral(":/vantor/static-config.json");
}

void CDataBase::reload()
{
    const QString fromEnv = qEnvironmentVariable("VANTOR_STATIC_CONFIG");
    if (!fromEnv.isEmpty()) {
        if (QFileInfo::exists(fromEnv)) {
            loadFile(fromEnv);
            return;
        }
        // No file there: the lookup goes on as if the variable were not set.
        qCWarning(lcPlatform).noquote() << "CDataBase::reload" << "no static configuration at" << fromEnv
                                        << "(VANTOR_STATIC_CONFIG) - looking further";
    }
    const QString inAppDir = VantorAppDir::filePath(QStringLiteral("cfg/static-config.json"));
    if (QFileInfo::exists(inAppDir)) {
        loadFile(inAppDir);
        return;
    }
    loadEmbedded();
}

bool CDataBase::loadFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        qCWarning(lcPlatform).noquote() << "CDataBase::loadFile" << "cannot open static configuration" << path
                                        << file.errorString() << "- using the embedded default";
        loadEmbedded();
        return false;
    }
    QMap<QString, QMap<QString, QString>> sections;
    if (!parse(file.readAll(), path, sections)) {
        loadEmbedded();
        return false;
    }
    QWriteLocker locker(&m_lock);
    m_sections = std::move(sections);
    m_source = path;
    return true;
}

void CDataBase::loadEmbedded()
{
    QFile file(embeddedDefaultPath());
    QMap<QString, QMap<QString, QString>> sections;
    if (!file.open(QIODevice::ReadOnly) || !parse(file.readAll(), file.fileName(), sections))
        qCCritical(lcPlatform).noquote() << "CDataBase::loadEmbedded" << "the embedded default configuration is unusable";
    QWriteLocker locker(&m_lock);
    m_sections = std::move(sections);
    m_source = embeddedDefaultPath();
}

// A number as it is usually written: whole numbers in full (1000000, not 1e+06), so that
// readers that take the text as an integer get it; others in their shortest form.
static QString numberText(double value)
{
    constexpr double exactIntegers = 9007199254740992.0; // 2^53
    if (std::trunc(value) == value && std::fabs(value) <= exactIntegers)
        return QString::number(qint64(value));
    return QString::number(value, 'g', QLocale::FloatingPointShortest);
}

bool CDataBase::parse(const QByteArray& json, const QString& origin,
                      QMap<QString, QMap<QString, QString>>& out) const
{
    QJsonParseError error{};
    const QJsonDocument doc = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError || !doc.isObject()) {
        qCWarning(lcPlatform).noquote() << "CDataBase::parse" << "malformed static configuration" << origin
                                        << (error.error != QJsonParseError::NoError ? error.errorString()
                                                                                    : QStringLiteral("top level is not an object"))
                                        << "at offset" << error.offset << "- using the embedded default";
        return false;
    }
    const QJsonObject root = doc.object();
    for (auto sec = root.begin(); sec != root.end(); ++sec) {
        if (!sec.value().isObject()) {
            qCWarning(lcPlatform).noquote() << "CDataBase::parse" << "section" << sec.key() << "of" << origin
                                            << "is not an object; skipped";
            continue;
        }
        QMap<QString, QString>& values = out[sec.key()];
        const QJsonObject obj = sec.value().toObject();
        for (auto it = obj.begin(); it != obj.end(); ++it) {
            const QJsonValue v = it.value();
            if (v.isString())
                values.insert(it.key(), v.toString());
            else if (v.isDouble())
                values.insert(it.key(), numberText(v.toDouble()));
            else if (v.isBool())
                values.insert(it.key(), v.toBool() ? QStringLiteral("1") : QStringLiteral("0"));
            else if (v.isArray())
                values.insert(it.key(), QString::fromUtf8(QJsonDocument(v.toArray()).toJson(QJsonDocument::Compact)));
            else if (v.isObject())
                values.insert(it.key(), QString::fromUtf8(QJsonDocument(v.toObject()).toJson(QJsonDocument::Compact)));
            else
                values.insert(it.key(), QString());
        }
    }
    return true;
}

QMap<QString, QString> CDataBase::GetStaticValuesBySection(const QString& section) const
{
    QReadLocker locker(&m_lock);
    return m_sections.value(section);
}

QString CDataBase::GetStaticCfgValue(const QString& section, const QString& key) const
{
    QReadLocker locker(&m_lock);
    const auto sec = m_sections.constFind(section);
    return sec == m_sections.cend() ? QString() : sec->value(key);
}

QStringList CDataBase::sections() const
{
    QReadLocker locker(&m_lock);
    return m_sections.keys();
}

QString CDataBase::source() const
{
    QReadLocker locker(&m_lock);
    return m_source;
}
