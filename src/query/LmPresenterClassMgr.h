#pragma once

#include <QObject>
#include <QReadWriteLock>
#include <QString>
#include <QVariant>

#include <atomic>

class CMessageCommon;
class LmPresenterClass;

// Holds an executor's presenter behind a read-write lock, so that the presenter can be
// swapped from one thread while another sends through it.
class LmPresenterClassMgr : public QObject
{
    Q_OBJECT
public:
    // Answer of send() when no presenter has been set.
    static constexpr int NoPresenter = -3;

    explicit LmPresenterClassMgr(QObject* parent = nullptr);

    void setPresenter(LmPresenterClass* presenter);
    // The presenter's plug-in id; empty without a presenter.
    QString pluginPid() const;
    // Blocking send through the presenter, which takes the message. The read lock is held
    // for the whole send. Without a presenter the message is freed and NoPresenter returned.
    int sendRequest(CMessageCommon* msg, QVariant& reply, unsigned long timeout) const;
    // Read without the lock, only good for telling whether a presenter is set. Atomic,
    // since another thread may set the presenter as a run begins.
    LmPresenterClass* presenterUnlocked() const { return m_presenter.load(std::memory_order_acquire); }

private:
    std::atomic<LmPresenterClass*> m_presenter{nullptr};
    mutable QReadWriteLock m_lock;
};
