#include "camera/matching/matcher.h"

#include "camera/matching/sgm_matcher.h"

namespace kova::camera {

Status MatchParameters::check() const {
    const auto bad = [](const char* what) {
        return Status(ErrorCode::kInvalidArgument, std::string("match parameters: ") + what);
    };
    if (work_mode != WorkMode::kFast && work_mode != WorkMode::kMedium &&
        work_mode != WorkMode::kSlow)
        return bad("no such work mode");
    if (min_disparity < 0)
        return bad("the smallest disparity is negative");
    if (max_disparity - min_disparity < 16 || max_disparity - min_disparity > 320)
        return bad("16 to 320 disparities are searched");
    if (!(confidence_threshold >= 0) || confidence_threshold > 0.99F)
        return bad("the confidence threshold lies between 0 and 0.99");
    return {};
}

std::unique_ptr<Matcher> makeMatcher() {
    return makeSgmMatcher();
}

}  // namespace kova::camera
