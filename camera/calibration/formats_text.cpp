#include <cctype>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <map>

#include "camera/calibration/format_readers.h"

namespace kova::camera {

namespace {

/// All numbers of a text; what lies between them is skipped.
std::vector<double> numbersIn(const std::string& text) {
    std::vector<double> values;
    const char* at = text.c_str();
    while (*at) {
        char* end = nullptr;
        const bool starts =
            std::isdigit(static_cast<unsigned char>(*at)) || std::strchr("+-.", *at);
        const double value = starts ? std::strtod(at, &end) : 0;
        if (starts && end != at) {
            values.push_back(value);
            at = end;
        } else {
            ++at;
        }
    }
    return values;
}

/// "NAME: numbers" by lines, as KITTI writes it.
std::map<std::string, std::vector<double>> labelledLines(const std::string& text) {
    std::map<std::string, std::vector<double>> lines;
    std::size_t begin = 0;
    while (begin < text.size()) {
        std::size_t end = text.find('\n', begin);
        if (end == std::string::npos)
            end = text.size();
        const std::string line = text.substr(begin, end - begin);
        const std::size_t colon = line.find(':');
        if (colon != std::string::npos)
            lines[line.substr(0, colon)] = numbersIn(line.substr(colon + 1));
        begin = end + 1;
    }
    return lines;
}

/// "NAME = value" wherever line breaks and spaces fall: a value ends where the next name begins.
std::map<std::string, std::string> assignments(const std::string& text) {
    std::map<std::string, std::string> values;
    std::string* current = nullptr;
    std::size_t i = 0;
    while (i < text.size()) {
        const auto wordChar = [&](std::size_t at) {
            return std::isalnum(static_cast<unsigned char>(text[at])) || text[at] == '_';
        };
        if (std::isalpha(static_cast<unsigned char>(text[i]))) {
            std::size_t end = i;
            while (end < text.size() && wordChar(end)) ++end;
            std::size_t equals = end;
            while (equals < text.size() && std::isspace(static_cast<unsigned char>(text[equals])))
                ++equals;
            if (equals < text.size() && text[equals] == '=') {
                current = &values[text.substr(i, end - i)];
                i = equals + 1;
                continue;
            }
            i = end;
            continue;
        }
        if (current)
            current->push_back(text[i]);
        ++i;
    }
    return values;
}

void setEye(CameraIntrinsics& eye, double fx, double fy, double cx, double cy) {
    eye.fx = fx;
    eye.fy = fy;
    eye.cx = cx;
    eye.cy = cy;
}

}  // namespace

Result<StereoCalibration> readKittiCalibration(const CalibrationTexts& files,
                                               const ReadCalibrationOptions& options) {
    const CalibrationText& file = files.front();
    const auto lines = labelledLines(file.text);
    StereoCalibration c;
    c.rectified = true;
    std::vector<double> left, right;
    const auto takePair = [&](const char* a, const char* b) {
        if (!left.empty() || !lines.count(a) || !lines.count(b))
            return;
        left = lines.at(a);
        right = lines.at(b);
        const std::string size = std::string("S_rect_") + (std::strlen(a) > 6 ? a + 7 : "");
        if (const auto s = lines.find(size); s != lines.end() && s->second.size() == 2) {
            c.width = static_cast<int>(s->second[0]);
            c.height = static_cast<int>(s->second[1]);
        }
    };
    if (options.kitti_colour) {
        takePair("P2", "P3");
        takePair("P_rect_02", "P_rect_03");
    }
    takePair("P0", "P1");
    takePair("P_rect_00", "P_rect_01");
    takePair("P2", "P3");
    takePair("P_rect_02", "P_rect_03");
    if (left.empty()) {
        const std::vector<double> all = numbersIn(file.text);
        if (!lines.empty() || all.size() != 24)
            return invalidCalibration(file.path,
                                      "neither a pair P0 P1 or P_rect_00 P_rect_01 nor two 3x4 "
                                      "matrices");
        left.assign(all.begin(), all.begin() + 12);
        right.assign(all.begin() + 12, all.end());
    }
    if (left.size() != 12 || right.size() != 12)
        return invalidCalibration(file.path, "a projection matrix does not have 12 numbers");
    if (!(left[0] > 0) || !(right[0] > 0))
        return invalidCalibration(file.path, "a focal length is not positive");
    const double shift = right[3] / right[0] - left[3] / left[0];
    if (Status s = checkMetres(file.path, "the baseline -P[0,3] / fx", shift); !s.ok())
        return s;
    if (shift > 0)
        return invalidCalibration(file.path,
                                  "P[0,3] grows from the first matrix to the second: the eyes are "
                                  "swapped, or its sign is wrong (it is -fx * baseline)");
    setEye(c.left, left[0], left[5], left[2], left[6]);
    setEye(c.right, right[0], right[5], right[2], right[6]);
    c.translation_mm = {shift * 1000, 0, 0};
    return c;
}

Result<StereoCalibration> readMiddleburyCalibration(const CalibrationTexts& files) {
    const CalibrationText& file = files.front();
    const auto values = assignments(file.text);
    const auto numbersOf = [&](const char* name) {
        const auto it = values.find(name);
        return it == values.end() ? std::vector<double>() : numbersIn(it->second);
    };
    const std::vector<double> cam0 = numbersOf("cam0");
    const std::vector<double> cam1 = numbersOf("cam1");
    const std::vector<double> doffs = numbersOf("doffs");
    const std::vector<double> baseline = numbersOf("baseline");
    const std::vector<double> width = numbersOf("width");
    const std::vector<double> height = numbersOf("height");
    if (cam0.size() != 9 || cam1.size() != 9 || baseline.size() != 1)
        return invalidCalibration(file.path,
                                  "cam0, cam1 (nine numbers each) or baseline is missing");
    StereoCalibration c;
    c.rectified = true;
    setEye(c.left, cam0[0], cam0[4], cam0[2], cam0[5]);
    setEye(c.right, cam1[0], cam1[4], cam1[2], cam1[5]);
    const double difference = cam1[2] - cam0[2];
    if (doffs.size() == 1 && std::abs(doffs[0] - difference) > 0.01)
        return invalidCalibration(file.path, "doffs (" + numberText(doffs[0]) +
                                                 ") is not the difference of the principal points "
                                                 "of cam1 and cam0 (" +
                                                 numberText(difference) + ")");
    if (baseline[0] <= 0)
        return invalidCalibration(file.path,
                                  "the baseline is not positive; is it the eyes' order?");
    c.translation_mm = {-baseline[0], 0, 0};
    const auto whole = [](double v) { return v >= 1 && v <= 1e6 ? static_cast<int>(v) : 0; };
    if (width.size() == 1 && height.size() == 1) {
        c.width = whole(width[0]);
        c.height = whole(height[0]);
    }
    return c;
}

}  // namespace kova::camera
