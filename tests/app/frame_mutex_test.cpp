#include "app/frame_mutex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <thread>

#include "app/shared_value.h"
#include "sdk/records.h"

namespace kova::app {
namespace {

// Enters the mutex once, in a thread of its own.
class Worker {
public:
    explicit Worker(FrameMutex& mutex)
        : thread_([this, &mutex] {
              waiting_ = true;
              const std::lock_guard frame(mutex);
              entered_ = true;
          }) {
        while (!waiting_) std::this_thread::yield();
    }
    void join() { thread_.join(); }
    bool entered() const { return entered_; }

private:
    std::atomic<bool> waiting_{false};
    std::atomic<bool> entered_{false};
    std::thread thread_;
};

TEST(FrameMutex, GuiLockKeepsTheWorkerOutToTheEndOfItsScope) {
    FrameMutex mutex;
    auto lock = std::make_unique<FrameMutex::GuiLock>(mutex);
    EXPECT_TRUE(mutex.heldByGui());
    Worker worker(mutex);
    EXPECT_FALSE(worker.entered());
    lock.reset();
    worker.join();
    EXPECT_TRUE(worker.entered());
    EXPECT_FALSE(mutex.heldByGui());
}

TEST(FrameMutex, NestedGuiLocksNeitherBlockNorGiveUpEarly) {
    FrameMutex mutex;
    FrameMutex::GuiLock outer(mutex);
    {
        FrameMutex::GuiLock inner(mutex);
        inner.unlock();
        EXPECT_TRUE(mutex.heldByGui());
    }
    EXPECT_TRUE(mutex.heldByGui());
    Worker worker(mutex);
    EXPECT_FALSE(worker.entered());
    outer.unlock();
    worker.join();
    EXPECT_FALSE(mutex.heldByGui());
    outer.unlock();
    EXPECT_FALSE(mutex.heldByGui());
}

TEST(FrameMutex, ReleaseLetsTheWorkerInAndTakesTheMutexBack) {
    FrameMutex mutex;
    const FrameMutex::GuiLock lock(mutex);
    {
        const FrameMutex::GuiRelease release(mutex);
        EXPECT_FALSE(mutex.heldByGui());
        Worker worker(mutex);
        worker.join();
        EXPECT_TRUE(worker.entered());
    }
    EXPECT_TRUE(mutex.heldByGui());
}

TEST(FrameMutex, ReleaseOfWhatIsNotHeldTakesNothing) {
    FrameMutex mutex;
    { const FrameMutex::GuiRelease release(mutex); }
    EXPECT_FALSE(mutex.heldByGui());
    Worker worker(mutex);
    worker.join();
    EXPECT_TRUE(worker.entered());
}

TEST(SharedValue, IsReadWholeWhileAnotherThreadReplacesIt) {
    struct Pair {
        int a[64] = {};
    };
    SharedValue<Pair> value;
    std::atomic<bool> done{false};
    std::thread writer([&] {
        for (int i = 1; i <= 2000; ++i) {
            Pair pair;
            for (int& a : pair.a) a = i;
            value.store(pair);
        }
        done = true;
    });
    while (!done) {
        const Pair pair = value.load();
        for (const int a : pair.a) ASSERT_EQ(a, pair.a[0]);
    }
    writer.join();
    EXPECT_EQ(value.load().a[63], 2000);
}

TEST(SharedValue, StartsWithTheRecordsOwnValues) {
    EXPECT_EQ(SharedValue<bino::ImageRecord>().load().data, nullptr);
    EXPECT_TRUE(SharedValue<bino::GrabParameters>().load().rectify);
}

}  // namespace
}  // namespace kova::app
