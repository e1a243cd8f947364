#pragma once

#include <functional>

namespace kova::camera {

/// Runs `body(i)` for every i in [0, count), on the library's threads, and returns when all are
/// done. What a body writes must not depend on the order or the thread.
void parallelFor(int count, const std::function<void(int)>& body);

/// Threads that parallelFor() uses, for tests and benchmarks; 0 restores all cores.
void setThreadCount(int threads);
int threadCount();

}  // namespace kova::camera
