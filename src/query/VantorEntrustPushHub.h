#pragma once

#include <QMap>
#include <QReadWriteLock>
#include <QString>
#include <QVariant>

#include <atomic>
#include <functional>
#include <vector>

// The receivers of order pushes: the entrust push callbacks that plug-ins register, and
// the single slots of the MQ bridge and of the file trader.
class VantorEntrustPushHub
{
public:
    using EntrustPushFunc = std::function<void(const QMap<QString, QVariant>&)>;
    using OrderResponsePushFunc = std::function<void(const QVariant&)>;
    using NetDataFunc = std::function<void(const QString&, const QVariant&, const QVariant&)>;

    VantorEntrustPushHub();

    // Adds or removes an entrust push callback. Two callbacks are the same when they wrap
    // the same plain function; anything else (a lambda, a bound object) counts as "no
    // function", so all such callbacks are the same, deliberately: only one can be added.
    // Adding a callback that is already there answers false; removing drops every equal
    // one and answers true. An empty callback is kept like any other and never called.
    // Safe from any thread. A removal waits for the pushes being handed out, so a removed
    // callback is not running anywhere when it returns, except when asked from inside a
    // callback: a change asked for there is made once that push is handed out.
    bool RegisterEntrustPushFunc(EntrustPushFunc func, bool add);
    // Each non-empty argument replaces its slot and enables it; an empty one leaves the
    // slot as it was. A slot's callback may replace its slot while it runs: the callable it
    // replaces lives until that call returns.
    void RegisterFileTraderEntrustPushFunc(EntrustPushFunc entrust, OrderResponsePushFunc response);
    void RegisterMQEntrustPushFunc(EntrustPushFunc entrust, OrderResponsePushFunc response);
    void RegisterMQNetDataFunc(NetDataFunc func);

    // Calls every entrust push callback in registration order, on the calling thread,
    // under the read lock.
    void ProcessEntrustPush(const QMap<QString, QVariant>& push);
    // The MQ slot first, then the file-trader slot; a slot never set is skipped.
    void ProcessEntrustPushToMQ(const QMap<QString, QVariant>& push) const;
    void ProcessOrderResponsePushToMQ(const QVariant& response) const;
    // Without a registered function this raises std::bad_function_call.
    void SendMQNetData(const QString& a, const QVariant& b, const QVariant& c) const;

private:
    struct Change {
        EntrustPushFunc func;
        bool add;
    };
    // A push this thread is handing out, with the changes its callbacks asked for.
    struct Dispatch {
        const VantorEntrustPushHub* hub;
        std::vector<Change> changes;
    };
    // The pushes this thread is handing out, innermost last.
    static thread_local std::vector<Dispatch*> t_dispatches;
    Dispatch* dispatchOnThisThread() const;
    bool applyChange(EntrustPushFunc func, bool add);

    mutable QReadWriteLock m_entrustPushLock;
    std::vector<EntrustPushFunc> m_entrustPushFuncs;

    // The slots are read without a lock: each flag is set after its slot was filled.
    EntrustPushFunc m_fileTraderEntrustPush;
    OrderResponsePushFunc m_fileTraderOrderResponsePush;
    std::atomic<bool> m_fileTraderEntrustPushSet{false};
    std::atomic<bool> m_fileTraderOrderResponsePushSet{false};
    EntrustPushFunc m_mqEntrustPush;
    OrderResponsePushFunc m_mqOrderResponsePush;
    std::atomic<bool> m_mqEntrustPushSet{false};
    std::atomic<bool> m_mqOrderResponsePushSet{false};
    NetDataFunc m_mqNetData;
};
