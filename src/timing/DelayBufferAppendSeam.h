#pragma once

class VantorDelayBuffer;

// A pause point inside VantorDelayBuffer's appends from threads other than the buffer's:
// the hook runs after the values are stored and before the buffer's thread is asked to
// start the interval. Tests hold a producer there to replay an interleaving exactly; no
// hook is set otherwise.
namespace DelayBufferAppendSeam {
using Hook = void (*)(VantorDelayBuffer* buffer);
void setHook(Hook hook);
} // namespace DelayBufferAppendSeam
