#include <CBusinessDataBase.h>
#include <CDataBase.h>
#include <CEventMessageCommon.h>
#include <CPackMessageCommon.h>
#include <CUnPackMessageCommon.h>
#include <LmCommonUtils.h>
#include <LmCore.h>
#include <LmEventBus.h>
#include <LmMessageBox.h>
#include <LmPresenterClass.h>
#include <PresenterTransports.h>
#include <ScriptedTransport.h>
#include <VantorAppDir.h>
#include <ZentraFields.h>

#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

namespace Sys = Zentra_Fields::System;

namespace {
QString writeFile(const QString& path, const QByteArray& content)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile f(path);
    if (f.open(QIODevice::WriteOnly))
        f.write(content);
    return path;
}

QString textOf(const QVariant& reply)
{
    return reply.toList().value(0).toMap().value(Sys::textDescription).toString();
}
} // namespace

class TestPlatform : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;

private slots:
    void cleanup()
    {
        qunsetenv("VANTOR_STATIC_CONFIG");
        qunsetenv("VANTOR_APP_DIR");
        qunsetenv("VANTOR_REQUEST_TIMEOUT_MS");
        PresenterTransports::setOverride(nullptr);
        CDataBase::GetInstance()->reload();
    }

    void appDirHonoursOverride()
    {
        QCOMPARE(VantorAppDir::path(), QCoreApplication::applicationDirPath());
        qputenv("VANTOR_APP_DIR", m_dir.path().toUtf8());
        QCOMPARE(VantorAppDir::filePath("/res/templates/"), m_dir.path() + "/res/templates/");
        QCOMPARE(VantorAppDir::filePath("cfg/a.json"), m_dir.path() + "/cfg/a.json");
    }

    void configLookupOrder_data()
    {
        QTest::addColumn<QString>("envFile");    // VANTOR_STATIC_CONFIG content, empty: unset, "-": no such file
        QTest::addColumn<QString>("appDirFile"); // <app dir>/cfg/static-config.json, empty: absent
        QTest::addColumn<QString>("expected");   // value of Probe/where, empty: the embedded default
        QTest::addColumn<QString>("warning");    // what the fallback warns of
        const QString app = R"({"Probe":{"where":"app"}})";
        const QString malformed = "CDataBase::parse malformed static configuration";
        QTest::newRow("env wins") << R"({"Probe":{"where":"env"}})" << app << "env" << "";
        QTest::newRow("app dir next") << "" << app << "app" << "";
        QTest::newRow("embedded last") << "" << "" << "" << "";
        QTest::newRow("malformed env falls back to embedded") << "{\"Probe\": {" << app << "" << malformed;
        QTest::newRow("top level array is malformed") << "[1,2]" << "" << "" << malformed;
        QTest::newRow("missing env file, app dir next") << "-" << app << "app" << "no static configuration at";
        QTest::newRow("missing env file, embedded last") << "-" << "" << "" << "no static configuration at";
    }

    void configLookupOrder()
    {
        QFETCH(QString, envFile);
        QFETCH(QString, appDirFile);
        QFETCH(QString, expected);
        QFETCH(QString, warning);
        QTemporaryDir app;
        qputenv("VANTOR_APP_DIR", app.path().toUtf8());
        if (!appDirFile.isEmpty())
            writeFile(app.filePath("cfg/static-config.json"), appDirFile.toUtf8());
        if (envFile == "-")
            qputenv("VANTOR_STATIC_CONFIG", m_dir.filePath("does-not-exist.json").toUtf8());
        else if (!envFile.isEmpty())
            qputenv("VANTOR_STATIC_CONFIG", writeFile(m_dir.filePath("env.json"), envFile.toUtf8()).toUtf8());
        if (!warning.isEmpty())
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression(warning));
        CDataBase* db = CDataBase::GetInstance();
        db->reload();
        QCOMPARE(db->GetStaticCfgValue("Probe", "where"), expected);
        if (expected.isEmpty()) {
            QCOMPARE(db->source(), CDataBase::embeddedDefaultPath());
            QVERIFY(!db->sections().isEmpty());
        }
    }

    void configSections()
    {
        const QString path = writeFile(m_dir.filePath("sections.json"), R"({
            "Exchange": {"sh": "SH", "ss": "SH", "sz": "SZ"},
            "Numbers": {"int": 5, "real": 0.25, "tenth": 0.1, "big": 12345678901, "million": 1000000, "debit": -2500000, "huge": 1e300, "flag": true, "list": [1, 2]},
            "NotASection": "text"
        })");
        qputenv("VANTOR_STATIC_CONFIG", path.toUtf8());
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("section NotASection .* is not an object"));
        CDataBase* db = CDataBase::GetInstance();
        db->reload();
        QCOMPARE(db->source(), path);
        const QMap<QString, QString> exchange = db->GetStaticValuesBySection("Exchange");
        QCOMPARE(exchange.keys(), (QStringList{"sh", "ss", "sz"}));
        QCOMPARE(exchange.value("ss"), QString("SH"));
        // Numbers read back as written: shortest text, whole numbers never in exponent form.
        const QList<QPair<const char*, const char*>> numbers{{"int", "5"},         {"real", "0.25"},      {"tenth", "0.1"},
                                                            {"big", "12345678901"}, {"million", "1000000"}, {"debit", "-2500000"},
                                                            {"huge", "1e+300"},     {"flag", "1"},          {"list", "[1,2]"}};
        for (const auto& n : numbers)
            QCOMPARE(db->GetStaticCfgValue("Numbers", n.first), QString(n.second));
        QVERIFY(db->GetStaticValuesBySection("Missing").isEmpty());
        QVERIFY(db->GetStaticCfgValue("Exchange", "missing").isEmpty());
        QVERIFY(!db->sections().contains("NotASection"));
    }

    // Health rules are "limit|score" items; weights and advice exist for every check type.
    void embeddedDefaultCarriesHealthRules()
    {
        CDataBase* db = CDataBase::GetInstance();
        QCOMPARE(db->source(), CDataBase::embeddedDefaultPath());
        for (const char* section : {"SysMoniDpi", "SysMoniOS", "SysMoniTotalCpu", "SysMoniClientCpu", "SysMoniRemainMem",
                                    "SysMoniClientMem", "SysMoniRemainDisk", "SysMoniNetLatency"}) {
            const QStringList items = db->GetStaticValuesBySection(section).values().filter(QStringLiteral("|"));
            QVERIFY2(items.size() >= 2, section);
            for (const QString& item : items)
                QVERIFY2(QRegularExpression("^[^|]*\\|\\d+$").match(item).hasMatch(), qPrintable(section + (": " + item)));
        }
        for (int type = 0; type <= 8; ++type) {
            QVERIFY(db->GetStaticCfgValue("SysMonitorWeight", QString::number(type)).toInt() > 0);
            QVERIFY(!db->GetStaticCfgValue("SysMonitorRecommend", QString::number(type)).isEmpty());
        }
    }

    void packUnpackRoundTrip_data()
    {
        QTest::addColumn<bool>("packGroup");
        QTest::addColumn<bool>("unpackGroup");
        QTest::addColumn<int>("rowsSeen");
        QTest::newRow("flat both sides") << false << false << 3;
        QTest::newRow("grouped both sides") << true << true << 3;
        QTest::newRow("grouped, read flat: one row") << true << false << 1;
        QTest::newRow("flat, read grouped") << false << true << 3;
    }

    void packUnpackRoundTrip()
    {
        QFETCH(bool, packGroup);
        QFETCH(bool, unpackGroup);
        QFETCH(int, rowsSeen);
        CPackMessageCommon pack;
        pack.AddRowVaule({{"a", 1}, {"b", "x"}});
        pack.AddRow();
        pack.AddRowVaule({{"a", 2}});
        pack.AddRow();
        pack.AddVaule("a", 3);
        pack.SetCurrentRow(0);
        pack.AddVaule(Sys::msgType, "10001");
        QCOMPARE(pack.GetRowCount(), 3);

        CUnPackMessageCommon unpack;
        QVERIFY(unpack.SetUnPackMsg(pack.GetPackedMsg(packGroup), unpackGroup));
        QCOMPARE(unpack.GetRowCount(), rowsSeen);
        unpack.SetCurrentRow(0);
        QCOMPARE(unpack.GetValue("a").toInt(), 1);
        QCOMPARE(unpack.GetValue(Sys::msgType).toString(), QString("10001"));
        QCOMPARE(unpack.GetValue("missing", 42).toInt(), 42);
        if (rowsSeen == 3) {
            QVERIFY(!unpack.GetRowValue().contains(Sys::groupRows));
            for (int row = 1; row < 3; ++row) {
                unpack.SetCurrentRow(row);
                QCOMPARE(unpack.GetRowValue(), (QVariantMap{{"a", row + 1}}));
            }
        }
        unpack.SetCurrentRow(7);
        QVERIFY(unpack.GetRowValue().isEmpty());
        QCOMPARE(unpack.GetValue("a", -1).toInt(), -1);
        // What is no packed message is refused and leaves nothing to read.
        QVERIFY(!unpack.SetUnPackMsg(QVariant(), true));
        QVERIFY(!unpack.SetUnPackMsg(QVariant("text"), false));
        QCOMPARE(unpack.GetRowCount(), 0);
    }

    // A presenter hands the request to its own transport, a time-out of 0 being the default;
    // without one, to the process-wide override, from any number of threads; with neither
    // and no gateway address, the send fails in Chinese.
    void presenterSendsThroughItsTransport()
    {
        auto send = [](LmPresenterClass& p, const QVariant& body, QVariant& reply, unsigned long timeout) {
            auto* msg = new CMessageCommon;
            msg->SetType("10002");
            msg->SetSrcid(p.pluginPid());
            msg->SetMsg(body);
            return p.sendRequest_Sync_Block(msg, reply, timeout);
        };
        qunsetenv("VANTOR_GATEWAY");
        LmPresenterClass lonely("lonely");
        QVariant reply;
        QCOMPARE(send(lonely, QVariant(), reply, 0), 2);
        QVERIFY(textOf(reply).contains(QStringLiteral("网关")));
        QCOMPARE(lonely.sendRequest_Sync_Block(nullptr, reply, 0), 2);

        auto own = std::make_shared<ScriptedTransport>();
        own->queueTimeout();
        own->queueTransportFailure("网关断开");
        LmPresenterClass presenter("plugin-1", nullptr, 2);
        presenter.setTransport(own);
        QCOMPARE(send(presenter, QVariantList{QVariantMap{{"q", 1}}}, reply, 0), 1);
        QCOMPARE(send(presenter, QVariant(), reply, 0), 2);
        QCOMPARE(textOf(reply), QString("网关断开"));
        const ScriptedTransport::Request first = own->requests().first();
        QCOMPARE(first.type, QString("10002"));
        QCOMPARE(first.srcId, QString("plugin-1"));
        QCOMPARE(first.timeoutMs, PresenterTransports::defaultTimeoutMs());
        QCOMPARE(first.msg, QVariant(QVariantList{QVariantMap{{"q", 1}}}));

        auto echo = std::make_shared<ScriptedTransport>();
        echo->setHandler([](const ScriptedTransport::Request& r) { return ScriptedTransport::Outcome{0, r.msg, 0}; });
        PresenterTransports::setOverride(echo);
        LmPresenterClass shared("shared");
        std::atomic<int> failures{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < 8; ++t) {
            threads.emplace_back([&, t] {
                for (int i = t * 1000; i < t * 1000 + 50; ++i) {
                    QVariant back;
                    failures += send(shared, i, back, 5) != 0 || back != QVariant(i);
                }
            });
        }
        for (auto& th : threads)
            th.join();
        QCOMPARE(failures.load(), 0);
        QCOMPARE(echo->requestCount(), 400);
        QCOMPARE(echo->requests().first().timeoutMs, 5UL);
    }

    // A push is being delivered on the transport's thread while the owner deletes the
    // presenter: once the deletion returns, nothing runs on the presenter's behalf.
    void presenterGoneMeansNoMorePushDelivery()
    {
        auto transport = std::make_shared<ScriptedTransport>();
        auto* presenter = new LmPresenterClass("going");
        presenter->setTransport(transport);
        std::atomic<bool> entered{false};
        std::atomic<bool> running{false};
        connect(presenter, &LmPresenterClass::pushReceived, presenter, [&] {
            running = entered = true;
            QElapsedTimer busy; // a listener that takes its time
            busy.start();
            while (busy.elapsed() < 500)
                QThread::yieldCurrentThread();
            running = false;
        }, Qt::DirectConnection);
        std::thread pusher([&] { transport->push("order", QVariantMap{{"orderStatus", "new"}}); });
        QTRY_VERIFY_WITH_TIMEOUT(entered.load(), 20000);
        delete presenter;
        const bool stillRunning = running.load();
        pusher.join();
        QVERIFY(!stillRunning);
        transport->push("order", QVariantMap()); // nobody listens any more
    }

    void requestTimeoutFromEnvironment_data()
    {
        QTest::addColumn<QByteArray>("env");
        QTest::addColumn<ulong>("expected");
        QTest::newRow("unset") << QByteArray() << 10000UL;
        QTest::newRow("set") << QByteArray("250") << 250UL;
        QTest::newRow("zero ignored") << QByteArray("0") << 10000UL;
        QTest::newRow("garbage ignored") << QByteArray("soon") << 10000UL;
    }

    void requestTimeoutFromEnvironment()
    {
        QFETCH(QByteArray, env);
        QFETCH(ulong, expected);
        env.isEmpty() ? qunsetenv("VANTOR_REQUEST_TIMEOUT_MS") : qputenv("VANTOR_REQUEST_TIMEOUT_MS", env);
        QCOMPARE(PresenterTransports::defaultTimeoutMs(), expected);
    }

    // The bus signals every envelope put on it and calls its subscribers in the order they
    // subscribed, none after it unsubscribed; a null event is dropped.
    void eventBusDeliversEnvelopes()
    {
        LmEventBus* bus = LmEventBus::instance();
        QSignalSpy spy(bus, &LmEventBus::eventPut);
        QList<int> order;
        QList<int> ids;
        for (int i = 0; i < 40; ++i)
            ids << bus->subscribe([&order, i](const QString&, const QVariant&, const QVariant&) { order << i; });
        LmPresenterClass presenter("events");
        auto* event = new CEventMessageCommon;
        event->SetType(QVariant(217088));
        event->SetMsg(QVariantMap{{"k", "v"}});
        presenter.PutEvent(presenter.pluginPid(), event);
        presenter.PutEvent(presenter.pluginPid(), nullptr);
        for (int id : qAsConst(ids))
            bus->unsubscribe(id);
        bus->put("order", 1, QVariant());
        QCOMPARE(order.size(), 40);
        QVERIFY(std::is_sorted(order.cbegin(), order.cend()));
        QCOMPARE(spy.count(), 2);
        QCOMPARE(spy.first().at(0).toString(), QString("events"));
        QCOMPARE(spy.first().at(1).toInt(), 217088);
        QCOMPARE(spy.first().at(2).toMap().value("k").toString(), QString("v"));
    }

    // A box asked for on a worker thread is built and shown on the application's thread;
    // the worker gets the answer.
    void messageBoxFromAWorkerShowsOnTheApplicationThread()
    {
        if (!qobject_cast<QApplication*>(QCoreApplication::instance()))
            QSKIP("needs a GUI application");
        std::atomic<int> answer{-1};
        QThread* shownOn = nullptr;
        QTimer closer;
        closer.setInterval(10);
        connect(&closer, &QTimer::timeout, this, [&] {
            if (auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget())) {
                shownOn = box->thread();
                box->button(QMessageBox::Ok)->click();
            }
        });
        closer.start();
        std::thread worker([&] { answer = LmMessageBox("导出文件", "文件已经打开无法重写 请关闭文件后再试", 1, nullptr, 0).exec(); });
        QTRY_COMPARE_WITH_TIMEOUT(answer.load(), 1, 10000);
        worker.join();
        QCOMPARE(shownOn, QCoreApplication::instance()->thread());
    }

    void delDirRemovesTheTreeNotWhatALinkPointsAt()
    {
        QTemporaryDir root;
        for (const char* f : {"kept/data.csv", "log/2026-01-02/a.log", "log/2026-01-02/sub/b.log"})
            writeFile(root.filePath(f), "x");
        // A log folder that is a link to a folder elsewhere: the link goes, the folder stays.
        QVERIFY(QFile::link(root.filePath("kept"), root.filePath("log/2026-01-03")));
        QVERIFY(QFile::link(root.filePath("kept"), root.filePath("log/2026-01-02/inner")));

        QVERIFY(LmCommonUtils::DelDir(root.filePath("log/2026-01-03")));
        QVERIFY(!QFileInfo(root.filePath("log/2026-01-03")).isSymLink());
        QVERIFY(QFile::exists(root.filePath("kept/data.csv")));

        QVERIFY(LmCommonUtils::DelDir(root.filePath("log/2026-01-02")));
        QVERIFY(!QFileInfo::exists(root.filePath("log/2026-01-02")));
        QVERIFY(QFile::exists(root.filePath("kept/data.csv")));

        QVERIFY(LmCommonUtils::DelDir(root.filePath("log/missing")));
        QVERIFY(!LmCommonUtils::DelDir(QString()));
    }

    // User settings live per login account; one that cannot be written is reported.
    void userSettingsPerAccount()
    {
        qputenv("VANTOR_APP_DIR", m_dir.path().toUtf8());
        LmCore* core = LmCore::instance();
        CBusinessDataBase::GetInstance()->SetLoginAccount("8800123");
        core->setSettings("showType", 1, "Trade");
        QCOMPARE(core->settings("showType", 0, "Trade").toInt(), 1);
        QVERIFY(core->settingsFilePath(LmCore::UserScope).contains("8800123"));
        CBusinessDataBase::GetInstance()->SetLoginAccount("other");
        QCOMPARE(core->settings("showType", 0, "Trade").toInt(), 0);
        CBusinessDataBase::GetInstance()->SetLoginAccount("");

        qputenv("VANTOR_APP_DIR", writeFile(m_dir.filePath("not-a-folder"), "x").toUtf8());
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("LmCore::setSettings cannot write the settings"));
        core->setSettings("showType", 1, "Trade");
        QCOMPARE(core->settings("showType", 0, "Trade").toInt(), 0);
    }
};

QTEST_MAIN(TestPlatform)
#include "tst_platform.moc"
