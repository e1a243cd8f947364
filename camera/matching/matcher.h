#pragma once

#include <memory>

#include "camera/base/disparity.h"
#include "camera/base/image.h"
#include "camera/base/status.h"

namespace kova::camera {

enum class WorkMode { kFast = 0, kMedium = 1, kSlow = 2 };

/// What a matcher is asked for; all may change from frame to frame without an allocation, as long
/// as the size and `max_disparity` do not grow.
struct MatchParameters {
    WorkMode work_mode = WorkMode::kFast;
    int min_disparity = 0;    ///< [px], at least 0
    int max_disparity = 128;  ///< [px], exclusive; 16 to 320 above min_disparity
    bool fill = false;        ///< complete what is missing; see kFilledConfidence
    /// Medium and slow: take over what half the size found where the full search failed (borrow.h).
    /// Detection does without: such pixels are right to what their confidence says, but not each by
    /// itself, and false alarms are made of what is wrong together.
    bool borrow = false;
    /// Disparities whose confidence / kConfidenceScale is below are removed, 0 to 0.99.
    float confidence_threshold = 0;

    Status check() const;
};

/// Dense matching of a rectified pair.
///
/// Pictures are grey, shape (height, width), rows of both aligned to within 0.5 px. The map has the
/// size of the left picture. The same input gives the same bytes on every CPU and thread count.
class Matcher {
public:
    virtual ~Matcher() = default;
    /// @return kInvalidArgument when the sizes differ or the parameters are impossible
    virtual Status match(const ImageView<const std::uint8_t>& left,
                         const ImageView<const std::uint8_t>& right,
                         const MatchParameters& parameters, DisparityMap& map) = 0;
};

/// The matcher of the library.
std::unique_ptr<Matcher> makeMatcher();

}  // namespace kova::camera
