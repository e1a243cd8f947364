#include "camera/sources/jpeg_planes.h"

#include <turbojpeg.h>

#include <algorithm>
#include <cstring>
#include <string>

namespace kova::camera {

namespace {

Status damaged(const std::string& what) {
    return {ErrorCode::kNoNewFrame, "damaged JPEG skipped: " + what};
}

/// Length without the camera's padding, 0 when a marker is missing.
std::size_t lengthOfWholeJpeg(const std::uint8_t* data, std::size_t bytes) {
    while (bytes > 0 && data[bytes - 1] == 0) --bytes;
    const bool starts = bytes >= 4 && data[0] == 0xFF && data[1] == 0xD8;
    const bool ends = bytes >= 4 && data[bytes - 2] == 0xFF && data[bytes - 1] == 0xD9;
    return starts && ends ? bytes : 0;
}

/// Some cameras leave a few bytes between segments in every frame; the picture is whole.
bool isHarmless(const char* warning) {
    return std::strstr(warning, "extraneous bytes") != nullptr;
}

}  // namespace

JpegPlanes::JpegPlanes() : decoder_(tjInitDecompress()) {}

JpegPlanes::~JpegPlanes() {
    if (decoder_)
        tjDestroy(decoder_);
}

Status JpegPlanes::decode(const std::uint8_t* data, std::size_t bytes, int width, int height) {
    if (!decoder_)
        return damaged("the decoder could not be made");
    const std::size_t length = lengthOfWholeJpeg(data, bytes);
    if (length == 0)
        return damaged("its start or end is missing (" + std::to_string(bytes) + " bytes)");

    int w = 0, h = 0, colour_space = 0;
    if (tjDecompressHeader3(decoder_, data, length, &w, &h, &sampling_, &colour_space) != 0)
        return damaged(tjGetErrorStr2(decoder_));
    if (w != width || h != height)
        return damaged("it is " + std::to_string(w) + "x" + std::to_string(h) + " px instead of " +
                       std::to_string(width) + "x" + std::to_string(height));
    if (colour_space != TJCS_YCbCr && colour_space != TJCS_GRAY)
        return damaged("its colours are neither YCbCr nor grey");
    has_colour_ = sampling_ != TJSAMP_GRAY;

    unsigned char* addresses[3] = {nullptr, nullptr, nullptr};
    for (int i = 0; i < (has_colour_ ? 3 : 1); ++i) {
        strides_[i] = tjPlaneWidth(i, width, sampling_);
        const auto size = static_cast<std::size_t>(strides_[i]) *
                          static_cast<std::size_t>(tjPlaneHeight(i, height, sampling_));
        if (planes_[i].size() < size)
            planes_[i].resize(size);
        addresses[i] = planes_[i].data();
    }
    if (tjDecompressToYUVPlanes(decoder_, data, length, addresses, width, strides_.data(), height,
                                0) != 0) {
        const char* reason = tjGetErrorStr2(decoder_);
        if (tjGetErrorCode(decoder_) != TJERR_WARNING || !isHarmless(reason))
            return damaged(reason);
    }
    return {};
}

Status JpegPlanes::colour(int x, int y, int w, int h, Image<Rgba>& out) {
    // Colour has one value per block of pixels: start at a block's corner and crop.
    const int block_w = tjMCUWidth[sampling_] / 8;
    const int block_h = tjMCUHeight[sampling_] / 8;
    const int dx = x % block_w;
    const int dy = y % block_h;
    const unsigned char* addresses[3] = {
        planes_[0].data() + static_cast<std::ptrdiff_t>(y - dy) * strides_[0] + (x - dx),
        planes_[1].data() + static_cast<std::ptrdiff_t>((y - dy) / block_h) * strides_[1] +
            (x - dx) / block_w,
        planes_[2].data() + static_cast<std::ptrdiff_t>((y - dy) / block_h) * strides_[2] +
            (x - dx) / block_w,
    };
    Image<Rgba>& target = dx == 0 && dy == 0 ? out : wider_;
    target.resize(w + dx, h + dy);
    if (tjDecodeYUVPlanes(decoder_, addresses, strides_.data(), sampling_,
                          reinterpret_cast<unsigned char*>(target.data()), w + dx,
                          static_cast<int>(target.stride()) * 4, h + dy, TJPF_RGBA, 0) != 0)
        return damaged(tjGetErrorStr2(decoder_));
    if (&target == &out)
        return {};
    out.resize(w, h);
    for (int row = 0; row < h; ++row)
        std::memcpy(out.row(row), wider_.row(row + dy) + dx,
                    static_cast<std::size_t>(w) * sizeof(Rgba));
    return {};
}

}  // namespace kova::camera
