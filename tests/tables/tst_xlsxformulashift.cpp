#include "tables/XlsxFormulaShift.h"

#include <QtTest>

class TestXlsxFormulaShift : public QObject
{
    Q_OBJECT

private slots:
    void shifted_data()
    {
        QTest::addColumn<QString>("formula");
        QTest::addColumn<int>("rows");
        QTest::addColumn<int>("cols");
        QTest::addColumn<QString>("expected");

        QTest::newRow("filled down") << "A2*2" << 1 << 0 << "A3*2";
        QTest::newRow("anchors stay") << "$A$2+A$2+$A2+A2" << 2 << 3 << "$A$2+D$2+$A4+D4";
        QTest::newRow("range") << "SUM(A1:B2)" << 1 << 1 << "SUM(B2:C3)";
        QTest::newRow("lower case") << "a1+b$2" << 1 << 1 << "B2+C$2";
        QTest::newRow("string literals") << "\"A1\"&A1&\"say \"\"B1\"\"\"" << 1 << 0 << "\"A1\"&A2&\"say \"\"B1\"\"\"";
        QTest::newRow("sheet names") << "Sheet1!A1+'My Sheet'!B2+'It''s A1'!C3+数据!D4" << 1 << 0
                                     << "Sheet1!A2+'My Sheet'!B3+'It''s A1'!C4+数据!D5";
        QTest::newRow("sheet range") << "SUM(Sh1:Sh3!A1)" << 1 << 0 << "SUM(Sh1:Sh3!A2)";
        QTest::newRow("functions that look like cells") << "LOG10(A1)+ATAN2(B1,C1)+_xlfn.STDEV.S(A1:A3)" << 1 << 0
                                                        << "LOG10(A2)+ATAN2(B2,C2)+_xlfn.STDEV.S(A2:A4)";
        QTest::newRow("names and constants") << "IF(TRUE,A1,FALSE)+ABCD1+XFE1+A0+名称A1+1.5E+10+{1,2;3,4}" << 1 << 0
                                             << "IF(TRUE,A2,FALSE)+ABCD1+XFE1+A0+名称A1+1.5E+10+{1,2;3,4}";
        QTest::newRow("error values") << "IFERROR(#REF!,#DIV/0!)+#N/A+A1" << 1 << 0 << "IFERROR(#REF!,#DIV/0!)+#N/A+A2";
        QTest::newRow("whole columns") << "SUM(A:A)+SUM($B:B)" << 5 << 1 << "SUM(B:B)+SUM($B:C)";
        QTest::newRow("whole rows") << "SUM(1:1)+SUM($2:2)" << 1 << 5 << "SUM(2:2)+SUM($2:3)";
        QTest::newRow("structured reference") << "Table1[[#This Row],[Col A1]]+A1" << 1 << 0
                                              << "Table1[[#This Row],[Col A1]]+A2";
        QTest::newRow("intersection") << "A1:B2 B1:C2" << 0 << 1 << "B1:C2 C1:D2";
        QTest::newRow("above the first row") << "A1-1" << -1 << 0 << "#REF!-1";
        QTest::newRow("past the last column") << "XFD1+A1" << 0 << 1 << "#REF!+B1";
        QTest::newRow("past the last row") << "A1048576" << 1 << 0 << "#REF!";
        QTest::newRow("range leaving the sheet") << "SUM(A1:B2)" << -1 << 0 << "SUM(#REF!)";
        QTest::newRow("fixed far away") << "$A$1" << 1000 << 1000 << "$A$1";
    }

    void shifted()
    {
        QFETCH(QString, formula);
        QFETCH(int, rows);
        QFETCH(int, cols);
        QFETCH(QString, expected);
        QCOMPARE(QString::fromUtf8(XlsxFormulaShift::shifted(formula.toUtf8(), rows, cols)), expected);
        // Moving back undoes the move when nothing left the sheet.
        if (!expected.contains(QLatin1String("#REF!")) || formula.contains(QLatin1String("#REF!")))
            QCOMPARE(QString::fromUtf8(XlsxFormulaShift::shifted(expected.toUtf8(), -rows, -cols)),
                     formula.replace(QLatin1String("a1+b$2"), QLatin1String("A1+B$2")));
    }
};

QTEST_GUILESS_MAIN(TestXlsxFormulaShift)
#include "tst_xlsxformulashift.moc"
