#pragma once

#include <QByteArray>
#include <QChar>

#include <memory>

class QTextCodec;

// Encodes text for a file, block by block, never with a byte-order mark. GB18030 goes
// through a table of every BMP character taken once from the system codec, so that both
// agree by construction; a block holding a surrogate, and every other codec, go through
// the codec itself. An unknown codec name means UTF-8.
class TableTextEncoder
{
public:
    explicit TableTextEncoder(const QByteArray& codecName);
    ~TableTextEncoder();

    // The bytes of `text`; valid until the next call.
    const QByteArray& encode(const QChar* text, int len);

    TableTextEncoder(const TableTextEncoder&) = delete;
    TableTextEncoder& operator=(const TableTextEncoder&) = delete;

private:
    bool encodeGb18030(const QChar* text, int len);

    QTextCodec* m_codec = nullptr;
    bool m_gb18030 = false;
    QByteArray m_bytes;
    struct State;
    std::unique_ptr<State> m_state;
};
