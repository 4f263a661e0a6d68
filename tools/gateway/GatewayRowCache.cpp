#include "GatewayRowCache.h"

#include <WireFrameCodec.h>


void GatewayRowCache::clear()
{
    m_blob.clear();
    m_live = 0;
    m_rows.clear();
}

bool GatewayRowCache::has(int first, int count) const
{
    if (first < 0 || count < 0 || first + count > m_rows.size())
        return false;
    const Slot* slot = m_rows.constData() + first;
    for (int i = 0; i < count; ++i) {
        if (slot[i].length < 0)
            return false;
    }
    return true;
}

void GatewayRowCache::encodeRow(QByteArray& out, const QVector<QByteArray>& keys, const QVariant* cells)
{
    WireFrameCodec::appendMapHead(out, quint64(keys.size()));
    for (const QByteArray& key : keys) {
        WireFrameCodec::appendText(out, key.constData(), key.size());
        WireFrameCodec::appendValue(out, *cells++);
    }
}

void GatewayRowCache::store(int first, const GatewayPage& page)
{
    if (first < 0 || page.rows <= 0)
        return;
    // Rows replaced many times leave more gaps than rows: start over rather than grow.
    if (m_blob.size() > 2 * m_live + 16 * 1024 * 1024)
        clear();
    QVector<QByteArray> keys;
    keys.reserve(page.columns.size());
    for (const QString& c : page.columns)
        keys.append(c.toUtf8());
    if (m_rows.size() < first + page.rows)
        m_rows.resize(first + page.rows);
    const QVariant* cells = page.cells.constData();
    for (int r = 0; r < page.rows; ++r, cells += keys.size()) {
        Slot& slot = m_rows[first + r];
        if (slot.length >= 0)
            m_live -= slot.length;
        const int offset = m_blob.size();
        encodeRow(m_blob, keys, cells);
        slot.offset = offset;
        slot.length = m_blob.size() - offset;
        m_live += slot.length;
    }
}

void GatewayRowCache::forget(int row)
{
    if (row < 0 || row >= m_rows.size() || m_rows.at(row).length < 0)
        return;
    m_live -= m_rows.at(row).length;
    m_rows[row].length = -1;
}

void GatewayRowCache::append(QByteArray& out, int first, int count) const
{
    const Slot* slot = m_rows.constData() + first;
    const char* blob = m_blob.constData();
    // Neighbouring rows usually lie one after the other and go in one copy.
    int i = 0;
    while (i < count) {
        const int start = slot[i].offset;
        int end = start + slot[i].length;
        ++i;
        while (i < count && slot[i].offset == end) {
            end += slot[i].length;
            ++i;
        }
        out.append(blob + start, end - start);
    }
}
