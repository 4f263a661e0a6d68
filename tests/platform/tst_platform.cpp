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

class TestPlatform : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;

    QString writeFile(const QString& name, const QByteArray& content)
    {
        const QString path = m_dir.filePath(name);
        QFile f(path);
        f.open(QIODevice::WriteOnly);
        f.write(content);
        return path;
    }

private slots:
    void cleanup()
    {
        qunsetenv("VANTOR_STATIC_CONFIG");
        qunsetenv("VANTOR_APP_DIR");
        PresenterTransports::setOverride(nullptr);
        CDataBase::GetInstance()->reload();
    }

    void appDirHonoursOverride()
    {
        const QString own = VantorAppDir::path();
        QCOMPARE(own, QCoreApplication::applicationDirPath());
        qputenv("VANTOR_APP_DIR", m_dir.path().toUtf8());
        QCOMPARE(VantorAppDir::path(), m_dir.path());
        QCOMPARE(VantorAppDir::filePath("/res/templates/"), m_dir.path() + "/res/templates/");
        QCOMPARE(VantorAppDir::filePath("cfg/a.json"), m_dir.path() + "/cfg/a.json");
    }

    void configLookupOrder_data()
    {
        QTest::addColumn<QString>("envFile");   // VANTOR_STATIC_CONFIG content, empty: unset, "-": no such file
        QTest::addColumn<QString>("appDirFile"); // <app dir>/cfg/static-config.json, empty: absent
        QTest::addColumn<QString>("expected");   // value of Probe/where
        QTest::addColumn<QString>("warning");    // what the fallback warns of
        const QString malformed = "CDataBase::parse malformed static configuration";
        QTest::newRow("env wins") << R"({"Probe":{"where":"env"}})" << R"({"Probe":{"where":"app"}})" << "env" << "";
        QTest::newRow("app dir next") << "" << R"({"Probe":{"where":"app"}})" << "app" << "";
        QTest::newRow("embedded last") << "" << "" << "" << "";
        QTest::newRow("malformed env falls back to embedded") << "{\"Probe\": {" << R"({"Probe":{"where":"app"}})" << ""
                                                              << malformed;
        QTest::newRow("top level array is malformed") << "[1,2]" << "" << "" << malformed;
        QTest::newRow("missing env file, app dir next") << "-" << R"({"Probe":{"where":"app"}})" << "app"
                                                        << "no static configuration at";
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
        if (!appDirFile.isEmpty()) {
            QDir(app.path()).mkpath("cfg");
            QFile f(app.filePath("cfg/static-config.json"));
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write(appDirFile.toUtf8());
        }
        if (envFile == "-")
            qputenv("VANTOR_STATIC_CONFIG", m_dir.filePath("does-not-exist.json").toUtf8());
        else if (!envFile.isEmpty())
            qputenv("VANTOR_STATIC_CONFIG", writeFile("env.json", envFile.toUtf8()).toUtf8());
        if (!warning.isEmpty())
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression(warning));
        CDataBase* db = CDataBase::GetInstance();
        db->reload();
        QCOMPARE(db->GetStaticCfgValue("Probe", "where"), expected);
        if (expected.isEmpty()) {
            QCOMPARE(db->source(), CDataBase::embeddedDefaultPath());
            QVERIFY(!db->sections().isEmpty()); // the embedded default is never empty
        }
    }

    void configSections()
    {
        const QString path = writeFile("sections.json", R"({
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
        QCOMPARE(db->GetStaticCfgValue("Numbers", "int"), QString("5"));
        QCOMPARE(db->GetStaticCfgValue("Numbers", "real"), QString("0.25"));
        QCOMPARE(db->GetStaticCfgValue("Numbers", "tenth"), QString("0.1"));
        QCOMPARE(db->GetStaticCfgValue("Numbers", "big"), QString("12345678901"));
        QCOMPARE(db->GetStaticCfgValue("Numbers", "million"), QString("1000000"));
        QCOMPARE(db->GetStaticCfgValue("Numbers", "debit"), QString("-2500000"));
        QCOMPARE(db->GetStaticCfgValue("Numbers", "huge"), QString("1e+300"));
        QCOMPARE(db->GetStaticCfgValue("Numbers", "flag"), QString("1"));
        QCOMPARE(db->GetStaticCfgValue("Numbers", "list"), QString("[1,2]"));
        QVERIFY(db->GetStaticValuesBySection("Missing").isEmpty());
        QVERIFY(db->GetStaticCfgValue("Missing", "x").isEmpty());
        QVERIFY(db->GetStaticCfgValue("Exchange", "missing").isEmpty());
        QVERIFY(!db->sections().contains("NotASection"));
    }

    void embeddedDefaultCarriesHealthRules_data()
    {
        QTest::addColumn<QString>("section");
        for (const char* s : {"SysMoniDpi", "SysMoniOS", "SysMoniTotalCpu", "SysMoniClientCpu", "SysMoniRemainMem",
                              "SysMoniClientMem", "SysMoniRemainDisk", "SysMoniNetLatency"})
            QTest::newRow(s) << QString(s);
    }

    void embeddedDefaultCarriesHealthRules()
    {
        QFETCH(QString, section);
        CDataBase* db = CDataBase::GetInstance();
        QCOMPARE(db->source(), CDataBase::embeddedDefaultPath());
        const QMap<QString, QString> rule = db->GetStaticValuesBySection(section);
        int items = 0;
        for (auto it = rule.cbegin(); it != rule.cend(); ++it) {
            if (!it.value().contains('|'))
                continue;
            ++items;
            bool ok = false;
            it.value().split('|').last().toInt(&ok);
            QVERIFY2(ok, qPrintable(it.key()));
        }
        QVERIFY(items >= 2);
        int weights = 0;
        const auto weightMap = db->GetStaticValuesBySection("SysMonitorWeight");
        for (int type = 0; type <= 8; ++type) {
            QVERIFY(weightMap.contains(QString::number(type)));
            weights += weightMap.value(QString::number(type)).toInt();
            QVERIFY(!db->GetStaticCfgValue("SysMonitorRecommend", QString::number(type)).isEmpty());
        }
        QVERIFY(weights > 0);
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
        pack.AddVaule(Zentra_Fields::System::msgType, "10001");
        QCOMPARE(pack.GetRowCount(), 3);

        CUnPackMessageCommon unpack;
        QVERIFY(unpack.SetUnPackMsg(pack.GetPackedMsg(packGroup), unpackGroup));
        QCOMPARE(unpack.GetRowCount(), rowsSeen);
        unpack.SetCurrentRow(0);
        QCOMPARE(unpack.GetValue("a").toInt(), 1);
        QCOMPARE(unpack.GetValue(Zentra_Fields::System::msgType).toString(), QString("10001"));
        QCOMPARE(unpack.GetValue("missing", 42).toInt(), 42);
        if (rowsSeen == 3) {
            QVERIFY(!unpack.GetRowValue().contains(Zentra_Fields::System::groupRows));
            for (int row = 1; row < 3; ++row) {
                unpack.SetCurrentRow(row);
                QCOMPARE(unpack.GetRowValue(), (QVariantMap{{"a", row + 1}}));
            }
        }
        unpack.SetCurrentRow(7);
        QVERIFY(unpack.GetRowValue().isEmpty());
        QCOMPARE(unpack.GetValue("a", -1).toInt(), -1);
    }

    void unpackRejectsNonMessages()
    {
        CUnPackMessageCommon unpack;
        QVERIFY(!unpack.SetUnPackMsg(QVariant(), true));
        QVERIFY(!unpack.SetUnPackMsg(QVariant("text"), false));
        QCOMPARE(unpack.GetRowCount(), 0);
        QVERIFY(unpack.GetRowValue().isEmpty());
    }

    void scriptedTransportAnswersInOrder()
    {
        auto transport = std::make_shared<ScriptedTransport>();
        transport->queueRows({{{"k", 1}}, {{"k", 2}}}, 10);
        transport->queueTimeout();
        transport->queueTransportFailure("网关断开");
        transport->queueServerFailure("余额不足");
        LmPresenterClass presenter("plugin-1", nullptr, 2);
        presenter.setTransport(transport);

        auto send = [&](QVariant& reply) {
            auto* msg = new CMessageCommon;
            msg->SetType("10002");
            msg->SetSrcid(presenter.pluginPid());
            msg->SetMsg(QVariantList{QVariantMap{{"q", 1}}});
            return presenter.sendRequest_Sync_Block(msg, reply, 0);
        };
        QVariant reply;
        QCOMPARE(send(reply), 0);
        CUnPackMessageCommon unpack;
        unpack.SetUnPackMsg(reply, false);
        QCOMPARE(unpack.GetValue(Zentra_Fields::System::totalSize).toInt(), 10);
        QCOMPARE(unpack.GetValue(Zentra_Fields::System::subGroupNumber).toInt(), 2);
        QCOMPARE(unpack.GetValue(Zentra_Fields::System::requestExeStatus).toString(),
                 QString(Zentra_Values::RequestExeStatus::success));
        QCOMPARE(send(reply), 1);
        QCOMPARE(send(reply), 2);
        unpack.SetUnPackMsg(reply, false);
        QCOMPARE(unpack.GetValue(Zentra_Fields::System::textDescription).toString(), QString("网关断开"));
        QCOMPARE(send(reply), 0);
        unpack.SetUnPackMsg(reply, false);
        QCOMPARE(unpack.GetValue(Zentra_Fields::System::requestExeStatus).toString(),
                 QString(Zentra_Values::RequestExeStatus::fail));
        QCOMPARE(send(reply), 2); // script exhausted

        const auto requests = transport->requests();
        QCOMPARE(requests.size(), 5);
        QCOMPARE(requests.first().type, QString("10002"));
        QCOMPARE(requests.first().srcId, QString("plugin-1"));
        QCOMPARE(requests.first().timeoutMs, PresenterTransports::defaultTimeoutMs());
        QCOMPARE(requests.first().msg.toList().first().toMap().value("q").toInt(), 1);
    }

    void scriptedTransportFromManyThreads()
    {
        auto transport = std::make_shared<ScriptedTransport>();
        transport->setHandler([](const ScriptedTransport::Request& r) {
            return ScriptedTransport::Outcome{0, QVariantList{QVariantMap{{"echo", r.msg}}}, 0};
        });
        PresenterTransports::setOverride(transport);
        LmPresenterClass presenter("shared");
        QAtomicInt failures = 0;
        std::vector<std::thread> threads;
        for (int t = 0; t < 8; ++t) {
            threads.emplace_back([&, t] {
                for (int i = 0; i < 50; ++i) {
                    const int value = t * 1000 + i;
                    auto* msg = new CMessageCommon;
                    msg->SetMsg(value);
                    QVariant reply;
                    if (presenter.sendRequest_Sync_Block(msg, reply, 5) != 0 ||
                        reply.toList().first().toMap().value("echo").toInt() != value)
                        failures.fetchAndAddRelaxed(1);
                }
            });
        }
        for (auto& th : threads)
            th.join();
        QCOMPARE(failures.loadRelaxed(), 0);
        QCOMPARE(transport->requestCount(), 400);
        QCOMPARE(transport->requests().first().timeoutMs, 5UL);
    }

    void presenterGoneMeansNoMorePushDelivery()
    {
        // A push is being delivered on the transport's thread while the owner deletes the
        // presenter: once the deletion returns, nothing runs on the presenter's behalf.
        auto transport = std::make_shared<ScriptedTransport>();
        auto* presenter = new LmPresenterClass("going");
        presenter->setTransport(transport);
        std::atomic<bool> entered{false};
        std::atomic<bool> running{false};
        connect(presenter, &LmPresenterClass::pushReceived, presenter, [&] {
            running = true;
            entered = true;
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
        if (env.isEmpty())
            qunsetenv("VANTOR_REQUEST_TIMEOUT_MS");
        else
            qputenv("VANTOR_REQUEST_TIMEOUT_MS", env);
        QCOMPARE(PresenterTransports::defaultTimeoutMs(), expected);
        qunsetenv("VANTOR_REQUEST_TIMEOUT_MS");
    }

    void noGatewayAnswersFailureInChinese()
    {
        qunsetenv("VANTOR_GATEWAY");
        LmPresenterClass presenter("lonely");
        QVariant reply;
        QCOMPARE(presenter.sendRequest_Sync_Block(new CMessageCommon, reply, 0), 2);
        const QString text = reply.toList().value(0).toMap().value(Zentra_Fields::System::textDescription).toString();
        QVERIFY(text.contains(QStringLiteral("网关")));
        QCOMPARE(presenter.sendRequest_Sync_Block(nullptr, reply, 0), 2);
    }

    void eventBusDeliversEnvelopes()
    {
        QSignalSpy spy(LmEventBus::instance(), &LmEventBus::eventPut);
        QList<QVariant> seen;
        const int id = LmEventBus::instance()->subscribe(
            [&](const QString&, const QVariant& type, const QVariant&) { seen << type; });
        LmPresenterClass presenter("events");
        auto* event = new CEventMessageCommon;
        event->SetType(QVariant(217088));
        event->SetSrcid(presenter.pluginPid());
        event->SetMsg(QVariantMap{{"k", "v"}});
        presenter.PutEvent(presenter.pluginPid(), event);
        LmEventBus::instance()->unsubscribe(id);
        presenter.PutEvent(presenter.pluginPid(), new CEventMessageCommon);
        // Callbacks are called in the order they subscribed.
        QList<int> order;
        QList<int> ids;
        for (int i = 0; i < 40; ++i)
            ids << LmEventBus::instance()->subscribe([&order, i](const QString&, const QVariant&, const QVariant&) { order << i; });
        LmEventBus::instance()->put("order", 1, QVariant());
        for (int i : qAsConst(ids))
            LmEventBus::instance()->unsubscribe(i);
        QCOMPARE(order.size(), 40);
        QVERIFY(std::is_sorted(order.cbegin(), order.cend()));
        presenter.PutEvent(presenter.pluginPid(), nullptr);

        QCOMPARE(spy.count(), 3);
        QCOMPARE(spy.first().at(0).toString(), QString("events"));
        QCOMPARE(spy.first().at(1).toInt(), 217088);
        QCOMPARE(spy.first().at(2).toMap().value("k").toString(), QString("v"));
        QCOMPARE(seen, (QList<QVariant>{217088}));
    }

    void messageBoxHookAnswers()
    {
        QList<LmMessageBox::Shown> shown;
        LmMessageBox::setAnswerHook([&](const LmMessageBox::Shown& s) { shown << s; return 1; });
        QCOMPARE(LmMessageBox("导出文件", "是否直接打开？", 3, nullptr, 2).exec(), 1);
        LmMessageBox::clearAnswerHook();
        QCOMPARE(shown.size(), 1);
        QCOMPARE(shown.first().title, QString("导出文件"));
        QCOMPARE(shown.first().type, 3);
        QCOMPARE(shown.first().flags, 2);
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
        QVERIFY(QDir(root.path()).mkpath("kept"));
        QVERIFY(QDir(root.path()).mkpath("log/2026-01-02/sub"));
        for (const char* f : {"kept/data.csv", "log/2026-01-02/a.log", "log/2026-01-02/sub/b.log"}) {
            QFile file(root.filePath(f));
            QVERIFY(file.open(QIODevice::WriteOnly));
        }
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

    void coreKeepsStateAndSettings()
    {
        qputenv("VANTOR_APP_DIR", m_dir.path().toUtf8());
        CBusinessDataBase::GetInstance()->SetLoginAccount("");
        QVERIFY(CBusinessDataBase::GetInstance()->GetLoginAccount().isEmpty());
        LmCore* core = LmCore::instance();
        core->setCommonInfo("currentMenu", "交易");
        QCOMPARE(core->getCommonInfo("currentMenu").toString(), QString("交易"));
        QVERIFY(!core->getCommonInfo("nothing").isValid());

        CBusinessDataBase::GetInstance()->SetLoginAccount("8800123");
        core->setSettings("showType", 1, "Trade");
        QCOMPARE(core->settings("showType", 0, "Trade").toInt(), 1);
        QVERIFY(core->settingsFilePath(LmCore::UserScope).contains("8800123"));
        CBusinessDataBase::GetInstance()->SetLoginAccount("other");
        QCOMPARE(core->settings("showType", 0, "Trade").toInt(), 0);
        CBusinessDataBase::GetInstance()->SetLoginAccount("");

        // An application directory that cannot hold the settings: the write is reported.
        qputenv("VANTOR_APP_DIR", writeFile("not-a-folder", "x").toUtf8());
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("LmCore::setSettings cannot write the settings"));
        core->setSettings("showType", 1, "Trade");
        QCOMPARE(core->settings("showType", 0, "Trade").toInt(), 0);
        qputenv("VANTOR_APP_DIR", m_dir.path().toUtf8());

        LmCore::SetAppVersion("3.2.1");
        QCOMPARE(LmCore::GetAppVersion(), QString("3.2.1"));
        core->setOrderStation("PC;IIP=1");
        QCOMPARE(core->getOrderStation(), QString("PC;IIP=1"));
    }
};

QTEST_MAIN(TestPlatform)
#include "tst_platform.moc"
