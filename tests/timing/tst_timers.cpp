#include "timing/DelayBufferAppendSeam.h"
#include "utils/VantorLogging.h"

#include <VantorDelayBuffer.h>
#include <VantorUtils.h>

#include <QSemaphore>
#include <QSignalSpy>
#include <QTimer>
#include <QtTest>

#include <atomic>
#include <limits>
#include <thread>
#include <vector>

namespace {

// Records every id it is called back with, and the thread that called.
class Client : public QObject, public IOnceTimerBase
{
public:
    void timeout(const QString& timerId) override
    {
        fired.append(timerId);
        firedOn.append(QThread::currentThread());
    }
    QStringList fired;
    QList<QThread*> firedOn;
};

// Implements the callback without being a QObject.
struct NotAQObject : IOnceTimerBase {
    void timeout(const QString&) override {}
};

QTimer* timerOf(QObject* owner)
{
    return owner->findChild<QTimer*>(QString(), Qt::FindDirectChildrenOnly);
}

// Holds a producer at the append seam until the test lets it go.
QSemaphore g_producerHeld;
QSemaphore g_producerFree;
void holdProducer(VantorDelayBuffer*)
{
    g_producerHeld.release();
    g_producerFree.acquire();
}
} // namespace

class TestTimers : public QObject
{
    Q_OBJECT

private slots:
    void runningTimerIsNotRearmed()
    {
        Client c;
        QString id;
        VantorUtils::OnceTimer(60000, &c, id);
        QTimer* timer = timerOf(&c);
        QVERIFY(timer && timer->isActive());
        QTRY_VERIFY(timer->remainingTime() <= 59900);

        // A second call while it runs keeps the first deadline and interval.
        VantorUtils::OnceTimer(30, &c, id);
        QCOMPARE(id, QStringLiteral("0"));
        QVERIFY(timer->remainingTime() > 30000 && timer->remainingTime() <= 59900);
        QCOMPARE(timer->interval(), 60000);

        // Once it no longer runs, stopped or fired, the same id starts it with the new interval.
        QVERIFY(VantorUtils::StopOnceTimer(&c, id));
        VantorUtils::OnceTimer(30, &c, id);
        QCOMPARE(timer->interval(), 30);
        QTRY_COMPARE(c.fired, QStringList{"0"});
        VantorUtils::OnceTimer(20, &c, id);
        QCOMPARE(timer->interval(), 20);
        QTRY_COMPARE(c.fired, (QStringList{"0", "0"}));
        QCOMPARE(c.findChildren<QTimer*>().size(), 1);
    }

    void stop_data()
    {
        QTest::addColumn<QString>("id");
        QTest::addColumn<bool>("stopped");
        QTest::newRow("second timer") << "1" << true;
        QTest::newRow("first timer") << "0" << true;
        QTest::newRow("not a number") << "abc" << false;
        QTest::newRow("beyond the list") << "5" << false;
        QTest::newRow("negative") << "-1" << false;
    }

    // Ids count per object: two timers here, and the reference object's first is "0" again.
    void stop()
    {
        QFETCH(QString, id);
        QFETCH(bool, stopped);
        Client c;
        QString first, second;
        VantorUtils::OnceTimer(40, &c, first);
        VantorUtils::OnceTimer(40, &c, second);
        QCOMPARE(first, QStringLiteral("0"));
        QCOMPARE(second, QStringLiteral("1"));
        QCOMPARE(VantorUtils::StopOnceTimer(&c, id), stopped);

        // A later reference timer: once it fired, a stopped timer would have fired too.
        Client reference;
        QString refId;
        VantorUtils::OnceTimer(150, &reference, refId);
        QTRY_COMPARE(reference.fired, QStringList{"0"});
        QStringList expected{"0", "1"};
        if (stopped)
            expected.removeAll(id);
        c.fired.sort();
        QCOMPARE(c.fired, expected);
    }

    // Qt refuses a negative interval but reports such a timer as running; a later call
    // with a usable interval must still start it. The firing line is the one log readers
    // look for by its own words, with no function name in front.
    void negativeIntervalLeavesTimerUsable_data()
    {
        QTest::addColumn<int>("bad");
        QTest::newRow("minus one") << -1;
        QTest::newRow("lowest int") << std::numeric_limits<int>::min();
    }

    void negativeIntervalLeavesTimerUsable()
    {
        QFETCH(int, bad);
        Client c;
        c.setObjectName(QStringLiteral("quotes"));
        QString id;
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^OnceTimerManager::OnceTimer negative interval"));
        VantorUtils::OnceTimer(bad, &c, id);
        QCOMPARE(id, QStringLiteral("0"));
        QVERIFY(!timerOf(&c) || !timerOf(&c)->isActive());

        auto& category = const_cast<QLoggingCategory&>(lcTiming());
        const bool wasEnabled = category.isDebugEnabled();
        category.setEnabled(QtDebugMsg, true);
        QTest::ignoreMessage(QtDebugMsg, "OnceTimer timeout ,obj : quotes");
        VantorUtils::OnceTimer(20, &c, id);
        QTRY_COMPARE(c.fired, QStringList{"0"});
        category.setEnabled(QtDebugMsg, wasEnabled);
    }

    void objectThatIsNoQObjectGetsNoTimer()
    {
        NotAQObject plain;
        QString id;
        QTest::ignoreMessage(QtWarningMsg,
                             "OnceTimerManager::OnceTimer IOnceTimerBase的实现必须同时继承QObject或者其子类，否则无法正确新建和启用定时器");
        VantorUtils::OnceTimer(10, &plain, id);
        QVERIFY(id.isEmpty());
        QVERIFY(!VantorUtils::StopOnceTimer(&plain, QStringLiteral("0")));
        QVERIFY(!VantorUtils::StopOnceTimer(nullptr, QStringLiteral("0")));
    }

    // A dead object is forgotten, together with work handed to its thread that had not
    // run yet: neither its timers nor that work are reached for.
    void destroyedObjectIsForgotten()
    {
        auto c = new Client;
        IOnceTimerBase* key = c;
        QString id, handed;
        VantorUtils::OnceTimer(5000, c, id);
        QVERIFY(VantorUtils::StopOnceTimer(key, id));
        std::thread([&]() { VantorUtils::OnceTimer(1, c, handed); }).join();
        QCOMPARE(handed, QStringLiteral("1"));
        delete c;
        QVERIFY(!VantorUtils::StopOnceTimer(key, id));
        Client reference;
        QString refId;
        VantorUtils::OnceTimer(50, &reference, refId);
        QTRY_COMPARE(reference.fired, QStringList{"0"});
    }

    // Steps are "<thread>:<call>", the thread "own" or "other", the call an interval (a
    // start) or "stop"; "interval" is the running timer's, 0 when none runs. Another thread
    // gets its answer at once, while the timer is made, started, fired and stopped on the
    // object's thread, as the object's child. The calls take effect in the order they were
    // made: a later call made on the object's thread is not undone by an earlier one still
    // waiting.
    void callsTakeEffectInTheirOrder_data()
    {
        QTest::addColumn<QStringList>("steps");
        QTest::addColumn<int>("interval");
        QTest::newRow("start from another thread") << QStringList{"other:20"} << 20;
        QTest::newRow("stop after a start from another thread") << QStringList{"other:20", "own:stop"} << 0;
        QTest::newRow("own start and stop after one from another thread") << QStringList{"other:20", "own:30", "own:stop"} << 0;
        QTest::newRow("start after a stop from another thread") << QStringList{"own:60000", "other:stop", "own:20"} << 20;
        QTest::newRow("stop from another thread") << QStringList{"own:60000", "other:stop"} << 0;
        QTest::newRow("starts from another thread keep the first") << QStringList{"other:20", "other:60000"} << 20;
    }

    void callsTakeEffectInTheirOrder()
    {
        QFETCH(QStringList, steps);
        QFETCH(int, interval);
        Client c;
        QString id;
        for (const QString& step : qAsConst(steps)) {
            const QString call = step.section(':', 1);
            bool stopped = true;
            const auto act = [&]() {
                if (call == "stop")
                    stopped = VantorUtils::StopOnceTimer(&c, id);
                else
                    VantorUtils::OnceTimer(call.toInt(), &c, id);
            };
            if (step.startsWith("other"))
                std::thread(act).join();
            else
                act();
            QVERIFY2(stopped, qPrintable(step));
        }
        QCOMPARE(id, QStringLiteral("0"));
        QCoreApplication::sendPostedEvents(&c, QEvent::MetaCall);
        QTimer* timer = timerOf(&c);
        QVERIFY(timer);
        QCOMPARE(c.findChildren<QTimer*>().size(), 1);
        QCOMPARE(timer->isActive(), interval > 0);
        // Stopped for the event loop too, not only in the timer's own bookkeeping.
        QCOMPARE(QAbstractEventDispatcher::instance()->registeredTimers(timer).isEmpty(), interval == 0);
        if (interval > 0) {
            QCOMPARE(timer->interval(), interval);
            QTRY_COMPARE(c.fired, QStringList{"0"});
            QCOMPARE(c.firedOn, QList<QThread*>{c.thread()});
        }
    }

    // ---- Delay buffer ----

    void construction_data()
    {
        QTest::addColumn<int>("interval");
        QTest::addColumn<QString>("parentName"); // "-": no parent
        QTest::addColumn<int>("expectedInterval");
        QTest::addColumn<QString>("expectedName");
        QTest::newRow("zero interval") << 0 << "owner" << 1000 << "VantorDelayBuffer_owner";
        QTest::newRow("negative interval") << -20 << "owner" << 1000 << "VantorDelayBuffer_owner";
        QTest::newRow("one millisecond") << 1 << "" << 1 << "VantorDelayBuffer_";
        QTest::newRow("no parent") << 250 << "-" << 250 << "VantorDelayBuffer_";
    }

    void construction()
    {
        QFETCH(int, interval);
        QFETCH(QString, parentName);
        QObject parent;
        parent.setObjectName(parentName);
        VantorDelayBuffer buffer(parentName == "-" ? nullptr : &parent, interval);
        QTEST(buffer.Interval(), "expectedInterval");
        QTEST(buffer.objectName(), "expectedName");
    }

    // Later values and a new interval leave a running batch's deadline alone; the interval
    // is long enough that no stall of the machine lets it run out here.
    void batchLifecycle()
    {
        VantorDelayBuffer buffer(nullptr, 60000);
        QSignalSpy spy(&buffer, &VantorDelayBuffer::bufferTimeOut);
        QVERIFY(buffer.GetBufferItems().isEmpty());
        buffer.AppendItem(1);
        QTimer* timer = timerOf(&buffer);
        QVERIFY(timer && timer->isActive());
        QTRY_VERIFY(timer->remainingTime() <= 59900);
        buffer.AppendItems({2, 3});
        buffer.setInterval(20);
        QCOMPARE(buffer.Interval(), 20);
        QVERIFY(timer->isActive());
        QCOMPARE(timer->interval(), 60000);
        QVERIFY(timer->remainingTime() > 30000 && timer->remainingTime() <= 59900);

        // A clear drops the batch and its signal; the next batch runs with the new interval,
        // is signalled once and taken whole, in order.
        buffer.clear();
        QVERIFY(!timer->isActive());
        buffer.AppendItem(4);
        QCOMPARE(timer->interval(), 20);
        buffer.AppendItems({5, 6});
        QTRY_COMPARE(spy.count(), 1);
        QCOMPARE(buffer.GetBufferItems(), (QList<QVariant>{4, 5, 6}));
        QVERIFY(buffer.GetBufferItems().isEmpty());

        // A value after the signal starts a new batch.
        buffer.AppendItem(7);
        QTRY_COMPARE(spy.count(), 2);
        QCOMPARE(buffer.GetBufferItems(), QList<QVariant>{7});
    }

    // Producers on other threads append while the owner takes every batch it is signalled
    // for: each value arrives once, none is left without a signal, and the signals come on
    // the owner's thread.
    void appendsFromOtherThreads()
    {
        VantorDelayBuffer buffer(nullptr, 1);
        constexpr int producers = 4;
        constexpr int perProducer = 2000;
        QVector<int> seen(producers * perProducer, 0);
        int taken = 0;
        std::atomic<int> signalledElsewhere{0};
        connect(&buffer, &VantorDelayBuffer::bufferTimeOut, this, [&]() {
            signalledElsewhere += QThread::currentThread() != buffer.thread();
            const QList<QVariant> items = buffer.GetBufferItems();
            for (const QVariant& v : items)
                ++seen[v.toInt()];
            taken += items.size();
        }, Qt::DirectConnection);

        std::vector<std::thread> threads;
        for (int p = 0; p < producers; ++p) {
            threads.emplace_back([&buffer, p]() {
                for (int i = 0; i < perProducer; ++i)
                    buffer.AppendItem(p * perProducer + i);
            });
        }
        QTRY_COMPARE_WITH_TIMEOUT(taken, seen.size(), 60000);
        for (auto& t : threads)
            t.join();
        QVERIFY(std::all_of(seen.cbegin(), seen.cend(), [](int n) { return n == 1; }));
        QCOMPARE(signalledElsewhere.load(), 0);
    }

    // Producer A's start is pending; producer B has stored its value and is held before
    // asking for a start, while the owner runs A's start, is signalled and takes the
    // batch. B's value must be in some batch that is signalled, and the start B asks for
    // afterwards must not arm the timer for the emptied buffer.
    void heldProducerIsNotStranded()
    {
        VantorDelayBuffer buffer(nullptr, 10);
        QList<QVariant> taken;
        connect(&buffer, &VantorDelayBuffer::bufferTimeOut, this, [&]() { taken += buffer.GetBufferItems(); });

        std::thread([&buffer]() { buffer.AppendItem(1); }).join();
        DelayBufferAppendSeam::setHook(holdProducer);
        std::thread held([&buffer]() { buffer.AppendItem(2); });
        QVERIFY(g_producerHeld.tryAcquire(1, 30000));
        DelayBufferAppendSeam::setHook(nullptr);

        QTRY_VERIFY_WITH_TIMEOUT(!taken.isEmpty(), 30000);
        g_producerFree.release();
        held.join();
        QTRY_COMPARE_WITH_TIMEOUT(taken, (QList<QVariant>{1, 2}), 5000);
        QCoreApplication::sendPostedEvents(&buffer, QEvent::MetaCall);
        QTimer* timer = timerOf(&buffer);
        QVERIFY(timer && !timer->isActive());
    }
};

QTEST_MAIN(TestTimers)
#include "tst_timers.moc"
