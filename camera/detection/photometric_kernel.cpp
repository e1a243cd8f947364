#include "camera/detection/photometric_kernel.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "camera/detection/photometric_kernel.cpp"
#include "hwy/foreach_target.h"  // IWYU pragma: keep

#include "hwy/highway.h"

HWY_BEFORE_NAMESPACE();
namespace kova::camera {
namespace HWY_NAMESPACE {
namespace {
namespace hn = hwy::HWY_NAMESPACE;

/// Patches are about as wide as this.
constexpr int kAtOnce = 8;
/// Two products of at most (16 * 255)^2 are added to a lane of 32 bits so often at most.
constexpr int kMostSteps = 60;

using Pixels = hn::CappedTag<std::int16_t, kAtOnce>;
using Wide = hn::RepartitionToWide<Pixels>;

/// A sum of products in 32 bits.
class ProductSum {
public:
    ProductSum() : sum0_(hn::Zero(Wide())), sum1_(hn::Zero(Wide())) {}
    template <typename V>
    void add(V a, V b) {
        sum0_ = hn::ReorderWidenMulAccumulate(Wide(), a, b, sum0_, sum1_);
    }
    std::int64_t take() {
        const Wide wide;
        HWY_ALIGN std::int32_t lanes[kAtOnce];
        hn::Store(hn::Add(sum0_, sum1_), wide, lanes);
        std::int64_t sum = 0;
        for (std::size_t i = 0; i < hn::Lanes(wide); ++i) sum += lanes[i];
        sum0_ = sum1_ = hn::Zero(wide);
        return sum;
    }

private:
    hn::Vec<Wide> sum0_, sum1_;
};

PatchSums patchSumsImpl(const PatchRow* rows, int count) {
    const Pixels tag;
    const hn::Rebind<std::uint8_t, Pixels> bytes;
    const int lanes = static_cast<int>(hn::Lanes(tag));
    const auto one = hn::Set(tag, 1);
    const auto load = [&](const std::uint8_t* from) {
        return hn::PromoteTo(tag, hn::LoadU(bytes, from));
    };
    PatchSums sums;
    ProductSum sum_p, sum_q, sum_pp, sum_qq, sum_pq;
    const auto take = [&] {
        sums.p += sum_p.take(), sums.q += sum_q.take();
        sums.pp += sum_pp.take(), sums.qq += sum_qq.take(), sums.pq += sum_pq.take();
    };
    int steps = 0;
    for (int i = 0; i < count; ++i) {
        const PatchRow& row = rows[i];
        const auto part = hn::Set(tag, static_cast<std::int16_t>(row.part));
        const auto rest = hn::Set(tag, static_cast<std::int16_t>(16 - row.part));
        sums.n += row.pixels;
        for (int x = 0; x < row.pixels; x += lanes) {
            const auto inside = hn::FirstN(tag, static_cast<std::size_t>(row.pixels - x));
            const auto p = hn::IfThenElseZero(inside, hn::ShiftLeft<4>(load(row.left + x)));
            const auto q =
                hn::IfThenElseZero(inside, hn::Add(hn::Mul(load(row.right + x), rest),
                                                   hn::Mul(load(row.right + x + 1), part)));
            sum_p.add(p, one);
            sum_q.add(q, one);
            sum_pp.add(p, p);
            sum_qq.add(q, q);
            sum_pq.add(p, q);
            if (++steps == kMostSteps) {
                take();
                steps = 0;
            }
        }
    }
    take();
    return sums;
}

}  // namespace
}  // namespace HWY_NAMESPACE
}  // namespace kova::camera
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace kova::camera {

HWY_EXPORT(patchSumsImpl);

PatchSums patchSums(const PatchRow* rows, int count) {
    return HWY_DYNAMIC_DISPATCH(patchSumsImpl)(rows, count);
}

PatchSums patchSumsReference(const PatchRow* rows, int count) {
    PatchSums sums;
    for (int i = 0; i < count; ++i)
        for (int x = 0; x < rows[i].pixels; ++x) {
            const std::int64_t p = 16 * rows[i].left[x];
            const std::int64_t q =
                rows[i].right[x] * (16 - rows[i].part) + rows[i].right[x + 1] * rows[i].part;
            sums.add({1, p, q, p * p, q * q, p * q});
        }
    return sums;
}

}  // namespace kova::camera
#endif
