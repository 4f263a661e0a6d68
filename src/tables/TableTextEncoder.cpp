#include "TableTextEncoder.h"

#include <QString>
#include <QTextCodec>
#include <QVector>

#include <limits>

namespace {

// The GB18030 bytes of every BMP character, packed big-endian (one byte below 0x80, two
// below 0x10000, four above); surrogates have no entry of their own. Empty when the codec
// is missing or its output cannot be split character by character.
const QVector<quint32>& bmpTable()
{
    static const QVector<quint32> table = []() -> QVector<quint32> {
        QTextCodec* codec = QTextCodec::codecForName("GB18030");
        if (!codec)
            return {};
        QString all;
        all.reserve(0x10000 - 0x800);
        for (int u = 0; u <= 0xFFFF; ++u) {
            if (!QChar::isSurrogate(uint(u)))
                all.append(QChar(ushort(u)));
        }
        QTextCodec::ConverterState state(QTextCodec::IgnoreHeader);
        const QByteArray bytes = codec->fromUnicode(all.constData(), all.size(), &state);
        const auto* b = reinterpret_cast<const unsigned char*>(bytes.constData());
        const int n = bytes.size();
        QVector<quint32> built(0x10000, 0);
        int i = 0;
        for (const QChar c : qAsConst(all)) {
            if (i >= n)
                return {};
            quint32 code = b[i];
            int size = 1;
            if (b[i] >= 0x80)
                size = (i + 1 < n && b[i + 1] >= 0x30 && b[i + 1] <= 0x39) ? 4 : 2;
            if (i + size > n)
                return {};
            for (int k = 1; k < size; ++k)
                code = (code << 8) | b[i + k];
            if ((size == 2 && code < 0x100) || (size == 4 && code < 0x10000))
                return {};
            built[c.unicode()] = code;
            i += size;
        }
        return i == n ? built : QVector<quint32>();
    }();
    return table;
}

} // namespace

struct TableTextEncoder::State {
    QTextCodec::ConverterState state{QTextCodec::IgnoreHeader};
};

TableTextEncoder::TableTextEncoder(const QByteArray& codecName)
    : m_codec(codecName.isEmpty() ? nullptr : QTextCodec::codecForName(codecName))
    , m_state(new State)
{
    if (!m_codec)
        m_codec = QTextCodec::codecForName("UTF-8");
    m_gb18030 = m_codec->name() == "GB18030" && !bmpTable().isEmpty();
}

TableTextEncoder::~TableTextEncoder() = default;

const QByteArray& TableTextEncoder::encode(const QChar* text, int len)
{
    if (!(m_gb18030 && encodeGb18030(text, len)))
        m_bytes = m_codec->fromUnicode(text, len, &m_state->state);
    return m_bytes;
}

bool TableTextEncoder::encodeGb18030(const QChar* text, int len)
{
    if (len > std::numeric_limits<int>::max() / 4)
        return false; // room for four bytes a character cannot be had
    const quint32* table = bmpTable().constData();
    m_bytes.resize(4 * len);
    char* const begin = m_bytes.data();
    char* w = begin;
    for (int i = 0; i < len; ++i) {
        const ushort u = text[i].unicode();
        if (u < 0x80) {
            *w++ = char(u);
            continue;
        }
        if (QChar::isSurrogate(u))
            return false; // pairs and strays alike are left to the codec
        const quint32 code = table[u];
        if (code < 0x100) {
            *w++ = char(code);
        } else if (code < 0x10000) {
            *w++ = char(code >> 8);
            *w++ = char(code);
        } else {
            *w++ = char(code >> 24);
            *w++ = char(code >> 16);
            *w++ = char(code >> 8);
            *w++ = char(code);
        }
    }
    m_bytes.resize(int(w - begin));
    return true;
}
