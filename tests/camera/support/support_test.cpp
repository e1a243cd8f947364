#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <map>
#include <set>
#include <tuple>
#include <vector>

#include "sdk/cuda_functions.h"
#include "sdk/mat_pointer_vector.h"
#include "sdk/model_file_stl.h"
#include "sdk/utils.h"

namespace kova {
namespace {

TEST(HostBuffers, AllocateWritesTheSlotsAndFreeingClearsThem) {
    MatPointerVector_CPU buffers;
    unsigned char* bytes = nullptr;
    float* floats = nullptr;
    buffers.add_pointer(reinterpret_cast<void**>(&bytes), 7, 5, 4, 1);
    buffers.add_pointer(reinterpret_cast<void**>(&floats), 7, 5, 3, 4);
    EXPECT_EQ(bytes, nullptr);
    buffers.allocate_all();
    ASSERT_NE(bytes, nullptr);
    ASSERT_NE(floats, nullptr);
    for (int i = 0; i < 7 * 5 * 4; ++i) ASSERT_EQ(bytes[i], 0);
    std::memset(bytes, 0xFF, 7 * 5 * 4);
    std::memset(floats, 0xFF, 7 * 5 * 3 * 4);
    buffers.deallocate_all();
    EXPECT_EQ(bytes, nullptr);
    EXPECT_EQ(floats, nullptr);
    buffers.clear_vector();
}

TEST(HostBuffers, FreeingAListNeverAllocatedIsHarmless) {
    MatPointerVector_CPU buffers;
    buffers.deallocate_all();
    buffers.clear_vector();
    void* slot = &buffers;
    buffers.add_pointer(&slot, 1, 1, 1, 1);
    buffers.deallocate_all();
    EXPECT_EQ(slot, &buffers);  // nothing of it was allocated, nothing is cleared
}

TEST(HostBuffers, ForgottenRequestsAreNotAllocatedAgain) {
    MatPointerVector_CPU buffers;
    void* slot = nullptr;
    buffers.add_pointer(&slot, 1, 1, 1, 1);
    buffers.clear_vector();
    buffers.allocate_all();
    EXPECT_EQ(slot, nullptr);
}

TEST(DeviceBuffers, CopyAndDownloadCarryTheBytes) {
    MatPointerVector_CUDA buffers;
    void* a = nullptr;
    void* b = nullptr;
    buffers.add_pointer(&a, 16, 2, 4, 1);
    buffers.add_pointer(&b, 16, 2, 4, 1);
    buffers.allocate_all(false);
    ASSERT_NE(a, nullptr);
    ASSERT_NE(b, nullptr);
    std::vector<unsigned char> sent(128), received(128);
    for (std::size_t i = 0; i < sent.size(); ++i) sent[i] = static_cast<unsigned char>(i * 7);
    CudaFunctions::copy(sent.data(), a, 128);
    CudaFunctions::copy(a, b, 128);
    CudaFunctions::download(b, received.data(), 128);
    EXPECT_EQ(sent, received);
    buffers.deallocate_all();
    EXPECT_EQ(a, nullptr);
    buffers.clear_vector();
}

TEST(CudaFunctions, NullAddressesAreIgnored) {
    char byte = 1;
    CudaFunctions::copy(nullptr, &byte, 1);
    CudaFunctions::copy(&byte, nullptr, 1);
    CudaFunctions::download(nullptr, &byte, 1);
    EXPECT_EQ(byte, 1);
}

std::vector<float> twoPoints(const unsigned char (&colours)[8]) {
    std::vector<float> points = {1, 2, 3, 0, -4, 5.5f, 6, 0};
    std::memcpy(&points[3], colours, 4);
    std::memcpy(&points[7], colours + 4, 4);
    return points;
}

TEST(SplitPoints, RgbTakesTheBytesBehindAlphaBackwards) {
    const auto points = twoPoints({255, 10, 20, 30, 254, 40, 50, 60});  // a, b, g, r
    float xyz[6];
    unsigned char rgb[6];
    Utils::getChannel_xyzabgr_xyz_rgb(points.data(), xyz, rgb, 2, 1);
    const float expected_xyz[] = {1, 2, 3, -4, 5.5f, 6};
    const unsigned char expected_rgb[] = {30, 20, 10, 60, 50, 40};
    EXPECT_EQ(0, std::memcmp(xyz, expected_xyz, sizeof xyz));
    EXPECT_EQ(0, std::memcmp(rgb, expected_rgb, sizeof rgb));
}

TEST(SplitPoints, RgbaSwapsRedAndBlue) {
    const auto points = twoPoints({10, 20, 30, 255, 40, 50, 60, 254});  // b, g, r, a
    float xyz[6];
    unsigned char rgba[8];
    Utils::getChannel_xyzbgra_xyz_rgba(points.data(), xyz, rgba, 1, 2);
    const unsigned char expected[] = {30, 20, 10, 255, 60, 50, 40, 254};
    EXPECT_EQ(0, std::memcmp(rgba, expected, sizeof rgba));
    EXPECT_EQ(xyz[3], -4);
}

struct CameraModel : testing::Test {
    std::vector<Size3_<float>> n, a, b, c;
    void SetUp() override { data::ModelFile_STL::get_quelvar_model_vector(&n, &a, &b, &c); }
};

TEST_F(CameraModel, ListsAreEquallyLongAndReplaced) {
    ASSERT_GT(n.size(), 100u);
    EXPECT_EQ(a.size(), n.size());
    EXPECT_EQ(b.size(), n.size());
    EXPECT_EQ(c.size(), n.size());
    const std::size_t before = n.size();
    data::ModelFile_STL::get_quelvar_model_vector(&n, nullptr, &b, &c);
    EXPECT_EQ(n.size(), before);
}

TEST_F(CameraModel, NormalsAreUnitAndFollowTheWinding) {
    for (std::size_t i = 0; i < n.size(); ++i) {
        const Size3_<float> u{b[i].x - a[i].x, b[i].y - a[i].y, b[i].z - a[i].z};
        const Size3_<float> v{c[i].x - a[i].x, c[i].y - a[i].y, c[i].z - a[i].z};
        const float x = u.y * v.z - u.z * v.y, y = u.z * v.x - u.x * v.z, z = u.x * v.y - u.y * v.x;
        const float length = std::sqrt(x * x + y * y + z * z);
        ASSERT_GT(length, 1e-3f) << "triangle " << i << " has no area";
        EXPECT_NEAR(n[i].x, x / length, 1e-4f);
        EXPECT_NEAR(n[i].y, y / length, 1e-4f);
        EXPECT_NEAR(n[i].z, z / length, 1e-4f);
    }
}

TEST_F(CameraModel, EveryEdgeIsSharedInOppositeDirections) {
    using Corner = std::tuple<float, float, float>;
    std::map<std::pair<Corner, Corner>, int> edges;
    const auto corner = [](const Size3_<float>& p) { return Corner{p.x, p.y, p.z}; };
    for (std::size_t i = 0; i < n.size(); ++i) {
        const Corner p[3] = {corner(a[i]), corner(b[i]), corner(c[i])};
        for (int k = 0; k < 3; ++k) ++edges[{p[k], p[(k + 1) % 3]}];
    }
    for (const auto& [edge, count] : edges) {
        EXPECT_EQ(count, 1);
        EXPECT_EQ(edges.count({edge.second, edge.first}), 1u);
    }
}

TEST_F(CameraModel, VolumeIsPositiveSoThatNormalsPointOutward) {
    double volume = 0;
    for (std::size_t i = 0; i < n.size(); ++i)
        volume += (a[i].x * (double(b[i].y) * c[i].z - double(b[i].z) * c[i].y) +
                   a[i].y * (double(b[i].z) * c[i].x - double(b[i].x) * c[i].z) +
                   a[i].z * (double(b[i].x) * c[i].y - double(b[i].y) * c[i].x)) /
                  6;
    EXPECT_GT(volume, 50000);  // mm³
    EXPECT_LT(volume, 500000);
}

TEST_F(CameraModel, HasTwoLensesAtThePositionsOfTheEyes) {
    float left = 1e9f, right = -1e9f;
    for (const auto& p : a) {
        left = std::min(left, p.x);
        right = std::max(right, p.x);
    }
    EXPECT_NEAR((left + right) / 2, 60, 0.5);
    bool at_left = false, at_right = false;
    for (std::size_t i = 0; i < n.size(); ++i)
        if (a[i].z > -1 && n[i].z > 0.99f) {
            at_left |= std::abs(a[i].x) < 0.1f && std::abs(a[i].y) < 0.1f;
            at_right |= std::abs(a[i].x - 120) < 0.1f && std::abs(a[i].y) < 0.1f;
        }
    EXPECT_TRUE(at_left);
    EXPECT_TRUE(at_right);
}

}  // namespace
}  // namespace kova
