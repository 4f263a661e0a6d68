#include "PresenterTransports.h"

#include "CDataBase.h"
#include "TcpTransport.h"
#include "UnavailableTransport.h"

#include <QHash>
#include <QMutex>

namespace {
struct Registry {
    QMutex mutex;
    std::shared_ptr<IPresenterTransport> override;
    PresenterTransports::Factory factory;
    QHash<QString, std::shared_ptr<IPresenterTransport>> byAddress;
};

Registry& registry()
{
    static Registry r;
    return r;
}

std::shared_ptr<IPresenterTransport> defaultFactory(const QString& address)
{
    if (address.isEmpty())
        return std::make_shared<UnavailableTransport>(QStringLiteral("未配置交易网关地址"));
    return std::make_shared<TcpTransport>(address);
}
} // namespace

std::shared_ptr<IPresenterTransport> PresenterTransports::forAddress(const QString& address)
{
    Registry& r = registry();
    QMutexLocker locker(&r.mutex);
    if (r.override)
        return r.override;
    const QString key = address.isEmpty() ? defaultAddress() : address;
    auto it = r.byAddress.find(key);
    if (it != r.byAddress.end())
        return it.value();
    auto transport = r.factory ? r.factory(key) : defaultFactory(key);
    if (!transport)
        transport = defaultFactory(key);
    r.byAddress.insert(key, transport);
    return transport;
}

void PresenterTransports::setOverride(std::shared_ptr<IPresenterTransport> transport)
{
    Registry& r = registry();
    QMutexLocker locker(&r.mutex);
    r.override = std::move(transport);
}

std::shared_ptr<IPresenterTransport> PresenterTransports::override()
{
    Registry& r = registry();
    QMutexLocker locker(&r.mutex);
    return r.override;
}

void PresenterTransports::setFactory(Factory factory)
{
    Registry& r = registry();
    QMutexLocker locker(&r.mutex);
    r.factory = std::move(factory);
    r.byAddress.clear();
}

QString PresenterTransports::defaultAddress()
{
    const QString fromEnv = qEnvironmentVariable("VANTOR_GATEWAY");
    if (!fromEnv.isEmpty())
        return fromEnv;
    return CDataBase::GetInstance()->GetStaticCfgValue(QStringLiteral("Gateway"), QStringLiteral("address"));
}

unsigned long PresenterTransports::defaultTimeoutMs()
{
    bool ok = false;
    const qlonglong ms = qEnvironmentVariable("VANTOR_REQUEST_TIMEOUT_MS").toLongLong(&ok);
    return ok && ms > 0 ? static_cast<unsigned long>(ms) : 10000UL;
}
