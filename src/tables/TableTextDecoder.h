#pragma once

#include <QByteArray>
#include <QString>

class QTextCodec;

// Decodes a text file chunk by chunk. In strict mode it reports the first byte sequence
// the codec cannot decode (and a NUL byte, which marks a binary file that no text codec
// fits) instead of replacing it. A multi-byte character cut off by the end of the file is
// not invalid (the codec is still waiting for the rest of it): it is left out of the text.
// UTF-8 and GB18030 are judged strictly; other codecs by Qt's count of invalid characters.
class TableTextDecoder
{
public:
    // `continuing`: the bytes carry on a text begun elsewhere, so a leading byte-order
    // mark is a character like any other.
    TableTextDecoder(const QByteArray& codecName, bool strict, bool continuing = false);
    // True for the codecs in which a line-feed byte always ends a line and never stands
    // inside a character (UTF-8, GB18030): text in them may be cut at line ends.
    bool cutsAtLineFeed() const;
    ~TableTextDecoder();

    bool isValidCodec() const { return m_codec != nullptr; }

    // Appends the decoded text of `data` to `out`; false once an invalid sequence is seen.
    bool decode(const char* data, int len, QString& out);
    // Ends the input; false when an invalid sequence was seen. A character left incomplete
    // is dropped.
    bool finish();

    TableTextDecoder(const TableTextDecoder&) = delete;
    TableTextDecoder& operator=(const TableTextDecoder&) = delete;

private:
    bool decodeGb18030(const char* data, int len, QString& out);
    // Decodes every complete character through a table; false at the first invalid
    // sequence. `consumed` is how many bytes were used (a cut character is left over).
    bool decodeGb18030Fast(const unsigned char* data, int len, const ushort* table, QString& out, int& consumed);

    QTextCodec* m_codec = nullptr;
    bool m_strict = false;
    bool m_gb18030 = false;
    bool m_failed = false;
    QByteArray m_pending; // GB18030: bytes of a character cut by the chunk boundary
    struct State;
    State* m_state = nullptr;
};

// Length of the longest prefix of `data` made of complete, valid GB18030 characters;
// `invalid` is set when the byte after that prefix cannot start or continue a character
// (as opposed to a character that is merely cut off at the end of the buffer).
int gb18030ValidPrefix(const unsigned char* data, int len, bool& invalid);
