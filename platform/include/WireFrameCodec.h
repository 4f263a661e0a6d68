#pragma once

#include "VantorPlatformGlobal.h"

#include <QByteArray>
#include <QString>
#include <QVariant>

#include <memory>

struct WireTextPool;

// Frame kinds of the gateway protocol.
namespace WireKind {
inline constexpr char request[] = "req";
inline constexpr char reply[] = "rep";
inline constexpr char failure[] = "fail";
inline constexpr char push[] = "push";
} // namespace WireKind

// One frame of the gateway protocol: a request, its reply or failure, or a push.
struct WireFrame {
    qint64 id = 0;
    QString kind;
    QString type; // function id
    QString src;  // plugin id of the sender
    QVariant msg; // the packed message (a list of row maps)
};

// Encodes and decodes the frames that presenters and the gateway exchange over TCP: a
// 4-byte big-endian length, then a CBOR map with the keys id, kind, type, src and msg.
//
// Encoding is static. Decoding is incremental: append() what the socket delivered, then
// call next() until it stops answering Ready. A frame that claims more than
// maxFrameSize bytes, or whose content is not a well-formed frame, puts the decoder in
// the error state; the connection that fed it is to be closed.
class VANTORPLATFORM_EXPORT WireFrameCodec
{
public:
    static constexpr qsizetype maxFrameSize = 64 * 1024 * 1024;
    enum Status { NeedMore, Ready, Error };

    // The whole frame, length prefix included.
    static QByteArray encode(const WireFrame& frame);
    // The same with a message body that is already CBOR (see encodeMessage).
    static QByteArray encode(qint64 id, const QString& kind, const QString& type, const QString& src,
                             const QByteArray& messageCbor);
    // The CBOR form of a packed message (any QVariant made of lists, maps and scalars).
    static QByteArray encodeMessage(const QVariant& msg);
    // Appends the CBOR of one value of a message (lists, maps, scalars).
    static void appendValue(QByteArray& out, const QVariant& value);
    // Appends the head of a map of `pairs` pairs, or a text from its UTF-8 bytes.
    static void appendMapHead(QByteArray& out, quint64 pairs);
    static void appendText(QByteArray& out, const char* utf8, qsizetype size);
    // Decodes a CBOR message body on its own; false (with a reason) when it is malformed.
    static bool decodeMessage(const QByteArray& cbor, QVariant& msg, QString* error = nullptr);

    WireFrameCodec();
    ~WireFrameCodec();
    WireFrameCodec(const WireFrameCodec&) = delete;
    WireFrameCodec& operator=(const WireFrameCodec&) = delete;

    void append(const char* data, qsizetype size);
    void append(const QByteArray& data) { append(data.constData(), data.size()); }
    // Takes the next complete frame out of the buffer.
    Status next(WireFrame& frame);
    // Forgets buffered bytes and a previous error (for a new connection).
    void clear();

    QString errorString() const { return m_error; }
    qsizetype bufferedBytes() const { return m_buffer.size() - m_pos; }

private:
    Status fail(const QString& reason);

    QByteArray m_buffer;
    qsizetype m_pos = 0;
    QString m_error;
    // Texts decoded from earlier frames, reused so that repeated keys and values share data.
    std::unique_ptr<WireTextPool> m_texts;
};
