#include "camera/base/parallel.h"

#include <tbb/info.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <atomic>
#include <map>
#include <memory>
#include <mutex>

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
void runOnPlainThreads(int count, int threads, IndexBody body) {
    std::atomic<int> next{0};
    const auto work = [&] {
        for (int i = next++; i < count; i = next++) body(i);
    };
    std::vector<std::thread> others;
    for (int t = 1; t < threads; ++t) others.emplace_back(work);
    work();
    for (std::thread& other : others) other.join();
}
#else
/// The arena of so many threads; made once, since making one costs as much as a small loop.
tbb::task_arena& arenaOf(int threads) {
    // Never destroyed: a thread may still be in it when the program ends.
    static auto& arenas = *new std::map<int, std::unique_ptr<tbb::task_arena>>;
    static std::mutex mutex;
    const std::lock_guard<std::mutex> lock(mutex);
    std::unique_ptr<tbb::task_arena>& arena = arenas[threads];
    if (!arena)
        arena = std::make_unique<tbb::task_arena>(threads);
    return *arena;
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

void parallelFor(int count, IndexBody body) {
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
    const auto run = [&] { tbb::parallel_for(0, count, body); };
    if (g_threads == 0)
        run();
    else
        arenaOf(threads).execute(run);
#endif
}

}  // namespace kova::camera
