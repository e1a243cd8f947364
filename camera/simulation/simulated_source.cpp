#include "camera/simulation/simulated_source.h"

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <mutex>
#include <thread>
#include <vector>

#include "camera/simulation/film.h"
#include "camera/simulation/imu.h"
#include "camera/simulation/renderer.h"
#include "camera/simulation/sequence.h"

namespace kova::camera {

namespace {

class MonotonicClock : public SourceClock {
public:
    std::int64_t nowNs() override {
        return std::chrono::duration_cast<std::chrono::nanoseconds>(
                   std::chrono::steady_clock::now().time_since_epoch())
            .count();
    }
    void sleepUntil(std::int64_t t_ns) override {
        std::this_thread::sleep_until(
            std::chrono::steady_clock::time_point(std::chrono::nanoseconds(t_ns)));
    }
};

constexpr std::int64_t kSecondNs = 1'000'000'000;
constexpr std::int64_t kLongestWaitNs = 100'000'000;
constexpr double kViewsPerSecond = 30;
/// Views that must be there before the camera starts to move.
constexpr int kFirstViews = 8;
constexpr std::size_t kMemoryBytes = 140'000'000;
constexpr int kMaxViews = 64;

/// Where the camera is on its way forth and back.
struct ViewPlace {
    int index = 0;
    bool forwards = true;
};

}  // namespace

struct SimulatedSource::Impl {
    Impl(const SimulatedCameraOptions& o, Renderer r)
        : options(o),
          renderer(std::move(r)),
          film(renderer.rig()),
          exposure(0.5e6 / renderer.rig().fps) {}

    SimulatedCameraOptions options;
    std::unique_ptr<SourceClock> clock;
    Renderer renderer;  ///< used by the rendering thread once that runs
    Film film;
    StreamInfo stream;
    CameraInfo camera;
    double views_per_second = kViewsPerSecond;
    int frames_per_view = 1;
    double max_exposure_us = 0;

    std::vector<LightPair> views;  ///< [0, ready) are complete and never change again
    std::atomic<int> ready{0};
    std::atomic<bool> stop{false};
    std::thread thread;

    mutable std::mutex mutex;  ///< guards exposure and automatic
    AutoExposure exposure;
    bool automatic = true;

    std::int64_t opened_ns = 0;
    std::int64_t last_frame = -1;  ///< number of the frame delivered last
    std::int64_t last_imu = 0;     ///< number of the sample delivered last
    std::int64_t heard_ns = 0;     ///< when a frame came last
    ViewPlace place;               ///< shown last
    std::int64_t step_of_frame = 0;
    bool imu_on = false;
    bool gone = false;
    std::atomic<std::int64_t> dropped{0};

    void renderViews();
    double sceneTime(int view) const { return view / views_per_second; }
    std::int64_t dueNs(std::int64_t frame) const {
        return opened_ns + static_cast<std::int64_t>(
                               std::llround(static_cast<double>(frame) * 1e9 / stream.nominal_fps));
    }
    std::int64_t newestFrame(std::int64_t now_ns) const;
    bool delivers(std::int64_t frame) const {
        return options.drop_every <= 0 || frame % options.drop_every != options.drop_every - 1;
    }
    ViewPlace advance(std::int64_t frame);
    void addImu(RawFrame& frame);
};

void SimulatedSource::Impl::renderViews() {
    // Leaves the machine to whoever works on the frames.
    (void)setpriority(PRIO_PROCESS, static_cast<id_t>(syscall(SYS_gettid)), 10);
    for (int i = 1; i < static_cast<int>(views.size()) && !stop; ++i) {
        // Who closes the camera waits for this thread, which gets little time on a busy machine.
        renderer.render(sceneTime(i), kNominalExposureUs * 1e-6, views[i], &stop);
        if (!stop)
            ready = i + 1;
    }
}

std::int64_t SimulatedSource::Impl::newestFrame(std::int64_t now_ns) const {
    auto frame = static_cast<std::int64_t>(static_cast<double>(now_ns - opened_ns) *
                                           stream.nominal_fps / 1e9);
    while (dueNs(frame) > now_ns) --frame;
    while (dueNs(frame + 1) <= now_ns) ++frame;
    if (options.stall_s > 0)
        frame = std::min(frame, static_cast<std::int64_t>(options.stall_s * stream.nominal_fps));
    while (frame > last_frame && !delivers(frame)) --frame;
    return frame;
}

ViewPlace SimulatedSource::Impl::advance(std::int64_t frame) {
    const int views_ready = ready;
    const std::int64_t step_now = frame / frames_per_view;
    std::int64_t steps = step_now - step_of_frame;
    step_of_frame = step_now;
    if (views_ready < std::min<int>(kFirstViews, static_cast<int>(views.size())))
        return place;
    // Whole rounds lead nowhere.
    for (steps %= 2 * (views_ready - 1); steps > 0; --steps) {
        if (place.forwards ? place.index + 1 >= views_ready : place.index == 0)
            place.forwards = !place.forwards;
        place.index += place.forwards ? 1 : -1;
    }
    return place;
}

void SimulatedSource::Impl::addImu(RawFrame& frame) {
    frame.imu.clear();
    if (!imu_on || options.dead_imu)
        return;
    const std::int64_t until = frame.t_ns / kImuPeriodNs;
    // After a long silence only the newest second is of use.
    for (std::int64_t n = std::max(last_imu + 1, until - 200); n <= until; ++n) {
        const double age_s = static_cast<double>(frame.t_ns - n * kImuPeriodNs) * 1e-9;
        const double t_s = sceneTime(place.index) + (place.forwards ? -age_s : age_s);
        frame.imu.push_back(simulateImu(renderer.scene(), n, t_s, place.forwards));
    }
    last_imu = until;
}

SimulatedSource::SimulatedSource() = default;

SimulatedSource::~SimulatedSource() {
    if (!impl_)
        return;
    impl_->stop = true;
    if (impl_->thread.joinable())
        impl_->thread.join();
}

Result<std::unique_ptr<SimulatedSource>> SimulatedSource::open(
    const SimulatedCameraOptions& options, bino::RESOLUTION_FPS_MODE mode,
    std::unique_ptr<SourceClock> clock) {
    const std::vector<bino::RESOLUTION_FPS_MODE>& modes = bino::camera_model_modes(options.model);
    const bino::ResolutionFpsMode* row = bino::find_resolution_fps_mode(mode);
    if (!row || std::find(modes.begin(), modes.end(), mode) == modes.end())
        return Status(ErrorCode::kInvalidMode,
                      "the simulated " + bino::camera_model2str(options.model) + " has no mode " +
                          (row ? row->name : std::to_string(mode)));
    Result<Scene> scene = makeScene(options.scene, options.seed);
    if (!scene.ok())
        return scene.status();

    RigOptions rig;
    rig.width = row->width;
    rig.height = row->height;
    rig.fps = row->fps;
    rig.seed = options.seed;
    rig.noise_scale = options.noise_scale;
    rig.lens_distortion = options.lens_distortion;
    RenderOptions render;
    render.parallel = false;
    std::unique_ptr<SimulatedSource> source(new SimulatedSource);
    source->impl_.reset(
        new Impl(options, Renderer(std::move(scene.value()), makeRig(rig), render)));
    Impl& impl = *source->impl_;
    impl.clock = clock ? std::move(clock) : std::make_unique<MonotonicClock>();
    impl.stream.width = 2 * row->width;
    impl.stream.height = row->height;
    impl.stream.nominal_fps = row->fps;
    impl.camera = simulatedCameraInfo(options.model, options.seed);
    // What stands still between two poses needs one view of each.
    if (const Showing& showing = impl.renderer.scene().showing; !showing.poses.empty())
        impl.views_per_second = 1 / showing.hold_s;
    impl.frames_per_view =
        std::max(1, static_cast<int>(std::lround(row->fps / impl.views_per_second)));
    impl.max_exposure_us = std::min(1e6 / row->fps, 20000.0);
    impl.exposure.setMaxExposure(impl.max_exposure_us);

    const std::size_t view_bytes = sizeof(std::uint16_t) * 2 * row->width * row->height;
    impl.views.resize(std::clamp<std::size_t>(kMemoryBytes / view_bytes, 2, kMaxViews));
    impl.renderer.render(0, kNominalExposureUs * 1e-6, impl.views[0]);
    impl.ready = 1;
    impl.exposure.settle(meanLight(impl.views[0]));
    impl.opened_ns = impl.heard_ns = impl.clock->nowNs();
    impl.last_imu = impl.opened_ns / kImuPeriodNs;
    impl.thread = std::thread([&impl] { impl.renderViews(); });
    return source;
}

const StreamInfo& SimulatedSource::stream() const {
    return impl_->stream;
}
const CameraInfo& SimulatedSource::camera() const {
    return impl_->camera;
}
const StereoCalibration& SimulatedSource::calibration() const {
    return impl_->renderer.rig().given;
}
std::int64_t SimulatedSource::droppedFrames() const {
    return impl_->dropped;
}
int SimulatedSource::viewsReady() const {
    return impl_->ready;
}
int SimulatedSource::viewsWanted() const {
    return static_cast<int>(impl_->views.size());
}

Status SimulatedSource::grab(RawFrame& frame) {
    Impl& impl = *impl_;
    const Status lost(ErrorCode::kInvalidCamera, impl.camera.name + " is gone; open it again");
    if (impl.gone)
        return lost;
    std::int64_t now = impl.clock->nowNs();
    std::int64_t newest = impl.newestFrame(now);
    if (newest <= impl.last_frame) {
        std::int64_t next = impl.last_frame + 1;
        while (!impl.delivers(next)) ++next;
        std::int64_t until = now + kLongestWaitNs;
        if (impl.dueNs(next) > now)  // else the camera is stalled
            until = std::min(until, impl.dueNs(next));
        impl.clock->sleepUntil(until);
        now = impl.clock->nowNs();
        newest = impl.newestFrame(now);
    }
    if ((impl.options.unplug_s > 0 &&
         static_cast<double>(now - impl.opened_ns) > impl.options.unplug_s * 1e9) ||
        (newest <= impl.last_frame && now - impl.heard_ns > kSecondNs)) {
        impl.gone = true;
        return lost;
    }
    if (newest <= impl.last_frame)
        return {ErrorCode::kNoNewFrame, "no frame is due yet"};

    impl.dropped += newest - impl.last_frame - 1;
    impl.last_frame = newest;
    impl.heard_ns = now;
    frame.t_ns = impl.dueNs(newest);
    frame.sequence = newest;
    const int view = impl.advance(newest).index;
    ExposureSetting setting;
    {
        const std::lock_guard<std::mutex> lock(impl.mutex);
        setting = impl.exposure.setting();
    }
    frame.exposure_us = setting.exposure_us;
    impl.film.expose(impl.views[view], setting, newest, frame.data);
    {
        const double mean = meanGrey(frame.data, impl.stream.eyeWidth(), impl.stream.eyeHeight());
        const std::lock_guard<std::mutex> lock(impl.mutex);
        if (impl.automatic)
            impl.exposure.update(mean);
    }
    impl.addImu(frame);
    if (impl.options.corrupt_every > 0 &&
        newest % impl.options.corrupt_every == impl.options.corrupt_every - 1)
        frame.data.resize(frame.data.size() / 3);
    return {};
}

Status SimulatedSource::startImu() {
    if (!impl_->camera.has_imu)
        return {ErrorCode::kImuMissing, impl_->camera.name + " has no inertial unit"};
    impl_->imu_on = true;
    return {};
}

double SimulatedSource::exposureMs() const {
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    return impl_->exposure.setting().exposure_us / 1000;
}

double SimulatedSource::maxExposureMs() const {
    return impl_->max_exposure_us / 1000;
}

Status SimulatedSource::setExposureMs(double ms) {
    if (!std::isfinite(ms))
        return {ErrorCode::kInvalidArgument, "the exposure time is not a number"};
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->automatic = false;
    ExposureSetting setting = impl_->exposure.setting();
    setting.exposure_us =
        std::clamp(ms * 1000, AutoExposure::kMinExposureUs, impl_->max_exposure_us);
    impl_->exposure.set(setting);
    return {};
}

Status SimulatedSource::setAutoExposure(bool automatic) {
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    impl_->automatic = automatic;
    return {};
}

}  // namespace kova::camera
