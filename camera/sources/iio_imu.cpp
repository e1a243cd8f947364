#include "camera/sources/iio_imu.h"

#include <time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>

#include "camera/base/log.h"

namespace kova::camera {

namespace {

using Matrix = std::array<double, 9>;
namespace fs = std::filesystem;

constexpr auto kPeriod = std::chrono::milliseconds(5);
constexpr std::size_t kMostWaiting = 4000;  // 20 s; nobody drains them
constexpr double kMicroteslaPerGauss = 100;

bool readNumber(const fs::path& path, double& value) {
    std::ifstream file(path);
    return static_cast<bool>(file >> value);
}

/// "1, 0, 0; 0, 1, 0; 0, 0, 1"
Matrix mountMatrix(const fs::path& device, const std::string& channel) {
    for (const std::string& name : {"in_" + channel + "_mount_matrix", std::string("mount_matrix"),
                                    std::string("in_mount_matrix")}) {
        std::ifstream file(device / name);
        std::string text;
        if (!std::getline(file, text))
            continue;
        std::replace_if(
            text.begin(), text.end(), [](char c) { return c == ',' || c == ';'; }, ' ');
        std::istringstream numbers(text);
        Matrix m;
        if (std::all_of(m.begin(), m.end(), [&](double& v) { return bool(numbers >> v); }))
            return m;
    }
    return {1, 0, 0, 0, 1, 0, 0, 0, 1};
}

Matrix product(const Matrix& a, const Matrix& b) {
    Matrix c{};
    for (std::size_t i = 0; i < 3; ++i)
        for (std::size_t j = 0; j < 3; ++j)
            for (std::size_t k = 0; k < 3; ++k) c[3 * i + j] += a[3 * i + k] * b[3 * k + j];
    return c;
}

/// Three axes of one quantity.
struct Sensor {
    fs::path device;
    std::string channel;  ///< "accel", "anglvel", "magn"
    double unit = 1;
    Matrix to_camera{};
    bool present = false;

    void find(const fs::path& folder, const std::string& wanted, const Matrix& imu_to_camera) {
        double ignored = 0;
        if (present || !readNumber(folder / ("in_" + wanted + "_x_raw"), ignored))
            return;
        device = folder;
        channel = wanted;
        to_camera = product(imu_to_camera, mountMatrix(folder, wanted));
        present = true;
    }

    bool read(std::array<float, 3>& out) const {
        double common = 1, common_offset = 0;
        const bool has_common = readNumber(device / ("in_" + channel + "_scale"), common);
        const bool has_common_offset =
            readNumber(device / ("in_" + channel + "_offset"), common_offset);
        std::array<double, 3> value{};
        for (std::size_t i = 0; i < 3; ++i) {
            const std::string axis = std::string("in_") + channel + "_" + "xyz"[i];
            if (!readNumber(device / (axis + "_raw"), value[i]))
                return false;
            double scale = common, offset = common_offset;
            if (!has_common)
                readNumber(device / (axis + "_scale"), scale);
            if (!has_common_offset)
                readNumber(device / (axis + "_offset"), offset);
            value[i] = (value[i] + offset) * scale * unit;
        }
        for (std::size_t i = 0; i < 3; ++i)
            out[i] =
                static_cast<float>(to_camera[3 * i] * value[0] + to_camera[3 * i + 1] * value[1] +
                                   to_camera[3 * i + 2] * value[2]);
        return true;
    }
};

std::int64_t monotonicNow() {
    timespec t = {};
    ::clock_gettime(CLOCK_MONOTONIC, &t);
    return t.tv_sec * INT64_C(1000000000) + t.tv_nsec;
}

}  // namespace

struct IioImu::Impl {
    std::string name;
    Sensor accel, gyro, magnet;
    std::mutex mutex;
    std::vector<ImuSample> waiting;
    std::atomic<bool> stop{false};
    std::thread thread;
};

IioImu::IioImu() : impl_(std::make_unique<Impl>()) {}

IioImu::~IioImu() {
    impl_->stop = true;
    if (impl_->thread.joinable())
        impl_->thread.join();
}

Result<std::unique_ptr<IioImu>> IioImu::open(const std::vector<std::string>& names,
                                             const std::array<double, 9>& imu_to_camera,
                                             const std::string& folder) {
    std::unique_ptr<IioImu> imu(new IioImu);
    for (const std::string& name : names)
        imu->impl_->name += (imu->impl_->name.empty() ? "" : ", ") + name;
    imu->impl_->magnet.unit = kMicroteslaPerGauss;
    std::string known;
    std::error_code error;
    std::vector<fs::path> devices;
    for (const auto& entry : fs::directory_iterator(folder, error)) devices.push_back(entry.path());
    std::sort(devices.begin(), devices.end());
    for (const fs::path& device : devices) {
        std::ifstream file(device / "name");
        std::string text;
        if (!std::getline(file, text))
            continue;
        known += (known.empty() ? "" : ", ") + text;
        if (std::find(names.begin(), names.end(), text) == names.end())
            continue;
        imu->impl_->accel.find(device, "accel", imu_to_camera);
        imu->impl_->gyro.find(device, "anglvel", imu_to_camera);
        imu->impl_->magnet.find(device, "magn", imu_to_camera);
    }
    if (!imu->impl_->accel.present || !imu->impl_->gyro.present)
        return Status(ErrorCode::kImuMissing,
                      "inertial unit '" + imu->impl_->name +
                          "': no IIO devices of this name with accelerometer and gyroscope (its "
                          "sensors may have names of their own, list them); there are: " +
                          (known.empty() ? "none" : known));
    return imu;
}

Result<ImuSample> IioImu::read() {
    ImuSample sample;
    sample.t_ns = monotonicNow();
    if (!impl_->accel.read(sample.accel) || !impl_->gyro.read(sample.gyro))
        return Status(ErrorCode::kImuMissing, "inertial unit '" + impl_->name +
                                                  "': cannot be read any more; is it still "
                                                  "connected?");
    if (impl_->magnet.present)
        impl_->magnet.read(sample.magnet);
    return sample;
}

void IioImu::start() {
    if (impl_->thread.joinable())
        return;
    impl_->thread = std::thread([this] {
        auto next = std::chrono::steady_clock::now();
        while (!impl_->stop) {
            const Result<ImuSample> sample = read();
            if (!sample.ok()) {
                logError("imu", sample.status().message());
                return;
            }
            {
                const std::lock_guard<std::mutex> lock(impl_->mutex);
                if (impl_->waiting.size() < kMostWaiting)
                    impl_->waiting.push_back(sample.value());
            }
            next = std::max(next + kPeriod, std::chrono::steady_clock::now());
            std::this_thread::sleep_until(next);
        }
    });
}

void IioImu::drain(std::vector<ImuSample>& samples) {
    const std::lock_guard<std::mutex> lock(impl_->mutex);
    samples.insert(samples.end(), impl_->waiting.begin(), impl_->waiting.end());
    impl_->waiting.clear();
}

}  // namespace kova::camera
