#pragma once

#include <memory>

#include "camera/matching/confidence.h"
#include "camera/matching/matcher.h"

namespace kova::camera {

/// The library's own matcher: census and semi-global matching in vectors, see sgm_definition.h.
///
///  - slow: every level is searched at every pixel;
///  - medium: a search at half the size comes first and narrows that at full size, cell by cell;
///  - fast: the search at half the size, scaled up.
///
/// In all of them a search at a quarter of the size narrows that at half the size, and one at an
/// eighth, over four times the range, tells what is too near.
///
/// Memory is allocated when a size, a larger range or a mode is first asked for, and kept.
std::unique_ptr<Matcher> makeSgmMatcher();
/// The same with another table of confidences for all modes, which benchmarks fit.
std::unique_ptr<Matcher> makeSgmMatcher(const ConfidenceTable& table);

}  // namespace kova::camera
