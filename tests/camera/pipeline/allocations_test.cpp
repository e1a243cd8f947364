// Counts what the whole pipeline takes from the heap: not only what C++ allocates, but malloc, and
// so also what OpenCV and the standard library take.

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <vector>

#include "camera/pipeline/pipeline.h"
#include "camera/simulation/sequence.h"

#if !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)

namespace {
std::atomic<bool> g_counting{false};
std::atomic<long> g_allocations{0};

/// oneTBB keeps a pool of its own for tasks; which thread fills it up, and when, is chance.
bool isTaskPool(const void* caller) {
    Dl_info info;
    return dladdr(caller, &info) && info.dli_fname && std::strstr(info.dli_fname, "libtbb");
}

void count(const void* caller) {
    if (g_counting && !isTaskPool(caller))
        ++g_allocations;
}
}  // namespace

extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);

#define KOVA_EXPORTED __attribute__((visibility("default")))

KOVA_EXPORTED void* malloc(std::size_t bytes) {
    count(__builtin_return_address(0));
    return __libc_malloc(bytes);
}
KOVA_EXPORTED void* calloc(std::size_t n, std::size_t bytes) {
    count(__builtin_return_address(0));
    return __libc_calloc(n, bytes);
}
KOVA_EXPORTED void* realloc(void* p, std::size_t bytes) {
    count(__builtin_return_address(0));
    return __libc_realloc(p, bytes);
}
KOVA_EXPORTED void* aligned_alloc(std::size_t alignment, std::size_t bytes) {
    count(__builtin_return_address(0));
    return __libc_memalign(alignment, bytes);
}
KOVA_EXPORTED void* memalign(std::size_t alignment, std::size_t bytes) {
    count(__builtin_return_address(0));
    return __libc_memalign(alignment, bytes);
}
KOVA_EXPORTED int posix_memalign(void** p, std::size_t alignment, std::size_t bytes) {
    count(__builtin_return_address(0));
    *p = __libc_memalign(alignment, bytes);
    return *p ? 0 : ENOMEM;
}
}

namespace kova::camera {
namespace {

constexpr int kWidth = 320, kHeight = 200, kFrames = 6;

/// Frames of a drive with lens distortion, decoded.
struct Drive {
    StereoCalibration calibration;
    std::vector<DecodedFrame> frames;

    Drive() {
        auto scene = makeScene("demo", 3);
        EXPECT_TRUE(scene.ok());
        RigOptions rig;
        rig.width = kWidth;
        rig.height = kHeight;
        rig.lens_distortion = true;
        rig.fps = 10;
        SimulatedSequence sequence(Renderer(std::move(scene.value()), makeRig(rig)), {});
        calibration = sequence.calibration();
        FrameDecoder decoder(sequence.stream());
        RawFrame raw;
        for (int i = 0; i < kFrames; ++i) {
            EXPECT_TRUE(sequence.next(raw).ok());
            frames.emplace_back();
            DecodedFrame& frame = frames.back();
            EXPECT_TRUE(decoder.decode(raw, frame.pair).ok());
            frame.t_ns = raw.t_ns;
            frame.imu = raw.imu;
            frame.position = i;
        }
    }
};

struct Outputs {
    std::vector<float> cloud;
    Image<Rgba> view;
};

/// Everything that a frame is asked for but the top view, whose scale OpenCV writes with memory of
/// its own. There and back again, so that nothing jumps.
void processAll(Pipeline& pipeline, Drive& drive, PipelineSettings& settings, Outputs& out) {
    for (int i = 0; i < 2 * kFrames; ++i) {
        DecodedFrame& frame = drive.frames[i < kFrames ? i : 2 * kFrames - 1 - i];
        frame.t_ns += 2'000'000'000;
        for (ImuSample& sample : frame.imu) sample.t_ns += 2'000'000'000;
        ASSERT_TRUE(pipeline.process(frame, settings).ok());
        pipeline.points(out.cloud.data());
        for (const auto type :
             {bino::OBSTACLE_VIEW_TYPE_OBSTACLE, bino::OBSTACLE_VIEW_TYPE_GROUND,
              bino::OBSTACLE_VIEW_TYPE_IMAGE_STIXELS, bino::OBSTACLE_VIEW_TYPE_STIXELS})
            paintImageView(type, pipeline.viewInput(), pipeline.detection(), out.view.view());
    }
}

TEST(PipelineAllocations, AreNoneOnceEveryFrameWasSeen) {
    Drive drive;
    Status status;
    const auto pipeline = Pipeline::make(drive.calibration, status);
    ASSERT_TRUE(pipeline) << status.message();
    const RectifiedGeometry& g = pipeline->geometry();
    Outputs out;
    out.cloud.resize(std::size_t{3} * g.width * g.height);
    out.view.resize(g.width, g.height);
    PipelineSettings settings;
    settings.distance = DistanceRange(g);
    settings.detection.use_imu = true;
    for (const WorkMode mode : {WorkMode::kFast, WorkMode::kMedium, WorkMode::kSlow}) {
        settings.work_mode = mode;
        settings.fill = mode == WorkMode::kSlow;
        settings.confidence_threshold = mode == WorkMode::kMedium ? 0.3F : 0;
        // Until the rows have come to rest too: each correction makes other pictures.
        int rounds = 0;
        for (RowOffset::Terms before{{-1}};
             rounds < 2 || (rounds < 20 && pipeline->rowOffset().terms != before); ++rounds) {
            before = pipeline->rowOffset().terms;
            processAll(*pipeline, drive, settings, out);
        }
        ASSERT_LT(rounds, 20);
        ASSERT_GT(pipeline->rowOffset().largest(), 0);
        g_allocations = 0;
        g_counting = true;
        processAll(*pipeline, drive, settings, out);
        g_counting = false;
        EXPECT_EQ(0, g_allocations)
            << "in " << 2 * kFrames << " frames, mode " << static_cast<int>(mode);
    }
}

TEST(PipelineAllocations, AreNoneWhenRowsAreAlignedAgain) {
    Drive drive;
    Status status;
    const auto rectifier = Rectifier::make(drive.calibration, status);
    ASSERT_TRUE(rectifier) << status.message();
    RowOffset offset(rectifier->geometry());
    offset.terms[0] = 0.1;
    rectifier->alignRows(offset);
    g_allocations = 0;
    g_counting = true;
    offset.terms[0] = 0.2;
    rectifier->alignRows(offset);
    g_counting = false;
    EXPECT_EQ(0, g_allocations);
}

TEST(PipelineAllocations, AreSeen) {
    g_allocations = 0;
    g_counting = true;
    std::vector<int> vector(1000);
    g_counting = false;
    EXPECT_GE(g_allocations, 1) << vector.size();
}

}  // namespace
}  // namespace kova::camera

#else

TEST(PipelineAllocations, AreNoneOnceEveryFrameWasSeen) {
    GTEST_SKIP() << "the sanitizer has an allocator of its own";
}

#endif
