#include "camera/base/parallel.h"

#include <tbb/global_control.h>
#include <tbb/info.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <atomic>

namespace kova::camera {

namespace {
std::atomic<int> g_threads{0};
}

void setThreadCount(int threads) {
    g_threads = threads > 0 ? threads : 0;
}

int threadCount() {
    const int threads = g_threads;
    return threads > 0 ? threads : tbb::info::default_concurrency();
}

void parallelFor(int count, const std::function<void(int)>& body) {
    if (count <= 0)
        return;
    const int threads = threadCount();
    if (count == 1 || threads == 1) {
        for (int i = 0; i < count; ++i) body(i);
        return;
    }
    const auto run = [&] { tbb::parallel_for(0, count, [&](int i) { body(i); }); };
    if (g_threads == 0) {
        run();
        return;
    }
    tbb::task_arena arena(threads);
    arena.execute(run);
}

}  // namespace kova::camera
