#include "camera/pipeline/picture_store.h"

#include <gtest/gtest.h>

namespace kova::camera {
namespace {

TEST(PictureStore, BuffersTakeTurnsAndKeepTheirAddresses) {
    PictureStore store(8, 4, 5, 5);
    EXPECT_EQ(store.newest(0), nullptr);
    std::uint8_t* const first = store.begin(0);
    EXPECT_TRUE(store.isCurrent(0));
    EXPECT_EQ(store.newest(0), first);
    store.nextFrame();
    EXPECT_FALSE(store.isCurrent(0));
    EXPECT_EQ(store.newest(0), first) << "the last picture stays until there is a newer one";
    std::uint8_t* const second = store.begin(0);
    EXPECT_NE(second, first);
    store.nextFrame();
    EXPECT_EQ(store.begin(0), first);
}

TEST(PictureStore, SlotsHaveTheSizesOfTheirPictures) {
    PictureStore store(8, 4, 5, 6);
    const auto top = store.picture(bino::OBSTACLE_VIEW_TYPE_TOP_VIEW,
                                   store.begin(bino::OBSTACLE_VIEW_TYPE_TOP_VIEW));
    EXPECT_EQ(top.width, 5);
    EXPECT_EQ(top.height, 6);
    EXPECT_EQ(top.stride, 5);
    for (int slot = 0; slot < PictureStore::kSlots; ++slot) {
        // Written to the last byte; a sanitizer sees a buffer that is too small.
        std::size_t bytes = 8 * 4 * 4;
        if (slot == bino::OBSTACLE_VIEW_TYPE_TOP_VIEW)
            bytes = 5 * 6 * 4;
        if (slot == bino::OBSTACLE_VIEW_TYPE_GROUND_MAP)
            bytes = 8 * 4;
        if (slot == PictureStore::kCloud)
            bytes = 8 * 4 * 12;
        std::uint8_t* buffer = store.begin(slot);
        for (std::size_t i = 0; i < bytes; ++i) buffer[i] = 1;
        EXPECT_EQ(store.newest(slot), buffer);
    }
}

}  // namespace
}  // namespace kova::camera
