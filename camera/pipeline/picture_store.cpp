#include "camera/pipeline/picture_store.h"

namespace kova::camera {

PictureStore::PictureStore(int width, int height, int top_width, int top_height)
    : width_(width), height_(height), top_width_(top_width), top_height_(top_height) {
    const auto area = [](int w, int h) {
        return static_cast<std::size_t>(w) * static_cast<std::size_t>(h);
    };
    for (int slot = 0; slot < kSlots; ++slot) {
        std::size_t bytes = area(width, height) * sizeof(Rgba);
        if (slot == bino::OBSTACLE_VIEW_TYPE_TOP_VIEW)
            bytes = area(top_width, top_height) * sizeof(Rgba);
        else if (slot == bino::OBSTACLE_VIEW_TYPE_GROUND_MAP)
            bytes = area(width, height);
        else if (slot == kCloud)
            bytes = area(width, height) * 3 * sizeof(float);
        for (auto& buffer : buffers_[static_cast<std::size_t>(slot)])
            buffer = std::make_unique<std::uint8_t[]>(bytes);
    }
}

void PictureStore::nextFrame() {
    turn_ = 1 - turn_;
    current_.fill(false);
}

std::uint8_t* PictureStore::begin(int slot) {
    const auto s = static_cast<std::size_t>(slot);
    current_[s] = true;
    newest_[s] = buffers_[s][static_cast<std::size_t>(turn_)].get();
    return newest_[s];
}

ImageView<Rgba> PictureStore::picture(int slot, std::uint8_t* buffer) const {
    const bool top = slot == bino::OBSTACLE_VIEW_TYPE_TOP_VIEW;
    const int width = top ? top_width_ : width_;
    const int height = top ? top_height_ : height_;
    return {reinterpret_cast<Rgba*>(buffer), width, height, width};
}

}  // namespace kova::camera
