#include "TableTextDecoder.h"

#include <QTextCodec>

#include <cstring>

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
        i += 4;
    }
    return i;
}

TableTextDecoder::TableTextDecoder(const QByteArray& codecName, bool strict)
    : m_codec(QTextCodec::codecForName(codecName))
    , m_strict(strict)
    , m_state(new State)
{
    m_gb18030 = m_codec && m_codec->name() == "GB18030";
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

bool TableTextDecoder::finish()
{
    if (m_failed || !m_codec)
        return false;
    if (!m_strict)
        return true;
    if (!m_pending.isEmpty() || m_state->state.remainingChars > 0) {
        m_failed = true;
        return false;
    }
    return true;
}
