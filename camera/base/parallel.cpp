#include "camera/base/parallel.h"

#include <tbb/info.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <atomic>

#if defined(__SANITIZE_THREAD__)
#include <thread>
#include <vector>
#endif

namespace kova::camera {

namespace {
std::atomic<int> g_threads{0};

#if defined(__SANITIZE_THREAD__)
// ThreadSanitizer cannot see how the distribution's oneTBB hands work over and would report every
// body; with plain threads it sees the bodies' own races and nothing else.
void runOnPlainThreads(int count, int threads, const std::function<void(int)>& body) {
    std::atomic<int> next{0};
    const auto work = [&] {
        for (int i = next++; i < count; i = next++) body(i);
    };
    std::vector<std::thread> others;
    for (int t = 1; t < threads; ++t) others.emplace_back(work);
    work();
    for (std::thread& other : others) other.join();
}
#endif

}  // namespace

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
#if defined(__SANITIZE_THREAD__)
    runOnPlainThreads(count, threads, body);
#else
    const auto run = [&] { tbb::parallel_for(0, count, [&](int i) { body(i); }); };
    if (g_threads == 0) {
        run();
        return;
    }
    tbb::task_arena arena(threads);
    arena.execute(run);
#endif
}

}  // namespace kova::camera
