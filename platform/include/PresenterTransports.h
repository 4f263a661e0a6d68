#pragma once

#include "IPresenterTransport.h"

#include <functional>
#include <memory>

// Chooses the transport of presenters: one shared transport per gateway address, made by
// the installed factory, unless a process-wide override is installed (tests, tools that
// embed a scripted or in-process gateway).
class VANTORPLATFORM_EXPORT PresenterTransports
{
public:
    using Factory = std::function<std::shared_ptr<IPresenterTransport>(const QString& address)>;

    // The transport for an address (empty: defaultAddress()); created on first use.
    static std::shared_ptr<IPresenterTransport> forAddress(const QString& address = QString());

    // While set, every presenter without a transport of its own uses this one.
    static void setOverride(std::shared_ptr<IPresenterTransport> transport);
    static std::shared_ptr<IPresenterTransport> override();

    // Replaces the factory; cached transports are dropped.
    static void setFactory(Factory factory);

    // VANTOR_GATEWAY (host:port), else the "Gateway" section's "address" of the static
    // configuration, else empty.
    static QString defaultAddress();
    // VANTOR_REQUEST_TIMEOUT_MS when it holds a positive number, else 10 000 ms.
    static unsigned long defaultTimeoutMs();
};
