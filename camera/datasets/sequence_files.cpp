#include "camera/datasets/sequence_files.h"

#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>

namespace kova::camera {

namespace {

namespace fs = std::filesystem;
using Pair = StereoSequence::Pair;

bool isPicture(const fs::path& path) {
    std::string extension = path.extension().string();
    for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (const char* known :
         {".png", ".jpg", ".jpeg", ".pgm", ".ppm", ".bmp", ".tif", ".tiff", ".webp"})
        if (extension == known)
            return true;
    return false;
}

std::optional<std::int64_t> wholeNumber(const std::string& text) {
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || text.empty())
        return std::nullopt;
    return value;
}

}  // namespace

std::vector<fs::path> picturesIn(const fs::path& folder, const std::string& prefix) {
    std::vector<fs::path> pictures;
    std::error_code error;
    for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error))
        if (isPicture(it->path()) && it->path().filename().string().rfind(prefix, 0) == 0)
            pictures.push_back(it->path());
    std::sort(pictures.begin(), pictures.end());
    return pictures;
}

std::vector<Pair> pairByName(const std::vector<fs::path>& left, const std::string& left_prefix,
                             const std::vector<fs::path>& right, const std::string& right_prefix,
                             int& unpaired) {
    std::map<std::string, fs::path> rights;
    for (const fs::path& path : right)
        rights[path.stem().string().substr(right_prefix.size())] = path;
    std::vector<Pair> pairs;
    for (const fs::path& path : left) {
        const auto partner = rights.find(path.stem().string().substr(left_prefix.size()));
        if (partner != rights.end())
            pairs.push_back({path, partner->second, 0});
    }
    unpaired = static_cast<int>(left.size() + right.size() - 2 * pairs.size());
    // left9 comes before left10, where names are no zero-padded numbers.
    const auto number = [&](const Pair& pair) {
        return wholeNumber(pair.left.stem().string().substr(left_prefix.size()));
    };
    if (std::all_of(pairs.begin(), pairs.end(), [&](const Pair& p) { return number(p); }))
        std::stable_sort(pairs.begin(), pairs.end(),
                         [&](const Pair& a, const Pair& b) { return number(a) < number(b); });
    return pairs;
}

std::vector<Pair> pairByTime(const std::vector<fs::path>& left, const std::vector<fs::path>& right,
                             std::int64_t tolerance_ns, int& unpaired) {
    std::map<std::int64_t, fs::path> rights;
    for (const fs::path& path : right)
        if (const auto t_ns = wholeNumber(path.stem().string()))
            rights[*t_ns] = path;
    std::map<std::int64_t, Pair> pairs;
    for (const fs::path& path : left) {
        const auto t_ns = wholeNumber(path.stem().string());
        if (!t_ns)
            continue;
        const auto after = rights.lower_bound(*t_ns);
        auto nearest = after;
        if (after != rights.begin()) {
            const auto before = std::prev(after);
            if (after == rights.end() || *t_ns - before->first < after->first - *t_ns)
                nearest = before;
        }
        if (nearest != rights.end() && std::abs(nearest->first - *t_ns) <= tolerance_ns)
            pairs[*t_ns] = {path, nearest->second, *t_ns};
    }
    unpaired = static_cast<int>(left.size() + right.size() - 2 * pairs.size());
    std::vector<Pair> in_order;
    in_order.reserve(pairs.size());
    for (auto& entry : pairs) in_order.push_back(std::move(entry.second));
    return in_order;
}

Result<std::vector<std::int64_t>> readTimesInSeconds(const fs::path& path) {
    std::ifstream in(path);
    if (!in)
        return Status(ErrorCode::kCannotOpenFile, path.string() + ": cannot be read");
    std::vector<std::int64_t> times;
    std::string word;
    while (in >> word) {
        char* end = nullptr;
        const double seconds = std::strtod(word.c_str(), &end);
        if (*end != '\0' || !std::isfinite(seconds) || std::abs(seconds) > 9e9)
            return Status(ErrorCode::kInvalidFile,
                          path.string() + ": '" + word + "' is not a time in seconds");
        times.push_back(static_cast<std::int64_t>(std::llround(seconds * 1e9)));
    }
    return times;
}

Result<std::vector<ImuSample>> readEurocImu(const fs::path& path, std::int64_t from_ns,
                                            std::int64_t to_ns) {
    std::ifstream in(path);
    if (!in)
        return Status(ErrorCode::kCannotOpenFile, path.string() + ": cannot be read");
    std::vector<ImuSample> samples;
    std::string line;
    for (int row = 1; std::getline(in, line); ++row) {
        if (line.empty() || line[0] == '#' || line[0] == '\r')
            continue;
        const std::size_t comma = line.find(',');
        const auto t_ns = wholeNumber(line.substr(0, comma));
        std::istringstream rest(comma == std::string::npos ? "" : line.substr(comma + 1));
        std::array<double, 6> v{};
        bool good = t_ns.has_value();
        for (double& value : v) {
            std::string field;
            good = good && std::getline(rest, field, ',');
            char* end = nullptr;
            value = std::strtod(field.c_str(), &end);
            good = good && end != field.c_str() && std::isfinite(value);
        }
        if (!good)
            return Status(ErrorCode::kInvalidFile, path.string() + ": line " + std::to_string(row) +
                                                       " is not a time and six numbers");
        if (*t_ns < from_ns || *t_ns > to_ns)
            continue;
        ImuSample sample;
        sample.t_ns = *t_ns;
        for (int i = 0; i < 3; ++i) {
            sample.gyro[i] = static_cast<float>(v[i]);
            sample.accel[i] = static_cast<float>(v[3 + i]);
        }
        samples.push_back(sample);
    }
    std::stable_sort(samples.begin(), samples.end(),
                     [](const ImuSample& a, const ImuSample& b) { return a.t_ns < b.t_ns; });
    return samples;
}

Result<std::array<double, 9>> readEurocRotation(const fs::path& path) {
    std::ifstream in(path);
    std::stringstream text;
    std::string line;
    while (std::getline(in, line))
        if (line.rfind("%YAML", 0) != 0)  // "%YAML:1.0" is OpenCV's, no parser of YAML takes it
            text << line << '\n';
    try {
        const YAML::Node data = YAML::Load(text.str())["T_BS"]["data"];
        if (!data.IsSequence() || data.size() != 16)
            return Status(ErrorCode::kInvalidFile,
                          path.string() + ": T_BS (4x4) is missing or has another size");
        std::array<double, 9> rotation{};
        for (std::size_t i = 0; i < 9; ++i) rotation[i] = data[i / 3 * 4 + i % 3].as<double>();
        return rotation;
    } catch (const std::exception& e) {
        return Status(ErrorCode::kInvalidFile,
                      path.string() + ": cannot be read as YAML: " + e.what());
    }
}

}  // namespace kova::camera
