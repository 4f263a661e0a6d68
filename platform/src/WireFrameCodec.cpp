#include "WireFrameCodec.h"

#include <QBuffer>
#include <QCborStreamReader>
#include <QCborStreamWriter>
#include <QDate>
#include <QDateTime>
#include <QtEndian>

#include <QVector>

#include <cstring>
#include <limits>

namespace {
// Deeper nesting than any packed message needs is treated as malformed, so that hostile
// input cannot exhaust the stack.
constexpr int maxDepth = 32;

const QString keyId = QStringLiteral("id");
const QString keyKind = QStringLiteral("kind");
const QString keyType = QStringLiteral("type");
const QString keySrc = QStringLiteral("src");
const QString keyMsg = QStringLiteral("msg");

void putHead(QByteArray& out, quint8 major, quint64 value)
{
    char bytes[9];
    const char top = char(major << 5);
    int n = 0;
    if (value < 24) {
        bytes[n++] = char(top | char(value));
    } else if (value <= 0xff) {
        bytes[n++] = char(top | 24);
        bytes[n++] = char(value);
    } else if (value <= 0xffff) {
        bytes[n++] = char(top | 25);
        qToBigEndian(quint16(value), bytes + n);
        n += 2;
    } else if (value <= 0xffffffffULL) {
        bytes[n++] = char(top | 26);
        qToBigEndian(quint32(value), bytes + n);
        n += 4;
    } else {
        bytes[n++] = char(top | 27);
        qToBigEndian(quint64(value), bytes + n);
        n += 8;
    }
    out.append(bytes, n);
}

void putText(QByteArray& out, const QString& text)
{
    const QByteArray utf8 = text.toUtf8();
    putHead(out, 3, quint64(utf8.size()));
    out.append(utf8);
}

void putKey(QByteArray& out, const char* latin1, int size)
{
    putHead(out, 3, quint64(size));
    out.append(latin1, size);
}

// The envelope up to and including the "msg" key; the message body follows it.
QByteArray envelopeHead(qint64 id, const QString& kind, const QString& type, const QString& src, qsizetype bodyHint)
{
    QByteArray out;
    out.reserve(64 + type.size() + src.size() + bodyHint);
    out.append(4, '\0'); // length, patched once the frame is complete
    out.append(char(0xa5)); // map of five pairs
    putKey(out, "id", 2);
    if (id >= 0)
        putHead(out, 0, quint64(id));
    else
        putHead(out, 1, quint64(-(id + 1)));
    putKey(out, "kind", 4);
    putText(out, kind);
    putKey(out, "type", 4);
    putText(out, type);
    putKey(out, "src", 3);
    putText(out, src);
    putKey(out, "msg", 3);
    return out;
}

void patchLength(QByteArray& frame)
{
    qToBigEndian(quint32(frame.size() - 4), frame.data());
}

void writeVariant(QCborStreamWriter& w, const QVariant& v)
{
    switch (v.userType()) {
    case QMetaType::QVariantList: {
        const QVariantList list = v.toList();
        w.startArray(quint64(list.size()));
        for (const QVariant& item : list)
            writeVariant(w, item);
        w.endArray();
        return;
    }
    case QMetaType::QStringList: {
        const QStringList list = v.toStringList();
        w.startArray(quint64(list.size()));
        for (const QString& item : list)
            w.append(item);
        w.endArray();
        return;
    }
    case QMetaType::QVariantMap: {
        const QVariantMap map = v.toMap();
        w.startMap(quint64(map.size()));
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            w.append(it.key());
            writeVariant(w, it.value());
        }
        w.endMap();
        return;
    }
    case QMetaType::QVariantHash: {
        const QVariantHash hash = v.toHash();
        w.startMap(quint64(hash.size()));
        for (auto it = hash.cbegin(); it != hash.cend(); ++it) {
            w.append(it.key());
            writeVariant(w, it.value());
        }
        w.endMap();
        return;
    }
    case QMetaType::QString:
        w.append(*static_cast<const QString*>(v.constData()));
        return;
    case QMetaType::QByteArray:
        w.append(*static_cast<const QByteArray*>(v.constData()));
        return;
    case QMetaType::Bool:
        w.append(v.toBool());
        return;
    case QMetaType::Int:
    case QMetaType::Short:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::Char:
    case QMetaType::SChar:
        w.append(qint64(v.toLongLong()));
        return;
    case QMetaType::UInt:
    case QMetaType::UShort:
    case QMetaType::ULong:
    case QMetaType::ULongLong:
    case QMetaType::UChar:
        w.append(quint64(v.toULongLong()));
        return;
    case QMetaType::Double:
    case QMetaType::Float:
        w.append(v.toDouble());
        return;
    case QMetaType::QDateTime:
        w.append(v.toDateTime().toString(Qt::ISODateWithMs));
        return;
    case QMetaType::QDate:
        w.append(v.toDate().toString(Qt::ISODate));
        return;
    case QMetaType::UnknownType:
    case QMetaType::Nullptr:
        w.appendNull();
        return;
    default:
        if (v.canConvert<QString>())
            w.append(v.toString());
        else
            w.appendNull();
        return;
    }
}

// Reads CBOR items into QVariants. Row maps of one message share their keys, so the key
// texts of the previous map are kept and reused instead of decoding a new string each time.
class MessageReader
{
public:
    explicit MessageReader(QCborStreamReader& r)
        : m_r(r)
    {
    }

    QString error;

    bool readText(QString& out)
    {
        out.clear();
        auto chunk = m_r.readString();
        while (chunk.status == QCborStreamReader::Ok) {
            out += chunk.data;
            chunk = m_r.readString();
        }
        return chunk.status == QCborStreamReader::EndOfString || setError(QStringLiteral("文本无效"));
    }

    bool readKey(int index, QString& out)
    {
        // Short keys are read as raw UTF-8 and matched against the key seen at the same
        // place in the previous map.
        const qsizetype size = m_r.isLengthKnown() ? qsizetype(qMin<quint64>(m_r.length(), 1024)) : -1;
        if (size < 0 || size > 64)
            return readText(out);
        char buf[64];
        qsizetype n = 0;
        for (;;) {
            const auto chunk = m_r.readStringChunk(buf + n, qsizetype(sizeof buf) - n);
            if (chunk.status == QCborStreamReader::Ok) {
                n += chunk.data;
                if (n > size)
                    return setError(QStringLiteral("文本无效"));
                continue;
            }
            if (chunk.status != QCborStreamReader::EndOfString)
                return setError(QStringLiteral("文本无效"));
            break;
        }
        if (index < m_keys.size()) {
            const auto& cached = m_keys.at(index);
            if (cached.first.size() == n && memcmp(cached.first.constData(), buf, size_t(n)) == 0) {
                out = cached.second;
                return true;
            }
        }
        out = QString::fromUtf8(buf, int(n));
        if (index < 256) {
            if (index >= m_keys.size())
                m_keys.resize(index + 1);
            m_keys[index] = {QByteArray(buf, int(n)), out};
        }
        return true;
    }

    bool readValue(QVariant& out, int depth)
    {
        if (depth > maxDepth)
            return setError(QStringLiteral("嵌套过深"));
        switch (m_r.type()) {
        case QCborStreamReader::UnsignedInteger: {
            const quint64 u = m_r.toUnsignedInteger();
            out = u <= quint64(std::numeric_limits<qint64>::max()) ? QVariant(qint64(u)) : QVariant(u);
            return advance();
        }
        case QCborStreamReader::NegativeInteger: {
            const quint64 n = quint64(m_r.toNegativeInteger()); // the value is -n
            if (n != 0 && n <= quint64(std::numeric_limits<qint64>::max()) + 1)
                out = QVariant(qint64(-qint64(n - 1) - 1));
            else
                out = QVariant(n == 0 ? -18446744073709551616.0 : -double(n));
            return advance();
        }
        case QCborStreamReader::ByteArray: {
            QByteArray bytes;
            auto chunk = m_r.readByteArray();
            while (chunk.status == QCborStreamReader::Ok) {
                bytes += chunk.data;
                chunk = m_r.readByteArray();
            }
            if (chunk.status != QCborStreamReader::EndOfString)
                return setError(QStringLiteral("字节串无效"));
            out = bytes;
            return true;
        }
        case QCborStreamReader::String: {
            QString text;
            if (!readText(text))
                return false;
            out = text;
            return true;
        }
        case QCborStreamReader::Array:
            return readArray(out, depth);
        case QCborStreamReader::Map:
            return readMap(out, depth);
        case QCborStreamReader::SimpleType: {
            const QCborSimpleType s = m_r.toSimpleType();
            if (s == QCborSimpleType::False || s == QCborSimpleType::True)
                out = QVariant(s == QCborSimpleType::True);
            else
                out = QVariant();
            return advance();
        }
        case QCborStreamReader::Float16:
            out = double(m_r.toFloat16());
            return advance();
        case QCborStreamReader::Float:
            out = double(m_r.toFloat());
            return advance();
        case QCborStreamReader::Double:
            out = m_r.toDouble();
            return advance();
        case QCborStreamReader::Tag:
            // Tags carry no meaning in packed messages: the tagged item stands for itself.
            if (!advance())
                return false;
            return readValue(out, depth + 1);
        case QCborStreamReader::Invalid:
        default:
            return setError(QStringLiteral("数据不完整或格式错误"));
        }
    }

private:
    bool setError(const QString& text)
    {
        if (error.isEmpty())
            error = text;
        return false;
    }

    bool advance()
    {
        m_r.next();
        return m_r.lastError() == QCborError::NoError || setError(QStringLiteral("数据不完整或格式错误"));
    }

    bool readArray(QVariant& out, int depth)
    {
        QVariantList list;
        if (m_r.isLengthKnown())
            list.reserve(int(qMin<quint64>(m_r.length(), 4096)));
        if (!m_r.enterContainer())
            return setError(QStringLiteral("数据不完整或格式错误"));
        while (m_r.lastError() == QCborError::NoError && m_r.hasNext()) {
            QVariant item;
            if (!readValue(item, depth + 1))
                return false;
            list.append(std::move(item));
        }
        if (m_r.lastError() != QCborError::NoError || !m_r.leaveContainer())
            return setError(QStringLiteral("数据不完整或格式错误"));
        out = std::move(list);
        return true;
    }

    bool readMap(QVariant& out, int depth)
    {
        QVariantMap map;
        if (!m_r.enterContainer())
            return setError(QStringLiteral("数据不完整或格式错误"));
        int index = 0;
        while (m_r.lastError() == QCborError::NoError && m_r.hasNext()) {
            if (!m_r.isString())
                return setError(QStringLiteral("映射的键不是文本"));
            QString key;
            if (!readKey(index++, key))
                return false;
            if (m_r.lastError() != QCborError::NoError || !m_r.hasNext())
                return setError(QStringLiteral("数据不完整或格式错误"));
            QVariant value;
            if (!readValue(value, depth + 1))
                return false;
            // Keys arrive in ascending order from our own encoder; the hint makes that cheap
            // and is ignored when it is wrong.
            map.insert(map.cend(), key, value);
        }
        if (m_r.lastError() != QCborError::NoError || !m_r.leaveContainer())
            return setError(QStringLiteral("数据不完整或格式错误"));
        out = std::move(map);
        return true;
    }

    QCborStreamReader& m_r;
    QVector<QPair<QByteArray, QString>> m_keys;
};

bool atEnd(QCborStreamReader& r, qsizetype size)
{
    return r.currentOffset() == size;
}
} // namespace

void WireFrameCodec::writeValue(QCborStreamWriter& writer, const QVariant& value)
{
    writeVariant(writer, value);
}

QByteArray WireFrameCodec::encodeMessage(const QVariant& msg)
{
    QByteArray out;
    QCborStreamWriter w(&out); // writes from the start of the array
    writeVariant(w, msg);
    return out;
}

QByteArray WireFrameCodec::encode(qint64 id, const QString& kind, const QString& type, const QString& src,
                                  const QByteArray& messageCbor)
{
    QByteArray frame = envelopeHead(id, kind, type, src, messageCbor.size());
    if (messageCbor.isEmpty())
        frame.append(char(0xf6)); // null
    else
        frame.append(messageCbor);
    patchLength(frame);
    return frame;
}

QByteArray WireFrameCodec::encode(const WireFrame& frame)
{
    QByteArray out = envelopeHead(frame.id, frame.kind, frame.type, frame.src, 0);
    {
        // A writer on a byte array writes from its start; through the buffer it appends.
        QBuffer buffer(&out);
        buffer.open(QIODevice::WriteOnly | QIODevice::Append);
        QCborStreamWriter w(&buffer);
        writeVariant(w, frame.msg);
    }
    patchLength(out);
    return out;
}

bool WireFrameCodec::decodeMessage(const QByteArray& cbor, QVariant& msg, QString* error)
{
    QCborStreamReader r(cbor);
    MessageReader reader(r);
    QVariant value;
    bool ok = reader.readValue(value, 0);
    if (ok && !atEnd(r, cbor.size())) {
        ok = false;
        reader.error = QStringLiteral("消息末尾有多余数据");
    }
    if (!ok) {
        if (error)
            *error = reader.error;
        return false;
    }
    msg = std::move(value);
    return true;
}

void WireFrameCodec::append(const char* data, qsizetype size)
{
    if (size <= 0)
        return;
    if (m_pos > 0 && (m_pos == m_buffer.size() || m_pos > m_buffer.size() / 2)) {
        m_buffer.remove(0, int(m_pos));
        m_pos = 0;
    }
    m_buffer.append(data, int(size));
}

void WireFrameCodec::clear()
{
    m_buffer.clear();
    m_pos = 0;
    m_error.clear();
}

WireFrameCodec::Status WireFrameCodec::fail(const QString& reason)
{
    m_error = reason;
    m_buffer.clear();
    m_pos = 0;
    return Error;
}

WireFrameCodec::Status WireFrameCodec::next(WireFrame& frame)
{
    if (!m_error.isEmpty())
        return Error;
    const qsizetype available = m_buffer.size() - m_pos;
    if (available < 4)
        return NeedMore;
    const char* start = m_buffer.constData() + m_pos;
    const quint32 length = qFromBigEndian<quint32>(start);
    if (length > quint32(maxFrameSize))
        return fail(QStringLiteral("帧长度%1字节超过上限%2字节").arg(length).arg(maxFrameSize));
    if (length == 0)
        return fail(QStringLiteral("收到空帧"));
    if (available - 4 < qsizetype(length))
        return NeedMore;

    const QByteArray body = QByteArray::fromRawData(start + 4, int(length));
    QCborStreamReader r(body);
    MessageReader reader(r);
    if (!r.isMap() || !r.enterContainer())
        return fail(QStringLiteral("帧内容不是映射"));

    WireFrame out;
    bool haveId = false;
    bool haveKind = false;
    while (r.lastError() == QCborError::NoError && r.hasNext()) {
        if (!r.isString())
            return fail(QStringLiteral("帧的键不是文本"));
        QString key;
        if (!reader.readText(key) || r.lastError() != QCborError::NoError || !r.hasNext())
            return fail(QStringLiteral("帧数据不完整"));
        if (key == keyId) {
            if (r.isUnsignedInteger() && r.toUnsignedInteger() <= quint64(std::numeric_limits<qint64>::max()))
                out.id = qint64(r.toUnsignedInteger());
            else if (r.isNegativeInteger() && quint64(r.toNegativeInteger()) <= quint64(std::numeric_limits<qint64>::max()))
                out.id = -qint64(quint64(r.toNegativeInteger()));
            else
                return fail(QStringLiteral("帧的请求号无效"));
            r.next();
            haveId = true;
        } else if (key == keyKind || key == keyType || key == keySrc) {
            if (!r.isString())
                return fail(QStringLiteral("帧字段%1不是文本").arg(key));
            QString text;
            if (!reader.readText(text))
                return fail(QStringLiteral("帧字段%1无效").arg(key));
            if (key == keyKind) {
                out.kind = text;
                haveKind = true;
            } else if (key == keyType) {
                out.type = text;
            } else {
                out.src = text;
            }
        } else {
            QVariant value;
            if (!reader.readValue(value, 0))
                return fail(QStringLiteral("帧字段%1格式错误：%2").arg(key, reader.error));
            if (key == keyMsg)
                out.msg = std::move(value);
        }
    }
    if (r.lastError() != QCborError::NoError || !r.leaveContainer())
        return fail(QStringLiteral("帧数据不完整"));
    if (!atEnd(r, body.size()))
        return fail(QStringLiteral("帧末尾有多余数据"));
    if (!haveId || !haveKind)
        return fail(QStringLiteral("帧缺少请求号或类别"));
    if (out.kind != QLatin1String(WireKind::request) && out.kind != QLatin1String(WireKind::reply)
        && out.kind != QLatin1String(WireKind::failure) && out.kind != QLatin1String(WireKind::push))
        return fail(QStringLiteral("未知的帧类别%1").arg(out.kind));

    m_pos += 4 + qsizetype(length);
    if (m_pos == m_buffer.size()) {
        m_buffer.resize(0);
        m_pos = 0;
    }
    frame = std::move(out);
    return Ready;
}
