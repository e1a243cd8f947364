#include "camera/rectification/rectifier.h"

#include <opencv2/calib3d.hpp>
#include <opencv2/core.hpp>

#include <cmath>
#include <cstring>

#include "camera/base/parallel.h"
#include "camera/calibration/lens.h"
#include "camera/rectification/remap.h"

namespace kova::camera {

struct Rectifier::Impl {
    RectifiedGeometry geometry;
    std::array<double, 9> rectified_from_left = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    int source_width = 0;
    bool crop_only = false;
    RemapTable left, right;
    bool aligned = false;
    RemapTable right_aligned;

    /// Of the right eye; only where there is one.
    const RemapTable& rightTable() const { return aligned ? right_aligned : right; }
};

namespace {

/// Widths that leave the library are multiples of 4, since pictures are uploaded with rows aligned
/// to 4 bytes.
int croppedWidth(int width) {
    return width / 4 * 4;
}

struct RectifiedEye {
    std::array<double, 9> rectified_from_eye;
    double fx, fy, cx, cy;
};

/// Takes the last bits away, in which the mathematical functions of different CPUs differ, so that
/// the tables are the same everywhere.
double quantised(double value) {
    constexpr double kSteps = 1099511627776.0;  // 2^40
    return std::nearbyint(value * kSteps) / kSteps;
}

cv::Mat distortionOf(const CameraIntrinsics& eye) {
    std::size_t count = 4;
    if (eye.lens == LensModel::kRadialTangential)
        for (const std::size_t n : {4, 5, 8, 12, 14})
            if (count < eye.distortion.size())
                count = n;
    cv::Mat d = cv::Mat::zeros(static_cast<int>(count), 1, CV_64F);
    for (std::size_t i = 0; i < std::min(count, eye.distortion.size()); ++i)
        d.at<double>(static_cast<int>(i)) = eye.distortion[i];
    return d;
}

Status rectifiedEyes(const StereoCalibration& c, RectifiedEye& left, RectifiedEye& right) {
    const cv::Matx33d k1(c.left.fx, 0, c.left.cx, 0, c.left.fy, c.left.cy, 0, 0, 1);
    const cv::Matx33d k2(c.right.fx, 0, c.right.cx, 0, c.right.fy, c.right.cy, 0, 0, 1);
    const cv::Matx33d r(c.right_from_left.data());
    const cv::Vec3d t(c.translation_mm[0], c.translation_mm[1], c.translation_mm[2]);
    const cv::Size size(c.width, c.height);
    cv::Mat r1, r2, p1, p2, q;
    try {
        if (c.left.lens == LensModel::kEquidistant)
            cv::fisheye::stereoRectify(k1, distortionOf(c.left), k2, distortionOf(c.right), size, r,
                                       t, r1, r2, p1, p2, q, cv::CALIB_ZERO_DISPARITY, size, 0, 1);
        else
            cv::stereoRectify(k1, distortionOf(c.left), k2, distortionOf(c.right), size, r, t, r1,
                              r2, p1, p2, q, cv::CALIB_ZERO_DISPARITY, 0, size);
    } catch (const cv::Exception& e) {
        return {ErrorCode::kInvalidFile, "calibration: cannot be rectified: " + e.err};
    }
    const auto fill = [](RectifiedEye& eye, const cv::Mat& rotation, const cv::Mat& projection) {
        for (int i = 0; i < 9; ++i)
            eye.rectified_from_eye[i] = quantised(rotation.at<double>(i / 3, i % 3));
        eye.fx = quantised(projection.at<double>(0, 0));
        eye.fy = quantised(projection.at<double>(1, 1));
        eye.cx = quantised(projection.at<double>(0, 2));
        eye.cy = quantised(projection.at<double>(1, 2));
        return std::isfinite(eye.fx) && eye.fx > 0 && std::isfinite(eye.cx) &&
               std::isfinite(eye.cy) && std::isfinite(eye.fy) && eye.fy > 0;
    };
    if (!fill(left, r1, p1) || !fill(right, r2, p2))
        return {ErrorCode::kInvalidFile,
                "calibration: no view is common to both eyes; are the distortion coefficients in "
                "the right order?"};
    return {};
}

/// Where a pixel of the rectified picture lies in the original one.
ImagePoint sourceOf(const CameraIntrinsics& camera, const RectifiedEye& eye, double u, double v) {
    // The rotation is orthogonal: its inverse is its transpose.
    const std::array<double, 9>& m = eye.rectified_from_eye;
    const double x = (u - eye.cx) / eye.fx;
    const double y = (v - eye.cy) / eye.fy;
    return projectRay(camera, {m[0] * x + m[3] * y + m[6], m[1] * x + m[4] * y + m[7],
                               m[2] * x + m[5] * y + m[8]});
}

/// Every pixel of the edge of the rectified picture lies inside of the original one.
bool showsOnlyValidPixels(const StereoCalibration& c, const CameraIntrinsics& camera,
                          const RectifiedEye& eye) {
    const int last_x = croppedWidth(c.width) - 1;
    const int last_y = c.height - 1;
    const auto inside = [&](int u, int v) {
        const ImagePoint p = sourceOf(camera, eye, u, v);
        return p.x >= 0 && p.y >= 0 && p.x <= c.width - 1 && p.y <= c.height - 1;
    };
    for (int u = 0; u <= last_x; ++u)
        if (!inside(u, 0) || !inside(u, last_y))
            return false;
    for (int v = 0; v <= last_y; ++v)
        if (!inside(0, v) || !inside(last_x, v))
            return false;
    return true;
}

/// OpenCV finds the common view from a few points of the edge, and for the fisheye roughly; the
/// focal length is raised until no pixel is missing.
Status narrowToValidPixels(const StereoCalibration& c, RectifiedEye& left, RectifiedEye& right) {
    const RectifiedEye first = left;
    const auto fits = [&](double scale) {
        left.fx = quantised(first.fx * scale);
        left.fy = quantised(first.fy * scale);
        right.fx = left.fx;
        right.fy = left.fy;
        return showsOnlyValidPixels(c, c.left, left) && showsOnlyValidPixels(c, c.right, right);
    };
    double low = 1, high = 1;
    while (!fits(high)) {
        low = high;
        high *= 1.1;
        if (high > 8)
            return {ErrorCode::kInvalidFile,
                    "calibration: the eyes see too little in common; do R and T fit the pictures?"};
    }
    while (high - low > 1e-4) {
        const double middle = (low + high) / 2;
        (fits(middle) ? high : low) = middle;
    }
    fits(high);
    return {};
}

RemapTable makeTable(const StereoCalibration& c, const CameraIntrinsics& camera,
                     const RectifiedEye& eye) {
    RemapTable table(croppedWidth(c.width), c.height, c.width, c.height);
    parallelFor(c.height, [&](int v) {
        for (int u = 0; u < table.width(); ++u) {
            const ImagePoint p = sourceOf(camera, eye, u, v);
            table.set(u, v, p.x, p.y);
        }
    });
    return table;
}

/// A look-up that only crops.
RemapTable unchangedTable(int source_width, const RectifiedGeometry& g) {
    RemapTable table(g.width, g.height, source_width, g.height);
    for (int y = 0; y < g.height; ++y)
        for (int x = 0; x < g.width; ++x) table.set(x, y, x, y);
    return table;
}

Status checkRectified(const StereoCalibration& c) {
    const double focal = std::abs(c.left.fx - c.right.fx) / c.left.fx;
    const double rows = std::abs(c.left.cy - c.right.cy);
    if (focal > 1e-3 || rows > 0.5)
        return {ErrorCode::kInvalidFile,
                "calibration: called rectified, but the eyes differ in focal length or in the rows "
                "of their principal points"};
    return {};
}

template <typename Pixel>
void crop(const ImageView<const Pixel>& in, int width, Image<Pixel>& out) {
    out.resize(width, in.height);
    for (int y = 0; y < in.height; ++y)
        std::memcpy(out.row(y), in.row(y), static_cast<std::size_t>(width) * sizeof(Pixel));
}

}  // namespace

Rectifier::Rectifier() : impl_(std::make_unique<Impl>()) {}
Rectifier::~Rectifier() = default;

std::unique_ptr<Rectifier> Rectifier::make(const StereoCalibration& c, Status& status) {
    status = c.check();
    if (status.ok() && croppedWidth(c.width) == 0)
        status = {ErrorCode::kInvalidArgument, "calibration: pictures narrower than 4 px"};
    if (status.ok() && c.left.lens != c.right.lens)
        status = {ErrorCode::kInvalidFile, "calibration: the eyes have different lens models"};
    if (status.ok() && c.rectified)
        status = checkRectified(c);
    if (!status.ok())
        return nullptr;

    std::unique_ptr<Rectifier> rectifier(new Rectifier);
    Impl& impl = *rectifier->impl_;
    RectifiedGeometry& g = impl.geometry;
    impl.source_width = c.width;
    g.width = croppedWidth(c.width);
    g.height = c.height;
    g.baseline_mm = c.baselineMm();
    if (c.rectified) {
        impl.crop_only = true;
        g.fx = c.left.fx;
        g.fy = c.left.fy;
        g.cx = c.left.cx;
        g.cy = c.left.cy;
        g.cx_right = c.right.cx;
        return rectifier;
    }
    RectifiedEye left{}, right{};
    status = rectifiedEyes(c, left, right);
    if (status.ok())
        status = narrowToValidPixels(c, left, right);
    if (!status.ok())
        return nullptr;
    g.fx = left.fx;
    g.fy = left.fy;
    g.cx = left.cx;
    g.cy = left.cy;
    g.cx_right = right.cx;
    impl.rectified_from_left = left.rectified_from_eye;
    impl.left = makeTable(c, c.left, left);
    impl.right = makeTable(c, c.right, right);
    return rectifier;
}

const RectifiedGeometry& Rectifier::geometry() const {
    return impl_->geometry;
}

const std::array<double, 9>& Rectifier::rectifiedFromLeft() const {
    return impl_->rectified_from_left;
}

void Rectifier::alignRows(const RowOffset& offset) {
    Impl& impl = *impl_;
    impl.aligned = offset.largest() > 0;
    if (!impl.aligned)
        return;
    const RectifiedGeometry& g = impl.geometry;
    if (impl.right.width() == 0)
        impl.right = unchangedTable(impl.source_width, g);
    if (impl.right_aligned.width() == 0)
        impl.right_aligned = RemapTable(g.width, g.height, impl.right.sourceWidth(), g.height);
    moveRows(impl.right, offset, impl.right_aligned);
}

void Rectifier::rectify(const ImageView<const std::uint8_t>& left,
                        const ImageView<const std::uint8_t>& right, Image<std::uint8_t>& left_out,
                        Image<std::uint8_t>& right_out) const {
    if (!impl_->crop_only) {
        remapPair(impl_->left, left, left_out, impl_->rightTable(), right, right_out);
        return;
    }
    crop(left, impl_->geometry.width, left_out);
    if (impl_->aligned)
        remap(impl_->right_aligned, right, right_out);
    else
        crop(right, impl_->geometry.width, right_out);
}

void Rectifier::rectifyLeftColour(const ImageView<const Rgba>& left, Image<Rgba>& out) const {
    if (impl_->crop_only)
        crop(left, impl_->geometry.width, out);
    else
        remap(impl_->left, left, out);
}

void Rectifier::rectifyRightColour(const ImageView<const Rgba>& right, Image<Rgba>& out) const {
    if (impl_->crop_only && !impl_->aligned)
        crop(right, impl_->geometry.width, out);
    else
        remap(impl_->rightTable(), right, out);
}

}  // namespace kova::camera
