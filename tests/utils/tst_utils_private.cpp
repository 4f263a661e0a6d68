#include "VantorUtils_p.h"

#include <LmPresenterClass.h>

#include <QtTest>

class TestUtilsPrivate : public QObject
{
    Q_OBJECT

private slots:
    void defaultPresenterIsGlobalQuery()
    {
        VantorUtils_p* p = VantorUtils_p::instance();
        QCOMPARE(VantorUtils_p::instance(), p); // one instance per process
        LmPresenterClass* presenter = p->defaultPresenter();
        QVERIFY(presenter);
        QCOMPARE(presenter->pluginPid(), QString("globalQuery"));
        QCOMPARE(presenter->threadType(), 2);
        QVERIFY(!presenter->parent());
    }
};

QTEST_MAIN(TestUtilsPrivate)
#include "tst_utils_private.moc"
