#include "timing/OnceTimerManager.h"
#include "utils/VantorLogging.h"

#include <VantorUtils.h>

#include <QTimer>
#include <QtTest>

#include <limits>
#include <thread>

namespace {

// Records every id it is called back with.
class Client : public QObject, public IOnceTimerBase
{
public:
    using QObject::QObject;
    void timeout(const QString& timerId) override
    {
        fired.append(timerId);
        firedOn.append(QThread::currentThread());
    }
    QStringList fired;
    QList<QThread*> firedOn;
};

// Implements the callback without being a QObject.
class NotAQObject : public IOnceTimerBase
{
public:
    void timeout(const QString&) override {}
};

QTimer* timerOf(QObject* owner, int index)
{
    const auto timers = owner->findChildren<QTimer*>(QString(), Qt::FindDirectChildrenOnly);
    return index < timers.size() ? timers.at(index) : nullptr;
}

} // namespace

class TestOnceTimer : public QObject
{
    Q_OBJECT

private slots:
    void idsCountPerObject()
    {
        Client a;
        Client b;
        QString a0, a1, b0;
        VantorUtils::OnceTimer(10, &a, a0);
        VantorUtils::OnceTimer(10, &a, a1);
        VantorUtils::OnceTimer(10, &b, b0);
        QCOMPARE(a0, QStringLiteral("0"));
        QCOMPARE(a1, QStringLiteral("1"));
        QCOMPARE(b0, QStringLiteral("0"));
        QTRY_COMPARE(a.fired.size(), 2);
        QVERIFY(a.fired.contains("0") && a.fired.contains("1"));
        QTRY_COMPARE(b.fired, QStringList{"0"});
    }

    void runningTimerIsNotRearmed()
    {
        Client c;
        QString id;
        VantorUtils::OnceTimer(60000, &c, id);
        QTimer* timer = timerOf(&c, 0);
        QVERIFY(timer);
        QVERIFY(timer->isActive());
        QTRY_VERIFY(timer->remainingTime() <= 59900);

        // A second call while it runs keeps the first deadline and interval.
        VantorUtils::OnceTimer(30, &c, id);
        QCOMPARE(id, QStringLiteral("0"));
        QVERIFY(timer->remainingTime() > 30000);
        QVERIFY(timer->remainingTime() <= 59900);
        QCOMPARE(timer->interval(), 60000);

        // Once it no longer runs, stopped or fired, the same id starts it with the new
        // interval.
        QVERIFY(VantorUtils::StopOnceTimer(&c, id));
        VantorUtils::OnceTimer(30, &c, id);
        QCOMPARE(timer->interval(), 30);
        QTRY_COMPARE(c.fired, QStringList{"0"});
        VantorUtils::OnceTimer(20, &c, id);
        QVERIFY(timer->isActive());
        QCOMPARE(timer->interval(), 20);
        QTRY_COMPARE(c.fired, (QStringList{"0", "0"}));
        QCOMPARE(c.findChildren<QTimer*>().size(), 1);
    }

    void stop_data()
    {
        QTest::addColumn<bool>("nullObject");
        QTest::addColumn<QString>("id");
        QTest::addColumn<bool>("stopped");
        QTest::newRow("second timer") << false << "1" << true;
        QTest::newRow("first timer") << false << "0" << true;
        QTest::newRow("not a number") << false << "abc" << false;
        QTest::newRow("empty id") << false << "" << false;
        QTest::newRow("beyond the list") << false << "5" << false;
        QTest::newRow("negative") << false << "-1" << false;
        QTest::newRow("null object") << true << "0" << false;
    }

    void stop()
    {
        QFETCH(bool, nullObject);
        QFETCH(QString, id);
        QFETCH(bool, stopped);
        Client c;
        QString first, second;
        VantorUtils::OnceTimer(40, &c, first);
        VantorUtils::OnceTimer(40, &c, second);
        QCOMPARE(VantorUtils::StopOnceTimer(nullObject ? nullptr : &c, id), stopped);

        // A later reference timer: once it fired, a stopped timer would have fired too.
        Client reference;
        QString refId;
        VantorUtils::OnceTimer(150, &reference, refId);
        QTRY_COMPARE(reference.fired.size(), 1);
        QStringList expected{"0", "1"};
        if (stopped)
            expected.removeAll(id);
        c.fired.sort();
        QCOMPARE(c.fired, expected);
    }

    // Qt refuses a negative interval but reports such a timer as running; a later call
    // with a usable interval must still start it.
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
        QString id;
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^OnceTimerManager::OnceTimer negative interval"));
        VantorUtils::OnceTimer(bad, &c, id);
        QCOMPARE(id, QStringLiteral("0"));
        QTimer* timer = timerOf(&c, 0);
        QVERIFY(!timer || !timer->isActive());
        VantorUtils::OnceTimer(20, &c, id);
        QTRY_COMPARE(c.fired, QStringList{"0"});
    }

    // Log readers look for the firing line by its own words, not by a function name.
    void firingIsLogged()
    {
        auto& category = const_cast<QLoggingCategory&>(lcTiming());
        const bool wasEnabled = category.isDebugEnabled();
        category.setEnabled(QtDebugMsg, true);
        Client c;
        c.setObjectName(QStringLiteral("quotes"));
        QString id;
        QTest::ignoreMessage(QtDebugMsg, "OnceTimer timeout ,obj : quotes");
        VantorUtils::OnceTimer(1, &c, id);
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
    }

    void destroyedObjectIsForgotten()
    {
        auto c = new Client;
        IOnceTimerBase* key = c;
        QString id;
        VantorUtils::OnceTimer(5000, c, id);
        QVERIFY(VantorUtils::StopOnceTimer(key, id));
        delete c;
        // The timers died with the object; the registry must not reach for them.
        QVERIFY(!VantorUtils::StopOnceTimer(key, id));
    }

    // Another thread gets its ids at once; the timers are made, fired and stopped on the
    // object's thread, as the object's children.
    void callsFromAnotherThread()
    {
        Client c;
        QString first, second;
        std::thread([&]() {
            VantorUtils::OnceTimer(20, &c, first);
            VantorUtils::OnceTimer(60000, &c, second);
        }).join();
        QCOMPARE(first, QStringLiteral("0"));
        QCOMPARE(second, QStringLiteral("1"));
        QTRY_COMPARE(c.fired, QStringList{"0"});
        QCOMPARE(c.firedOn, QList<QThread*>{c.thread()});
        QCOMPARE(c.findChildren<QTimer*>().size(), 2);

        QTimer* running = timerOf(&c, 1);
        QVERIFY(running && running->isActive());
        bool stopped = false;
        std::thread([&]() { stopped = VantorUtils::StopOnceTimer(&c, second); }).join();
        QVERIFY(stopped);
        QCoreApplication::sendPostedEvents(&c, QEvent::MetaCall);
        QVERIFY(!running->isActive());
        // Stopped for the event loop too, not only in the timer's own bookkeeping.
        QVERIFY(QAbstractEventDispatcher::instance()->registeredTimers(running).isEmpty());
    }

    // Steps are "<thread>:<call>", the thread "own" or "other", the call an interval (a
    // start) or "stop". A call from another thread waits for the object's thread, yet the
    // calls take effect in the order they were made: a later call made on the object's
    // thread is not undone by an earlier one still waiting.
    void callsTakeEffectInTheirOrder_data()
    {
        QTest::addColumn<QStringList>("steps");
        QTest::addColumn<bool>("running");
        QTest::addColumn<int>("interval");
        QTest::newRow("stop after a start from another thread") << QStringList{"other:20", "own:stop"} << false << 0;
        QTest::newRow("own start and stop after a start from another thread")
            << QStringList{"other:20", "own:30", "own:stop"} << false << 0;
        QTest::newRow("start after a stop from another thread")
            << QStringList{"own:60000", "other:stop", "own:20"} << true << 20;
        QTest::newRow("stop from another thread after an own start") << QStringList{"own:60000", "other:stop"} << false
                                                                     << 0;
        QTest::newRow("starts from another thread keep the first") << QStringList{"other:20", "other:60000"} << true
                                                                   << 20;
    }

    void callsTakeEffectInTheirOrder()
    {
        QFETCH(QStringList, steps);
        QFETCH(bool, running);
        QFETCH(int, interval);
        Client c;
        QString id;
        for (const QString& step : qAsConst(steps)) {
            const QString call = step.section(QLatin1Char(':'), 1);
            bool stopped = true;
            const auto act = [&]() {
                if (call == QLatin1String("stop"))
                    stopped = VantorUtils::StopOnceTimer(&c, id);
                else
                    VantorUtils::OnceTimer(call.toInt(), &c, id);
            };
            if (step.startsWith(QLatin1String("other")))
                std::thread(act).join();
            else
                act();
            QVERIFY2(stopped, qPrintable(step));
        }
        QCOMPARE(id, QStringLiteral("0"));
        QCoreApplication::sendPostedEvents(&c, QEvent::MetaCall);
        QTimer* timer = timerOf(&c, 0);
        QVERIFY(timer);
        QCOMPARE(timer->isActive(), running);
        if (running) {
            QCOMPARE(timer->interval(), interval);
            QTRY_COMPARE(c.fired, QStringList{"0"});
        }
    }

    // Work handed to the object's thread is dropped when the object dies first.
    void objectGoneBeforeHandedWork()
    {
        auto c = new Client;
        QString id;
        std::thread([&]() { VantorUtils::OnceTimer(1, c, id); }).join();
        QCOMPARE(id, QStringLiteral("0"));
        delete c;
        Client reference;
        QString refId;
        VantorUtils::OnceTimer(50, &reference, refId);
        QTRY_COMPARE(reference.fired.size(), 1);
    }
};

QTEST_MAIN(TestOnceTimer)
#include "tst_oncetimer.moc"
