#include "VantorEntrustPushHub.h"

#include <QMutexLocker>
#include <QReadWriteLock>
#include "VantorLogging.h"

#include <algorithm>
#include <iterator>
#include <memory>

namespace {
using PlainEntrustPushFunc = void (*)(const QMap<QString, QVariant>&);

// The plain function a callback wraps; null for anything else.
PlainEntrustPushFunc plainFunction(const VantorEntrustPushHub::EntrustPushFunc& func)
{
    const auto target = func.target<PlainEntrustPushFunc>();
    return target ? *target : nullptr;
}

// Slot callables replaced on a thread while that thread is inside a slot callback. They
// live until the outermost such call returns, so that a callback may replace its own slot
// without being destroyed while it runs.
struct ReplacedSlot {
    virtual ~ReplacedSlot() = default;
    std::unique_ptr<ReplacedSlot> next;
};

template <typename Func>
struct ReplacedCallable : ReplacedSlot {
    explicit ReplacedCallable(Func f)
        : func(std::move(f))
    {
    }
    Func func;
};

thread_local int t_slotCallDepth = 0;
thread_local std::unique_ptr<ReplacedSlot> t_replacedSlots;

struct SlotCall {
    SlotCall() { ++t_slotCallDepth; }
    ~SlotCall()
    {
        if (--t_slotCallDepth == 0) {
            const std::unique_ptr<ReplacedSlot> replaced = std::move(t_replacedSlots);
        }
    }
    SlotCall(const SlotCall&) = delete;
    SlotCall& operator=(const SlotCall&) = delete;
};

template <typename Func>
void replaceSlot(Func func, Func& slot)
{
    std::swap(slot, func);
    if (t_slotCallDepth == 0 || !func)
        return;
    auto replaced = std::make_unique<ReplacedCallable<Func>>(std::move(func));
    replaced->next = std::move(t_replacedSlots);
    t_replacedSlots = std::move(replaced);
}

template <typename Func>
void fillSlot(Func&& func, Func& slot, std::atomic<bool>& flag)
{
    if (!func)
        return;
    replaceSlot(std::move(func), slot);
    flag.store(true, std::memory_order_release);
}
} // namespace

thread_local std::vector<VantorEntrustPushHub::Dispatch*> VantorEntrustPushHub::t_dispatches;

VantorEntrustPushHub::VantorEntrustPushHub() = default;

VantorEntrustPushHub::Dispatch* VantorEntrustPushHub::dispatchOnThisThread() const
{
    for (Dispatch* d : t_dispatches) {
        if (d->hub == this)
            return d;
    }
    return nullptr;
}

bool VantorEntrustPushHub::RegisterEntrustPushFunc(EntrustPushFunc func, bool add)
{
    if (Dispatch* dispatch = dispatchOnThisThread()) {
        // This thread holds the read lock for the push it is handing out: the change waits
        // for the end of that push. The answer is the one it will have then.
        std::vector<PlainEntrustPushFunc> keys;
        {
            keys.reserve(m_entrustPushFuncs.size());
            for (const EntrustPushFunc& f : m_entrustPushFuncs)
                keys.push_back(plainFunction(f));
        }
        for (const Change& c : dispatch->changes) {
            const PlainEntrustPushFunc key = plainFunction(c.func);
            if (!c.add)
                keys.erase(std::remove(keys.begin(), keys.end(), key), keys.end());
            else if (std::find(keys.begin(), keys.end(), key) == keys.end())
                keys.push_back(key);
        }
        const bool answer = !add || std::find(keys.begin(), keys.end(), plainFunction(func)) == keys.end();
        dispatch->changes.push_back({std::move(func), add});
        return answer;
    }
    return applyChange(std::move(func), add);
}

bool VantorEntrustPushHub::applyChange(EntrustPushFunc func, bool add)
{
    const PlainEntrustPushFunc key = plainFunction(func);
    const auto isEqual = [key](const EntrustPushFunc& f) { return plainFunction(f) == key; };
    QWriteLocker locker(&m_entrustPushLock);
    if (add) {
        if (std::any_of(m_entrustPushFuncs.cbegin(), m_entrustPushFuncs.cend(), isEqual))
            return false;
        m_entrustPushFuncs.push_back(std::move(func));
        return true;
    }
    m_entrustPushFuncs.erase(std::remove_if(m_entrustPushFuncs.begin(), m_entrustPushFuncs.end(), isEqual),
                             m_entrustPushFuncs.end());
    return true;
}

void VantorEntrustPushHub::RegisterFileTraderEntrustPushFunc(EntrustPushFunc entrust, OrderResponsePushFunc response)
{
    fillSlot(std::move(entrust), m_fileTraderEntrustPush, m_fileTraderEntrustPushSet);
    fillSlot(std::move(response), m_fileTraderOrderResponsePush, m_fileTraderOrderResponsePushSet);
}

void VantorEntrustPushHub::RegisterMQEntrustPushFunc(EntrustPushFunc entrust, OrderResponsePushFunc response)
{
    fillSlot(std::move(entrust), m_mqEntrustPush, m_mqEntrustPushSet);
    fillSlot(std::move(response), m_mqOrderResponsePush, m_mqOrderResponsePushSet);
}

void VantorEntrustPushHub::RegisterMQNetDataFunc(NetDataFunc func)
{
    replaceSlot(std::move(func), m_mqNetData);
}

void VantorEntrustPushHub::ProcessEntrustPush(const QMap<QString, QVariant>& push)
{
    if (dispatchOnThisThread()) {
        // A push handed out from inside a callback: this thread already holds the read lock,
        // and the list cannot change until it lets go.
        for (const EntrustPushFunc& func : m_entrustPushFuncs) {
            if (func)
                func(push);
        }
        return;
    }
    Dispatch dispatch{this, {}};
    // However the callbacks leave, even by an exception: unlisted again, and, once the
    // read lock is let go, the registrations they made take effect.
    struct Listed {
        VantorEntrustPushHub* hub;
        Dispatch* d;
        Listed(VantorEntrustPushHub* owner, Dispatch* dispatch)
            : hub(owner)
            , d(dispatch)
        {
            t_dispatches.push_back(d);
        }
        ~Listed()
        {
            t_dispatches.erase(std::find(t_dispatches.begin(), t_dispatches.end(), d));
            for (Change& c : d->changes)
                hub->applyChange(std::move(c.func), c.add);
        }
    } listed(this, &dispatch);
    QReadLocker locker(&m_entrustPushLock);
    for (const EntrustPushFunc& func : m_entrustPushFuncs) {
        if (func)
            func(push);
    }
}

void VantorEntrustPushHub::ProcessEntrustPushToMQ(const QMap<QString, QVariant>& push) const
{
    const SlotCall call;
    if (m_mqEntrustPushSet.load(std::memory_order_acquire))
        m_mqEntrustPush(push);
    if (m_fileTraderEntrustPushSet.load(std::memory_order_acquire))
        m_fileTraderEntrustPush(push);
}

void VantorEntrustPushHub::ProcessOrderResponsePushToMQ(const QVariant& response) const
{
    const SlotCall call;
    if (m_mqOrderResponsePushSet.load(std::memory_order_acquire))
        m_mqOrderResponsePush(response);
    if (m_fileTraderOrderResponsePushSet.load(std::memory_order_acquire))
        m_fileTraderOrderResponsePush(response);
}

void VantorEntrustPushHub::SendMQNetData(const QString& a, const QVariant& b, const QVariant& c) const
{
    const SlotCall call;
    m_mqNetData(a, b, c);
}
