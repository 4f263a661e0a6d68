#include "VantorEntrustPushHub.h"

#include <QMutexLocker>
#include <QReadWriteLock>
#include "VantorLogging.h"

#include <algorithm>
#include <iterator>

namespace {
using PlainEntrustPushFunc = void (*)(const QMap<QString, QVariant>&);

// The plain function a callback wraps; null for anything else.
PlainEntrustPushFunc plainFunction(const VantorEntrustPushHub::EntrustPushFunc& func)
{
    const auto target = func.target<PlainEntrustPushFunc>();
    return target ? *target : nullptr;
}

template <typename Func>
void fillSlot(Func&& func, Func& slot, std::atomic<bool>& flag)
{
    if (!func)
        return;
    slot = std::move(func);
    flag.store(true, std::memory_order_release);
}
} // namespace

VantorEntrustPushHub::VantorEntrustPushHub()
    : m_entrustPushList(new EntrustPushList)
{
}

bool VantorEntrustPushHub::RegisterEntrustPushFunc(EntrustPushFunc func, bool add)
{
    const PlainEntrustPushFunc key = plainFunction(func);
    QWriteLocker locker(&m_entrustPushLock);
    const std::vector<EntrustPushFunc>& current = m_entrustPushList->funcs;
    const auto isEqual = [key](const EntrustPushFunc& f) { return plainFunction(f) == key; };

    if (add) {
        if (!func) {
            qCWarning(lcQuery).noquote() << "VantorEntrustPushHub::RegisterEntrustPushFunc" << "回调函数为空，不予注册";
            return false;
        }
        if (std::any_of(current.cbegin(), current.cend(), isEqual))
            return false;
        auto next = new EntrustPushList;
        next->funcs.reserve(current.size() + 1);
        next->funcs = current;
        next->funcs.push_back(std::move(func));
        m_entrustPushList = QExplicitlySharedDataPointer<const EntrustPushList>(next);
        return true;
    }

    auto next = new EntrustPushList;
    std::remove_copy_if(current.cbegin(), current.cend(), std::back_inserter(next->funcs), isEqual);
    m_entrustPushList = QExplicitlySharedDataPointer<const EntrustPushList>(next);
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
    m_mqNetData = std::move(func);
}

void VantorEntrustPushHub::ProcessEntrustPush(const QMap<QString, QVariant>& push) const
{
    QExplicitlySharedDataPointer<const EntrustPushList> list;
    {
        QReadLocker locker(&m_entrustPushLock);
        list = m_entrustPushList;
    }
    for (const EntrustPushFunc& func : list->funcs)
        func(push);
}

void VantorEntrustPushHub::ProcessEntrustPushToMQ(const QMap<QString, QVariant>& push) const
{
    if (m_mqEntrustPushSet.load(std::memory_order_acquire))
        m_mqEntrustPush(push);
    if (m_fileTraderEntrustPushSet.load(std::memory_order_acquire))
        m_fileTraderEntrustPush(push);
}

void VantorEntrustPushHub::ProcessOrderResponsePushToMQ(const QVariant& response) const
{
    if (m_mqOrderResponsePushSet.load(std::memory_order_acquire))
        m_mqOrderResponsePush(response);
    if (m_fileTraderOrderResponsePushSet.load(std::memory_order_acquire))
        m_fileTraderOrderResponsePush(response);
}

void VantorEntrustPushHub::SendMQNetData(const QString& a, const QVariant& b, const QVariant& c) const
{
    m_mqNetData(a, b, c);
}
