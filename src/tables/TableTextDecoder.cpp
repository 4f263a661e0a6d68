#include "TableTextDecoder.h"

#include <QTextCodec>
#include <QVector>

#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace {

constexpr int kTrailCount = 0xFE - 0x40 + 1; // trail bytes 0x40-0xFE (0x7F is never one)

// The UTF-16 unit of every two-byte GB18030 character, indexed by (lead - 0x81) and
// (trail - 0x40); taken once from the system codec so that both agree by construction.
// Empty when the codec does not give exactly one unit per character.
const QVector<ushort>& twoByteTable()
{
    static const QVector<ushort> table = [] {
        QTextCodec* codec = QTextCodec::codecForName("GB18030");
        QVector<ushort> t;
        if (!codec)
            return t;
        QByteArray all;
        all.reserve(126 * kTrailCount * 2);
        for (int lead = 0x81; lead <= 0xFE; ++lead) {
            for (int trail = 0x40; trail <= 0xFE; ++trail) {
                all.append(char(lead));
                all.append(char(trail == 0x7F ? 0x40 : trail));
            }
        }
        const QString text = codec->toUnicode(all);
        if (text.size() != all.size() / 2)
            return t;
        t.resize(text.size());
        for (int i = 0; i < text.size(); ++i)
            t[i] = text.at(i).unicode();
        return t;
    }();
    return table;
}

} // namespace

struct TableTextDecoder::State {
    QTextCodec::ConverterState state;
};

int gb18030ValidPrefix(const unsigned char* data, int len, bool& invalid)
{
    invalid = false;
    int i = 0;
    while (i < len) {
        const unsigned char b1 = data[i];
        if (b1 < 0x80) {
            ++i;
            continue;
        }
        if (b1 == 0x80 || b1 == 0xFF) {
            invalid = true;
            return i;
        }
        if (i + 1 >= len)
            return i;
        const unsigned char b2 = data[i + 1];
        if ((b2 >= 0x40 && b2 <= 0x7E) || (b2 >= 0x80 && b2 <= 0xFE)) {
            i += 2;
            continue;
        }
        if (b2 < 0x30 || b2 > 0x39) {
            invalid = true;
            return i;
        }
        // Four-byte form: lead 0x81-0x84 covers the rest of the BMP, 0x90-0xE3 the
        // supplementary planes; other leads are unassigned.
        if (!((b1 >= 0x81 && b1 <= 0x84) || (b1 >= 0x90 && b1 <= 0xE3))) {
            invalid = true;
            return i;
        }
        if (i + 2 >= len)
            return i;
        const unsigned char b3 = data[i + 2];
        if (b3 < 0x81 || b3 > 0xFE) {
            invalid = true;
            return i;
        }
        if (i + 3 >= len)
            return i;
        const unsigned char b4 = data[i + 3];
        if (b4 < 0x30 || b4 > 0x39) {
            invalid = true;
            return i;
        }
        // The BMP part ends at 0x8431A439 and the supplementary part at 0xE3329A35; the
        // four-byte forms past either are unassigned.
        const int lead = b1 >= 0x90 ? b1 - 0x90 : b1 - 0x81;
        const int linear = ((lead * 10 + (b2 - 0x30)) * 126 + (b3 - 0x81)) * 10 + (b4 - 0x30);
        if (linear > (b1 >= 0x90 ? 0x10FFFF - 0x10000 : 39419)) {
            invalid = true;
            return i;
        }
        i += 4;
    }
    return i;
}

TableTextDecoder::TableTextDecoder(const QByteArray& codecName, bool strict, bool continuing)
    : m_codec(QTextCodec::codecForName(codecName))
    , m_strict(strict)
    , m_state(new State)
{
    m_gb18030 = m_codec && m_codec->name() == "GB18030";
    if (continuing)
        m_state->state.flags |= QTextCodec::IgnoreHeader;
}

bool TableTextDecoder::cutsAtLineFeed() const
{
    return m_codec && (m_gb18030 || m_codec->mibEnum() == 106);
}

TableTextDecoder::~TableTextDecoder()
{
    delete m_state;
}

bool TableTextDecoder::decode(const char* data, int len, QString& out)
{
    if (m_failed || !m_codec)
        return false;
    if (m_strict && std::memchr(data, 0, size_t(len))) {
        m_failed = true;
        return false;
    }
    if (m_gb18030)
        return decodeGb18030(data, len, out);
    const QString text = m_codec->toUnicode(data, len, &m_state->state);
    if (m_strict && m_state->state.invalidChars > 0) {
        m_failed = true;
        return false;
    }
    out += text;
    return true;
}

bool TableTextDecoder::decodeGb18030(const char* data, int len, QString& out)
{
    const char* bytes = data;
    int size = len;
    QByteArray joined;
    if (!m_pending.isEmpty()) {
        joined = m_pending;
        joined.append(data, len);
        bytes = joined.constData();
        size = joined.size();
    }
    const QVector<ushort>& table = twoByteTable();
    if (!table.isEmpty()) {
        const int start = out.size();
        int consumed = 0;
        if (decodeGb18030Fast(reinterpret_cast<const unsigned char*>(bytes), size, table.constData(), out, consumed)) {
            m_pending = QByteArray(bytes + consumed, size - consumed);
            return true;
        }
        out.resize(start); // an invalid sequence: judged below as before
    }
    bool invalid = false;
    int valid = gb18030ValidPrefix(reinterpret_cast<const unsigned char*>(bytes), size, invalid);
    if (invalid && m_strict) {
        m_failed = true;
        return false;
    }
    if (invalid) {
        // Lenient: let the codec replace what it cannot read and go on.
        out += m_codec->toUnicode(bytes, size, &m_state->state);
        m_pending.clear();
        return true;
    }
    out += m_codec->toUnicode(bytes, valid);
    m_pending = QByteArray(bytes + valid, size - valid);
    return true;
}

bool TableTextDecoder::decodeGb18030Fast(const unsigned char* data, int len, const ushort* table, QString& out,
                                         int& consumed)
{
    // One unit per byte at most: two- and four-byte characters give one or two units.
    const int start = out.size();
    out.resize(start + len);
    ushort* const begin = reinterpret_cast<ushort*>(out.data() + start);
    ushort* w = begin;
    int i = 0;
    while (i < len) {
        const unsigned char b1 = data[i];
        if (b1 < 0x80) {
#ifdef __SSE2__
            // ASCII runs widen sixteen bytes at a time.
            while (i + 16 <= len) {
                const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(data + i));
                const int high = _mm_movemask_epi8(bytes);
                const __m128i zero = _mm_setzero_si128();
                _mm_storeu_si128(reinterpret_cast<__m128i*>(w), _mm_unpacklo_epi8(bytes, zero));
                _mm_storeu_si128(reinterpret_cast<__m128i*>(w + 8), _mm_unpackhi_epi8(bytes, zero));
                if (high != 0) {
                    const int ascii = __builtin_ctz(uint(high));
                    w += ascii;
                    i += ascii;
                    break;
                }
                w += 16;
                i += 16;
            }
            if (i >= len || data[i] >= 0x80)
                continue;
#endif
            *w++ = data[i];
            ++i;
            continue;
        }
        if (b1 == 0x80 || b1 == 0xFF)
            return false;
        if (i + 1 >= len)
            break;
        const unsigned char b2 = data[i + 1];
        if (((b2 >= 0x40 && b2 <= 0x7E) || (b2 >= 0x80 && b2 <= 0xFE))) {
            *w++ = table[(b1 - 0x81) * kTrailCount + (b2 - 0x40)];
            i += 2;
            continue;
        }
        // Four-byte characters are rare: validated here, decoded by the codec.
        bool invalid = false;
        const int valid = gb18030ValidPrefix(data + i, qMin(4, len - i), invalid);
        if (invalid)
            return false;
        if (valid == 0)
            break; // cut by the end of the buffer
        const QString decoded = m_codec->toUnicode(reinterpret_cast<const char*>(data + i), 4);
        for (QChar c : decoded)
            *w++ = c.unicode();
        i += 4;
    }
    consumed = i;
    out.resize(start + int(w - begin));
    return true;
}

bool TableTextDecoder::finish()
{
    if (m_failed || !m_codec)
        return false;
    m_pending.clear();
    return true;
}
