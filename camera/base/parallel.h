#pragma once

#include <type_traits>

namespace kova::camera {

/// Something that is called with a number, not owned; costs no allocation, whatever it captures.
class IndexBody {
public:
    template <typename Body,
              typename = std::enable_if_t<!std::is_same_v<std::decay_t<Body>, IndexBody>>>
    IndexBody(const Body& body)  // NOLINT(google-explicit-constructor)
        : body_(&body), call_([](const void* b, int i) { (*static_cast<const Body*>(b))(i); }) {}
    void operator()(int i) const { call_(body_, i); }

private:
    const void* body_;
    void (*call_)(const void*, int);
};

/// Runs `body(i)` for every i in [0, count), on the library's threads, and returns when all are
/// done. What a body writes must not depend on the order or the thread.
void parallelFor(int count, IndexBody body);

/// Threads that parallelFor() uses, for tests and benchmarks; 0 restores all cores.
void setThreadCount(int threads);
int threadCount();

}  // namespace kova::camera
