#include "camera/base/parallel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace kova::camera {
namespace {

/// Restores the number of threads.
struct ParallelFor : testing::Test {
    ~ParallelFor() override { setThreadCount(0); }
};

TEST_F(ParallelFor, CallsEveryNumberOnce) {
    for (const int threads : {0, 1, 2, 3, 2, 7}) {
        setThreadCount(threads);
        for (const int count : {-1, 0, 1, 2, 500}) {
            std::vector<std::atomic<int>> calls(500);
            parallelFor(count, [&](int i) { ++calls[static_cast<std::size_t>(i)]; });
            for (int i = 0; i < 500; ++i)
                ASSERT_EQ(i < count ? 1 : 0, calls[static_cast<std::size_t>(i)])
                    << threads << " threads, " << count << " calls";
        }
    }
}

TEST_F(ParallelFor, UsesNoMoreThreadsThanAskedFor) {
    setThreadCount(2);
    EXPECT_EQ(2, threadCount());
    std::atomic<int> inside{0}, most{0};
    parallelFor(400, [&](int) {
        const int now = ++inside;
        int seen = most;
        while (now > seen && !most.compare_exchange_weak(seen, now)) {
        }
        std::this_thread::yield();
        --inside;
    });
    EXPECT_LE(most, 2);
}

TEST_F(ParallelFor, NestsAndServesSeveralThreadsAtOnce) {
    setThreadCount(2);
    std::atomic<int> calls{0};
    const auto work = [&] {
        for (int n = 0; n < 20; ++n)
            parallelFor(8, [&](int) { parallelFor(8, [&](int) { ++calls; }); });
    };
    std::thread other(work), another(work);
    work();
    other.join();
    another.join();
    EXPECT_EQ(3 * 20 * 8 * 8, calls);
}

}  // namespace
}  // namespace kova::camera
