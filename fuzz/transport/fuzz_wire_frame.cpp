// Feeds arbitrary bytes to the gateway protocol's frame decoder, in chunks whose size the
// first byte chooses. Every frame it accepts must encode and decode back to itself.
#include <WireFrameCodec.h>

#include <cstdint>
#include <cstdlib>

namespace {
void checkRoundTrip(const WireFrame& frame)
{
    WireFrameCodec again;
    again.append(WireFrameCodec::encode(frame));
    WireFrame back;
    if (again.next(back) != WireFrameCodec::Ready || back.id != frame.id || back.kind != frame.kind
        || back.type != frame.type || back.src != frame.src
        || WireFrameCodec::encodeMessage(back.msg) != WireFrameCodec::encodeMessage(frame.msg))
        std::abort();
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const size_t chunk = 1 + data[0] % 64;
    const char* bytes = reinterpret_cast<const char*>(data + 1);
    const size_t length = size - 1;

    WireFrameCodec codec;
    WireFrame frame;
    for (size_t pos = 0; pos < length; pos += chunk) {
        codec.append(bytes + pos, qsizetype(std::min(chunk, length - pos)));
        WireFrameCodec::Status status;
        while ((status = codec.next(frame)) == WireFrameCodec::Ready)
            checkRoundTrip(frame);
        if (status == WireFrameCodec::Error)
            break;
    }

    QVariant msg;
    WireFrameCodec::decodeMessage(QByteArray::fromRawData(bytes, int(length)), msg);
    return 0;
}
