#include "timing/DelayBufferAppendSeam.h"

#include <VantorDelayBuffer.h>

#include <QSemaphore>
#include <QSignalSpy>
#include <QThread>
#include <QTimer>
#include <QtTest>

#include <atomic>
#include <thread>
#include <vector>

namespace {
QTimer* timerOf(QObject* buffer)
{
    return buffer->findChild<QTimer*>(QString(), Qt::FindDirectChildrenOnly);
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

class TestDelayBuffer : public QObject
{
    Q_OBJECT

private slots:
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
        QFETCH(int, expectedInterval);
        QFETCH(QString, expectedName);
        QObject parent;
        parent.setObjectName(parentName);
        VantorDelayBuffer buffer(parentName == "-" ? nullptr : &parent, interval);
        QCOMPARE(buffer.Interval(), expectedInterval);
        QCOMPARE(buffer.objectName(), expectedName);
    }

    // The interval is long enough that no stall of the machine lets it run out here.
    void laterValuesKeepTheDeadline()
    {
        VantorDelayBuffer buffer(nullptr, 60000);
        buffer.AppendItem(1);
        QTimer* timer = timerOf(&buffer);
        QVERIFY(timer && timer->isActive());
        QTRY_VERIFY(timer->remainingTime() <= 59900);
        buffer.AppendItems({2, 3});
        QVERIFY(timer->isActive());
        QVERIFY(timer->remainingTime() <= 59900);
        buffer.clear();
    }

    void batchesAreSignalledAndTakenWhole()
    {
        VantorDelayBuffer buffer(nullptr, 50);
        QSignalSpy spy(&buffer, &VantorDelayBuffer::bufferTimeOut);
        QVERIFY(buffer.GetBufferItems().isEmpty());
        buffer.AppendItem(1);
        buffer.AppendItems({2, 3});
        QTRY_COMPARE(spy.count(), 1);
        QCOMPARE(buffer.GetBufferItems(), (QList<QVariant>{1, 2, 3}));
        QVERIFY(buffer.GetBufferItems().isEmpty());

        // A value after the signal starts a new batch.
        buffer.AppendItem(4);
        QTRY_COMPARE(spy.count(), 2);
        QCOMPARE(buffer.GetBufferItems(), QList<QVariant>{4});
    }

    void clearSuppressesTheSignal()
    {
        VantorDelayBuffer cleared(nullptr, 50);
        VantorDelayBuffer reference(nullptr, 200);
        QSignalSpy clearedSpy(&cleared, &VantorDelayBuffer::bufferTimeOut);
        QSignalSpy referenceSpy(&reference, &VantorDelayBuffer::bufferTimeOut);
        cleared.AppendItem("a");
        cleared.clear();
        reference.AppendItem("b");
        QTRY_COMPARE(referenceSpy.count(), 1);
        QCOMPARE(clearedSpy.count(), 0);
        QVERIFY(cleared.GetBufferItems().isEmpty());

        // The buffer works normally after a clear.
        cleared.AppendItem("c");
        QTRY_COMPARE(clearedSpy.count(), 1);
        QCOMPARE(cleared.GetBufferItems(), QList<QVariant>{"c"});
    }

    void setIntervalKeepsRunningBatch()
    {
        VantorDelayBuffer buffer(nullptr, 100);
        QSignalSpy spy(&buffer, &VantorDelayBuffer::bufferTimeOut);
        buffer.AppendItem(1);
        buffer.setInterval(60000);
        QCOMPARE(buffer.Interval(), 60000);
        QTRY_COMPARE_WITH_TIMEOUT(spy.count(), 1, 10000);
        QCOMPARE(buffer.GetBufferItems(), QList<QVariant>{1});

        // The next batch runs with the new interval.
        buffer.AppendItem(2);
        QTimer* timer = timerOf(&buffer);
        QVERIFY(timer->isActive());
        QCOMPARE(timer->interval(), 60000);
        buffer.clear();
    }

    // A negative interval signals nothing, yet the values wait for the next usable one.
    void negativeIntervalKeepsTheValues()
    {
        VantorDelayBuffer buffer(nullptr, 50);
        QSignalSpy spy(&buffer, &VantorDelayBuffer::bufferTimeOut);
        buffer.setInterval(-1);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^OnceTimerManager::OnceTimer negative interval"));
        buffer.AppendItem(1);
        buffer.setInterval(20);
        buffer.AppendItem(2);
        QTRY_COMPARE(spy.count(), 1);
        QCOMPARE(buffer.GetBufferItems(), (QList<QVariant>{1, 2}));
    }

    // Producers on other threads append while the owner takes; nothing is lost or doubled,
    // and the batches are still signalled on the owner's thread.
    void appendsFromOtherThreads()
    {
        VantorDelayBuffer buffer(nullptr, 20);
        QSignalSpy spy(&buffer, &VantorDelayBuffer::bufferTimeOut);
        constexpr int producers = 4;
        constexpr int perProducer = 2000;
        std::atomic<int> signalThreadMismatch{0};
        connect(&buffer, &VantorDelayBuffer::bufferTimeOut, this, [&]() {
            if (QThread::currentThread() != buffer.thread())
                ++signalThreadMismatch;
        }, Qt::DirectConnection);

        std::vector<std::thread> threads;
        for (int p = 0; p < producers; ++p) {
            threads.emplace_back([&buffer, p]() {
                for (int i = 0; i < perProducer; ++i) {
                    if (i % 2)
                        buffer.AppendItem(p * perProducer + i);
                    else
                        buffer.AppendItems({p * perProducer + i});
                }
            });
        }

        QVector<int> seen(producers * perProducer, 0);
        int taken = 0;
        QElapsedTimer clock;
        clock.start();
        while (taken < seen.size() && clock.elapsed() < 60000) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
            const QList<QVariant> items = buffer.GetBufferItems();
            for (const QVariant& v : items)
                ++seen[v.toInt()];
            taken += items.size();
        }
        for (auto& t : threads)
            t.join();
        QCOMPARE(taken, producers * perProducer);
        QVERIFY(std::all_of(seen.cbegin(), seen.cend(), [](int n) { return n == 1; }));
        // A value from another thread after all was taken is signalled on its own.
        const int signalled = spy.count();
        std::thread([&buffer]() { buffer.AppendItem(-1); }).join();
        QTRY_VERIFY(spy.count() > signalled);
        QCOMPARE(buffer.GetBufferItems(), QList<QVariant>{-1});
        QCOMPARE(signalThreadMismatch.load(), 0);
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

QTEST_MAIN(TestDelayBuffer)
#include "tst_delaybuffer.moc"
