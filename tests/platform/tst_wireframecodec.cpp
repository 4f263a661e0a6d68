#include <WireFrameCodec.h>

#include <QtEndian>
#include <QtTest>

namespace {
QByteArray framed(const QByteArray& body)
{
    QByteArray out(4, '\0');
    qToBigEndian(quint32(body.size()), out.data());
    return out + body;
}

// A reply frame whose msg is the given CBOR (hex): the keys id, kind and msg, then msg's value.
QByteArray replyWithMsg(const QByteArray& hex)
{
    return framed(QByteArray::fromHex("a362696401646b696e6463726570636d7367" + hex));
}
} // namespace

class TestWireFrameCodec : public QObject
{
    Q_OBJECT

private slots:
    void roundTripInAnyChunking_data()
    {
        QTest::addColumn<qint64>("id");
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QVariant>("msg");
        QTest::addColumn<int>("chunk"); // bytes fed at a time
        const QVariantList rows{QVariantMap{{"requestExeStatus", "success"}, {"totalSize", 2}, {"subGroupNumber", 2}},
                                QVariantMap{{"orderID", "0000000001"}, {"price", 10.25}, {"orderQty", 300}},
                                QVariantMap{{"orderID", "0000000002"}, {"price", -0.5}, {"orderQty", -7}}};
        QTest::newRow("reply rows, whole") << qint64(1) << "rep" << QVariant(rows) << 100000;
        QTest::newRow("reply rows, byte by byte") << qint64(2) << "rep" << QVariant(rows) << 1;
        QTest::newRow("grouped request")
            << qint64(1) << "req"
            << QVariant(QVariantList{QVariantMap{{"msgType", "20002"}, {"groupRows", QVariantList{QVariantMap{{"a", 1}}}}}}) << 3;
        QTest::newRow("push, id 0") << qint64(0) << "push" << QVariant(QVariantList{QVariantMap{{"s", "已成交"}}}) << 7;
        QTest::newRow("negative id, null message") << qint64(-5) << "fail" << QVariant() << 2;
        QTest::newRow("largest id, scalars")
            << std::numeric_limits<qint64>::max() << "rep"
            << QVariant(QVariantList{true, false, QString(), QByteArray("\0\1", 2), qint64(-9007199254740993LL)}) << 5;
    }

    void roundTripInAnyChunking()
    {
        QFETCH(qint64, id);
        QFETCH(QString, kind);
        QFETCH(QVariant, msg);
        QFETCH(int, chunk);
        // Two frames back to back, the second built from a pre-encoded message.
        const QByteArray bytes = WireFrameCodec::encode(WireFrame{id, kind, "10003", "plugin", msg})
            + WireFrameCodec::encode(id, kind, "10003", "plugin", WireFrameCodec::encodeMessage(msg));
        WireFrameCodec codec;
        QList<WireFrame> out;
        for (int pos = 0; pos < bytes.size(); pos += chunk) {
            codec.append(bytes.constData() + pos, qMin(chunk, bytes.size() - pos));
            WireFrame f;
            WireFrameCodec::Status status;
            while ((status = codec.next(f)) == WireFrameCodec::Ready)
                out << f;
            QCOMPARE(status, WireFrameCodec::NeedMore);
        }
        QCOMPARE(out.size(), 2);
        for (const WireFrame& f : out) {
            QCOMPARE(f.id, id);
            QCOMPARE(f.kind, kind);
            QCOMPARE(f.type, QString("10003"));
            QCOMPARE(f.src, QString("plugin"));
            // Integers come back 64-bit; compare through the text form of the whole message.
            QCOMPARE(f.msg.toJsonValue(), msg.toJsonValue());
        }
        QCOMPARE(codec.bufferedBytes(), 0);
    }

    void malformedFramesAreErrors_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::newRow("length over 64 MiB") << QByteArray::fromHex("04000001");
        QTest::newRow("zero length") << QByteArray(4, '\0');
        QTest::newRow("body not a map") << framed(QByteArray::fromHex("820102"));
        QTest::newRow("trailing bytes") << framed(QByteArray::fromHex("a262696401646b696e6463726570") + "\x01");
        QTest::newRow("no kind") << framed(QByteArray::fromHex("a1626964 01"));
        QTest::newRow("no id") << framed(QByteArray::fromHex("a1646b696e6463726570"));
        QTest::newRow("unknown kind") << framed(QByteArray::fromHex("a262696401646b696e6463666f6f"));
        QTest::newRow("id is text") << framed(QByteArray::fromHex("a2626964617a646b696e6463726570"));
        QTest::newRow("invalid UTF-8 text") << framed(QByteArray::fromHex("a262696401646b696e6463ff6570"));
        QTest::newRow("nested 100 deep") << replyWithMsg(QByteArray("81").repeated(100) + "01");
        QTest::newRow("UTF-16 surrogate in UTF-8") << replyWithMsg("63eda080");
        QTest::newRow("overlong UTF-8") << replyWithMsg("62c0af");
        QTest::newRow("UTF-8 cut inside a character") << replyWithMsg("62e4b8");
        QTest::newRow("byte chunk in an indefinite text") << replyWithMsg("7f4161ff");
        QTest::newRow("break outside a container") << replyWithMsg("ff");
        QTest::newRow("short simple value in two bytes") << replyWithMsg("f814");
        QTest::newRow("reserved additional information") << replyWithMsg("1c");
        QTest::newRow("array longer than the frame") << replyWithMsg("9b00000000ffffffff01");
        QTest::newRow("map key is a number") << replyWithMsg("a10101");
        QTest::newRow("indefinite array never ends") << replyWithMsg("9f0102");
    }

    void malformedFramesAreErrors()
    {
        QFETCH(QByteArray, bytes);
        WireFrameCodec codec;
        codec.append(bytes);
        WireFrame f;
        QCOMPARE(codec.next(f), WireFrameCodec::Error);
        QVERIFY(!codec.errorString().isEmpty());
        // The decoder stays in error until it is cleared for a new connection.
        const QByteArray good = WireFrameCodec::encode(WireFrame{1, "rep", "", "", QVariant()});
        codec.append(good);
        QCOMPARE(codec.next(f), WireFrameCodec::Error);
        codec.clear();
        codec.append(good);
        QCOMPARE(codec.next(f), WireFrameCodec::Ready);
    }

    void otherEncodingsOfTheSameMessage_data()
    {
        QTest::addColumn<QByteArray>("cbor");
        QTest::addColumn<QVariant>("expected");
        const QVariant row = QVariantList{QVariantMap{{"a", "xy"}, {"b", 1.5}}};
        QTest::newRow("definite, shortest") << QByteArray("81a261616278796162fb3ff8000000000000") << row;
        QTest::newRow("indefinite containers and text, half float") << QByteArray("9fbf61617f61786179ff6162f93e00ffff") << row;
        QTest::newRow("tagged text, single float") << QByteArray("81a26161c06278796162fa3fc00000") << row;
        QTest::newRow("non-ASCII key and value") << QByteArray("81a166e4b8ade6968766e4b8ade69687")
                                                 << QVariant(QVariantList{QVariantMap{{"中文", "中文"}}});
    }

    void otherEncodingsOfTheSameMessage()
    {
        QFETCH(QByteArray, cbor);
        QFETCH(QVariant, expected);
        WireFrameCodec codec;
        codec.append(replyWithMsg(cbor));
        WireFrame f;
        QCOMPARE(codec.next(f), WireFrameCodec::Ready);
        QCOMPARE(f.msg.toJsonValue(), expected.toJsonValue());
        QVariant alone;
        QVERIFY(WireFrameCodec::decodeMessage(QByteArray::fromHex(cbor), alone));
        QCOMPARE(alone.toJsonValue(), expected.toJsonValue());
    }

    void framesAroundTheSizeLimit_data()
    {
        QTest::addColumn<QVariant>("msg");
        QTest::addColumn<qint64>("blob"); // bytes of one byte-array message; -1 when msg is given
        QTest::addColumn<bool>("fits");
        // One shared text, cheap to hold, but beyond what one byte array can take encoded.
        const QString text(1 << 20, QLatin1Char('x'));
        QVariantList texts;
        QVariantList blobs;
        for (int i = 0; i < 2100; ++i) {
            texts.append(text);
            blobs.append(text.toLatin1());
        }
        QTest::newRow("a text repeated past 2 GiB") << QVariant(texts) << qint64(-1) << false;
        QTest::newRow("a string list likewise") << QVariant(QStringList(QVector<QString>(2100, text).toList())) << qint64(-1) << false;
        QTest::newRow("byte arrays likewise") << QVariant(QVariantList{QVariantMap{{"rows", blobs}}}) << qint64(-1) << false;
        QTest::newRow("frame exactly at the limit") << QVariant() << qint64(0) << true;
        QTest::newRow("frame one byte over") << QVariant() << qint64(1) << false;
    }

    void framesAroundTheSizeLimit()
    {
        QFETCH(QVariant, msg);
        QFETCH(qint64, blob);
        QFETCH(bool, fits);
        if (blob >= 0) {
            // A byte array as long as makes the whole frame maxFrameSize + blob bytes.
            const int probe = int(WireFrameCodec::maxFrameSize) - 1000;
            const qint64 frame = WireFrameCodec::encode(WireFrame{1, "rep", "10003", "plugin", QByteArray(probe, 'b')}).size() - 4;
            msg = QByteArray(int(probe + WireFrameCodec::maxFrameSize - frame + blob), 'b');
        }
        const QByteArray body = WireFrameCodec::encodeMessage(msg);
        const QByteArray whole = WireFrameCodec::encode(WireFrame{1, "rep", "10003", "plugin", msg});
        const QByteArray prebuilt = WireFrameCodec::encode(1, "rep", "10003", "plugin", body);
        QCOMPARE(whole.size() - 4 <= WireFrameCodec::maxFrameSize, fits);
        QCOMPARE(prebuilt.size() - 4 <= WireFrameCodec::maxFrameSize, fits);
        if (fits)
            QCOMPARE(whole, prebuilt);
        // Encoding a message too large for a frame stops just past the limit.
        QVERIFY2(body.size() < WireFrameCodec::maxFrameSize + 16, qPrintable(QString::number(body.size())));
        WireFrameCodec codec;
        codec.append(whole);
        WireFrame f;
        QCOMPARE(codec.next(f), fits ? WireFrameCodec::Ready : WireFrameCodec::Error);
        if (fits)
            QCOMPARE(f.msg, msg);
    }
};

QTEST_MAIN(TestWireFrameCodec)
#include "tst_wireframecodec.moc"
