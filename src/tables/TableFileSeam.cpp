#include "TableFileSeam.h"

#include <atomic>

namespace {
std::atomic<TableFileSeam::Hook> g_hook{nullptr};
} // namespace

void TableFileSeam::setHook(Hook hook)
{
    g_hook.store(hook, std::memory_order_release);
}

void TableFileSeam::reach(Point point, const QString& fileName)
{
    if (Hook hook = g_hook.load(std::memory_order_acquire))
        hook(point, fileName);
}
