#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "camera/base/image.h"
#include "sdk/modes.h"

namespace kova::camera {

/// Buffers of what a camera delivers: the six views and the point cloud, each twice, without
/// padding between rows. They are allocated once and keep their addresses until the store is gone;
/// the two take turns from frame to frame, so that a picture on screen is not written at once.
class PictureStore {
public:
    /// Slots: the view types, then the point cloud.
    static constexpr int kCloud = bino::kObstacleViewTypeCount;
    static constexpr int kSlots = kCloud + 1;

    /// @param width, height          [px] of the pictures
    /// @param top_width, top_height  [px] of the top view
    PictureStore(int width, int height, int top_width, int top_height);

    /// A new frame: what is asked for from now on must be made again, in the other buffer.
    void nextFrame();

    /// True when the slot holds what belongs to the frame.
    bool isCurrent(int slot) const { return current_[static_cast<std::size_t>(slot)]; }

    /// The buffer to write to for this frame; marks the slot as current.
    std::uint8_t* begin(int slot);

    /// The newest content of a slot; null when there never was one.
    std::uint8_t* newest(int slot) const { return newest_[static_cast<std::size_t>(slot)]; }

    /// A picture of four channels in a slot's buffer.
    ImageView<Rgba> picture(int slot, std::uint8_t* buffer) const;

private:
    int width_, height_, top_width_, top_height_;
    int turn_ = 0;
    std::array<std::array<std::unique_ptr<std::uint8_t[]>, 2>, kSlots> buffers_;
    std::array<bool, kSlots> current_{};
    std::array<std::uint8_t*, kSlots> newest_{};
};

}  // namespace kova::camera
