#include "WireFrameCodec.h"

#include <QDate>
#include <QDateTime>
#include <QStringList>
#include <QtEndian>

#include <cmath>
#include <cstring>
#include <limits>

// Short ASCII texts decoded before, by a hash of their bytes, so that the keys and the
// repeated values of many rows share one string each instead of allocating their own.
struct WireTextPool {
    static constexpr int capacity = 1024;
    static constexpr qsizetype longest = 40;
    QString texts[capacity];
    uint hashes[capacity] = {};

    QString get(const char* s, qsizetype n)
    {
        uint h = 2166136261u;
        for (qsizetype i = 0; i < n; ++i)
            h = (h ^ uchar(s[i])) * 16777619u;
        h ^= uint(n);
        QString& slot = texts[h & (capacity - 1)];
        uint& slotHash = hashes[h & (capacity - 1)];
        if (slotHash == h && slot.size() == n && slot == QLatin1String(s, int(n)))
            return slot;
        slot = QString::fromLatin1(s, int(n));
        slotHash = h;
        return slot;
    }
};

namespace {
// Deeper nesting than any packed message needs is treated as malformed, so that hostile
// input cannot exhaust the stack.
constexpr int maxDepth = 32;

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

// Encoding stops once the output has passed the largest frame and its length field: such
// a frame is refused whole anyway, and a message that repeats one long text many times
// would otherwise ask for more than a byte array can hold. The output is then left one
// byte beyond that size, so that it still reads as too large.
constexpr qint64 largestOutput = WireFrameCodec::maxFrameSize + 4;

bool pastFrameLimit(QByteArray& out, qint64 adding)
{
    if (qint64(out.size()) + adding <= largestOutput)
        return false;
    if (out.size() <= largestOutput)
        out.resize(int(largestOutput) + 1);
    return true;
}

void putText(QByteArray& out, const QString& text)
{
    // UTF-8 takes at least one byte for each UTF-16 unit.
    if (pastFrameLimit(out, text.size()))
        return;
    const QByteArray utf8 = text.toUtf8();
    putHead(out, 3, quint64(utf8.size()));
    out.append(utf8);
}

void putKey(QByteArray& out, const char* latin1, int size)
{
    putHead(out, 3, quint64(size));
    out.append(latin1, size);
}

void putInteger(QByteArray& out, qint64 v)
{
    if (v >= 0)
        putHead(out, 0, quint64(v));
    else
        putHead(out, 1, quint64(-(v + 1)));
}

void putDouble(QByteArray& out, double d)
{
    char bytes[9];
    bytes[0] = char(0xfb);
    quint64 bits;
    std::memcpy(&bits, &d, sizeof bits);
    qToBigEndian(bits, bytes + 1);
    out.append(bytes, 9);
}

void putVariant(QByteArray& out, const QVariant& v);

// A map of texts to values (QVariantMap or QVariantHash).
template <typename Map>
void putMap(QByteArray& out, const Map& map)
{
    putHead(out, 5, quint64(map.size()));
    for (auto it = map.cbegin(); it != map.cend(); ++it) {
        putText(out, it.key());
        putVariant(out, it.value());
    }
}

void putVariant(QByteArray& out, const QVariant& v)
{
    if (pastFrameLimit(out, 0))
        return;
    switch (v.userType()) {
    case QMetaType::QVariantList: {
        const QVariantList& list = *static_cast<const QVariantList*>(v.constData());
        putHead(out, 4, quint64(list.size()));
        for (const QVariant& item : list)
            putVariant(out, item);
        return;
    }
    case QMetaType::QStringList: {
        const QStringList& list = *static_cast<const QStringList*>(v.constData());
        putHead(out, 4, quint64(list.size()));
        for (const QString& item : list)
            putText(out, item);
        return;
    }
    case QMetaType::QVariantMap:
        putMap(out, *static_cast<const QVariantMap*>(v.constData()));
        return;
    case QMetaType::QVariantHash:
        putMap(out, *static_cast<const QVariantHash*>(v.constData()));
        return;
    case QMetaType::QString:
        putText(out, *static_cast<const QString*>(v.constData()));
        return;
    case QMetaType::QByteArray: {
        const QByteArray& bytes = *static_cast<const QByteArray*>(v.constData());
        if (pastFrameLimit(out, bytes.size()))
            return;
        putHead(out, 2, quint64(bytes.size()));
        out.append(bytes);
        return;
    }
    case QMetaType::Bool:
        out.append(char(v.toBool() ? 0xf5 : 0xf4));
        return;
    case QMetaType::Int:
    case QMetaType::Short:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::Char:
    case QMetaType::SChar:
        putInteger(out, v.toLongLong());
        return;
    case QMetaType::UInt:
    case QMetaType::UShort:
    case QMetaType::ULong:
    case QMetaType::ULongLong:
    case QMetaType::UChar:
        putHead(out, 0, quint64(v.toULongLong()));
        return;
    case QMetaType::Double:
    case QMetaType::Float:
        putDouble(out, v.toDouble());
        return;
    case QMetaType::QDateTime:
        putText(out, v.toDateTime().toString(Qt::ISODateWithMs));
        return;
    case QMetaType::QDate:
        putText(out, v.toDate().toString(Qt::ISODate));
        return;
    case QMetaType::UnknownType:
    case QMetaType::Nullptr:
        out.append(char(0xf6));
        return;
    default:
        if (v.canConvert<QString>())
            putText(out, v.toString());
        else
            out.append(char(0xf6));
        return;
    }
}

// The envelope up to and including the "msg" key; the message body follows it.
QByteArray envelopeHead(qint64 id, const QString& kind, const QString& type, const QString& src, qsizetype bodyHint)
{
    QByteArray out;
    out.reserve(int(qMin(qint64(64) + type.size() + src.size() + bodyHint, largestOutput + 64)));
    out.append(4, '\0'); // length, patched once the frame is complete
    out.append(char(0xa5)); // map of five pairs
    putKey(out, "id", 2);
    putInteger(out, id);
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

// Checks UTF-8 strictly (no overlong forms, no surrogates, nothing above U+10FFFF); tells
// whether the text is plain ASCII.
bool validUtf8(const uchar* s, qsizetype n, bool* ascii)
{
    qsizetype i = 0;
    while (i + 8 <= n) {
        quint64 word;
        std::memcpy(&word, s + i, 8);
        if (word & 0x8080808080808080ULL)
            break;
        i += 8;
    }
    *ascii = true;
    while (i < n) {
        const uchar c = s[i];
        if (c < 0x80) {
            ++i;
            continue;
        }
        *ascii = false;
        int more;
        uchar low = 0x80, high = 0xbf;
        if (c >= 0xc2 && c <= 0xdf) {
            more = 1;
        } else if (c >= 0xe0 && c <= 0xef) {
            more = 2;
            if (c == 0xe0)
                low = 0xa0;
            else if (c == 0xed)
                high = 0x9f;
        } else if (c >= 0xf0 && c <= 0xf4) {
            more = 3;
            if (c == 0xf0)
                low = 0x90;
            else if (c == 0xf4)
                high = 0x8f;
        } else {
            return false;
        }
        if (n - i <= more)
            return false;
        if (s[i + 1] < low || s[i + 1] > high)
            return false;
        for (int k = 2; k <= more; ++k) {
            if ((s[i + k] & 0xc0) != 0x80)
                return false;
        }
        i += 1 + more;
    }
    return true;
}

double halfToDouble(quint16 h)
{
    const int e = (h >> 10) & 0x1f;
    const int m = h & 0x3ff;
    double v;
    if (e == 0)
        v = std::ldexp(double(m), -24);
    else if (e != 31)
        v = std::ldexp(double(m + 1024), e - 25);
    else
        v = m == 0 ? std::numeric_limits<double>::infinity() : std::numeric_limits<double>::quiet_NaN();
    return (h & 0x8000) ? -v : v;
}

// Reads CBOR straight from its bytes into QVariants: lists, maps with text keys, texts,
// byte arrays, integers, floating-point numbers, booleans and null. Anything incomplete or
// malformed is an error; nothing is read past the end.
class CborDecoder
{
public:
    CborDecoder(const char* data, qsizetype size, WireTextPool& texts)
        : m_p(reinterpret_cast<const uchar*>(data))
        , m_end(m_p + size)
        , m_texts(texts)
    {
    }

    QString error;
    bool atEnd() const { return m_p == m_end; }

    bool peekMajor(int* major) const
    {
        if (m_p >= m_end)
            return false;
        *major = *m_p >> 5;
        return true;
    }

    bool readHead(int& major, quint64& value, bool& indefinite)
    {
        if (m_p >= m_end)
            return malformed();
        const uchar b = *m_p++;
        major = b >> 5;
        const int info = b & 0x1f;
        m_info = info;
        indefinite = false;
        if (info < 24) {
            value = quint64(info);
            return true;
        }
        int n;
        switch (info) {
        case 24: n = 1; break;
        case 25: n = 2; break;
        case 26: n = 4; break;
        case 27: n = 8; break;
        case 31:
            if (major == 0 || major == 1 || major == 6)
                return malformed();
            indefinite = true;
            value = 0;
            return true;
        default:
            return malformed();
        }
        if (m_end - m_p < n)
            return malformed();
        value = 0;
        for (int i = 0; i < n; ++i)
            value = (value << 8) | *m_p++;
        return true;
    }

    // The bytes of a text (major 3) or byte string (major 2) whose head was read; chunks of
    // an indefinite one are joined in `joined`.
    bool readStringBytes(int major, quint64 length, bool indefinite, const char** data, qsizetype* size, QByteArray& joined)
    {
        if (!indefinite) {
            if (length > quint64(m_end - m_p))
                return malformed();
            *data = reinterpret_cast<const char*>(m_p);
            *size = qsizetype(length);
            m_p += length;
            return true;
        }
        for (;;) {
            bool ended = false;
            if (!takeBreak(ended))
                return false;
            if (ended)
                break;
            int chunkMajor;
            quint64 chunkLength;
            bool chunkIndefinite;
            if (!readHead(chunkMajor, chunkLength, chunkIndefinite))
                return false;
            if (chunkMajor != major || chunkIndefinite || chunkLength > quint64(m_end - m_p))
                return malformed();
            joined.append(reinterpret_cast<const char*>(m_p), int(chunkLength));
            m_p += chunkLength;
        }
        *data = joined.constData();
        *size = joined.size();
        return true;
    }

    bool readText(int major, quint64 length, bool indefinite, QString& out)
    {
        QByteArray joined;
        const char* data = nullptr;
        qsizetype size = 0;
        if (!readStringBytes(major, length, indefinite, &data, &size, joined))
            return false;
        bool ascii = false;
        if (!validUtf8(reinterpret_cast<const uchar*>(data), size, &ascii))
            return setError(QStringLiteral("文本无效"));
        if (ascii)
            out = size <= WireTextPool::longest ? m_texts.get(data, size) : QString::fromLatin1(data, int(size));
        else
            out = QString::fromUtf8(data, int(size));
        return true;
    }

    // A text item, head included; false when the next item is no text.
    bool readTextItem(QString& out)
    {
        int major;
        quint64 value;
        bool indefinite;
        if (!readHead(major, value, indefinite))
            return false;
        if (major != 3)
            return setError(QStringLiteral("映射的键不是文本"));
        return readText(major, value, indefinite, out);
    }

    bool readValue(QVariant& out, int depth)
    {
        if (depth > maxDepth)
            return setError(QStringLiteral("嵌套过深"));
        int major;
        quint64 value;
        bool indefinite;
        if (!readHead(major, value, indefinite))
            return false;
        switch (major) {
        case 0:
            out = value <= quint64(std::numeric_limits<qint64>::max()) ? QVariant(qint64(value)) : QVariant(value);
            return true;
        case 1: // the value is -1 - value
            if (value <= quint64(std::numeric_limits<qint64>::max()))
                out = QVariant(qint64(-1 - qint64(value)));
            else
                out = QVariant(-1.0 - double(value));
            return true;
        case 2: {
            QByteArray joined;
            const char* data = nullptr;
            qsizetype size = 0;
            if (!readStringBytes(major, value, indefinite, &data, &size, joined))
                return setError(QStringLiteral("字节串无效"));
            out = indefinite ? joined : QByteArray(data, int(size));
            return true;
        }
        case 3: {
            QString text;
            if (!readText(major, value, indefinite, text))
                return false;
            out = std::move(text);
            return true;
        }
        case 4:
            return readArray(out, value, indefinite, depth);
        case 5:
            return readMap(out, value, indefinite, depth);
        case 6: // tags carry no meaning in packed messages: the tagged item stands for itself
            return readValue(out, depth + 1);
        default:
            return readSimple(out, value, indefinite);
        }
    }

private:
    bool setError(const QString& text)
    {
        if (error.isEmpty())
            error = text;
        return false;
    }

    // The data ends inside an item, or an item is malformed.
    bool malformed() { return setError(QStringLiteral("数据不完整或格式错误")); }

    // Before each element of an indefinite-length item: takes the break that ends the
    // item and tells so in `ended`; false when the data ends first.
    bool takeBreak(bool& ended)
    {
        if (m_p >= m_end)
            return malformed();
        ended = *m_p == 0xff;
        if (ended)
            ++m_p;
        return true;
    }

    bool readSimple(QVariant& out, quint64 value, bool indefinite)
    {
        if (indefinite) // a break outside any container
            return malformed();
        switch (m_info) {
        case 20:
        case 21:
            out = QVariant(m_info == 21);
            return true;
        case 24: // a simple value in one byte, which must not be one of the short ones
            if (value < 32)
                return malformed();
            out = QVariant();
            return true;
        case 25:
            out = halfToDouble(quint16(value));
            return true;
        case 26: {
            const quint32 bits = quint32(value);
            float f;
            std::memcpy(&f, &bits, sizeof f);
            out = double(f);
            return true;
        }
        case 27: {
            double d;
            std::memcpy(&d, &value, sizeof d);
            out = d;
            return true;
        }
        default: // null, undefined and unassigned simple values
            out = QVariant();
            return true;
        }
    }

    bool readArray(QVariant& out, quint64 count, bool indefinite, int depth)
    {
        QVariantList list;
        if (!indefinite) {
            // Every item takes at least one byte: a count beyond what is left is a lie.
            if (count > quint64(m_end - m_p))
                return malformed();
            list.reserve(int(qMin<quint64>(count, 1 << 16)));
            for (quint64 i = 0; i < count; ++i) {
                QVariant item;
                if (!readValue(item, depth + 1))
                    return false;
                list.append(std::move(item));
            }
        } else {
            for (;;) {
                bool ended = false;
                if (!takeBreak(ended))
                    return false;
                if (ended)
                    break;
                QVariant item;
                if (!readValue(item, depth + 1))
                    return false;
                list.append(std::move(item));
            }
        }
        out = std::move(list);
        return true;
    }

    bool readMap(QVariant& out, quint64 count, bool indefinite, int depth)
    {
        if (!indefinite && count > quint64(m_end - m_p) / 2)
            return malformed();
        QVariantMap map;
        for (quint64 i = 0; indefinite || i < count; ++i) {
            bool ended = false;
            if (indefinite && !takeBreak(ended))
                return false;
            if (ended)
                break;
            QString key;
            if (!readTextItem(key))
                return false;
            QVariant value;
            if (!readValue(value, depth + 1))
                return false;
            // Keys arrive in ascending order from our own encoder; the hint makes that cheap
            // and is ignored when it is wrong.
            map.insert(map.cend(), key, value);
        }
        out = std::move(map);
        return true;
    }

    const uchar* m_p;
    const uchar* m_end;
    WireTextPool& m_texts;
    int m_info = 0; // additional information of the last head read
};
} // namespace

void WireFrameCodec::appendValue(QByteArray& out, const QVariant& value)
{
    putVariant(out, value);
}

void WireFrameCodec::appendMapHead(QByteArray& out, quint64 pairs)
{
    putHead(out, 5, pairs);
}

void WireFrameCodec::appendText(QByteArray& out, const char* utf8, qsizetype size)
{
    putHead(out, 3, quint64(size));
    out.append(utf8, int(size));
}

QByteArray WireFrameCodec::encodeMessage(const QVariant& msg)
{
    QByteArray out;
    out.reserve(256);
    putVariant(out, msg);
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
    QByteArray out = envelopeHead(frame.id, frame.kind, frame.type, frame.src, 256);
    putVariant(out, frame.msg);
    patchLength(out);
    return out;
}

bool WireFrameCodec::decodeMessage(const QByteArray& cbor, QVariant& msg, QString* error)
{
    WireTextPool texts;
    CborDecoder reader(cbor.constData(), cbor.size(), texts);
    QVariant value;
    bool ok = reader.readValue(value, 0);
    if (ok && !reader.atEnd()) {
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

WireFrameCodec::WireFrameCodec()
    : m_texts(std::make_unique<WireTextPool>())
{
}

WireFrameCodec::~WireFrameCodec() = default;

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

    CborDecoder r(start + 4, qsizetype(length), *m_texts);
    int major = 0;
    quint64 pairs = 0;
    bool indefinite = false;
    if (!r.peekMajor(&major) || major != 5 || !r.readHead(major, pairs, indefinite))
        return fail(QStringLiteral("帧内容不是映射"));

    WireFrame out;
    bool haveId = false;
    bool haveKind = false;
    for (quint64 i = 0; indefinite || i < pairs; ++i) {
        int next = 0;
        if (!r.peekMajor(&next))
            return fail(QStringLiteral("帧数据不完整"));
        if (indefinite && next == 7) {
            quint64 value;
            bool isBreak = false;
            if (!r.readHead(next, value, isBreak) || !isBreak)
                return fail(QStringLiteral("帧的键不是文本"));
            break;
        }
        if (next != 3)
            return fail(QStringLiteral("帧的键不是文本"));
        QString key;
        if (!r.readTextItem(key) || r.atEnd())
            return fail(QStringLiteral("帧数据不完整"));
        if (key == QLatin1String("id")) {
            int idMajor = 0;
            quint64 value = 0;
            bool idIndefinite = false;
            if (!r.readHead(idMajor, value, idIndefinite))
                return fail(QStringLiteral("帧数据不完整"));
            if (idMajor == 0 && value <= quint64(std::numeric_limits<qint64>::max()))
                out.id = qint64(value);
            else if (idMajor == 1 && value < quint64(std::numeric_limits<qint64>::max()))
                out.id = -qint64(value) - 1;
            else
                return fail(QStringLiteral("帧的请求号无效"));
            haveId = true;
        } else if (key == QLatin1String("kind") || key == QLatin1String("type") || key == QLatin1String("src")) {
            int textMajor = 0;
            if (!r.peekMajor(&textMajor) || textMajor != 3)
                return fail(QStringLiteral("帧字段%1不是文本").arg(key));
            QString text;
            if (!r.readTextItem(text))
                return fail(QStringLiteral("帧字段%1无效").arg(key));
            if (key == QLatin1String("kind")) {
                out.kind = std::move(text);
                haveKind = true;
            } else if (key == QLatin1String("type")) {
                out.type = std::move(text);
            } else {
                out.src = std::move(text);
            }
        } else {
            QVariant value;
            if (!r.readValue(value, 0))
                return fail(QStringLiteral("帧字段%1格式错误：%2").arg(key, r.error));
            if (key == QLatin1String("msg"))
                out.msg = std::move(value);
        }
    }
    if (!r.atEnd())
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
