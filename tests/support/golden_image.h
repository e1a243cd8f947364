#pragma once

#include <gtest/gtest.h>

#include <QImage>

#include <string>

namespace kova::test {

/// How far a picture may be from its golden image. Differences are per channel on 0..255.
struct GoldenRule {
    int tolerance = 2;                   ///< a pixel that differs by more counts as different
    double different_percent_max = 0.1;  ///< of the pixels
    int difference_max = 32;             ///< no single pixel may differ by more
};

/// The difference of two pictures of equal size.
struct ImageDifference {
    int different = 0;             ///< pixels that differ by more than the tolerance
    double different_percent = 0;  ///< of all pixels
    int largest = 0;               ///< in any channel of any pixel
    QImage amplified;              ///< eight times the difference, opaque
};

/// Compares two pictures of equal size, alpha included.
ImageDifference differenceOf(const QImage& actual, const QImage& golden, int tolerance);

/// Whether a picture matches tests/golden/<suite>/<name>.png.
///
/// Without that file the comparison fails and leaves the picture as <name>.actual.png under
/// build/<preset>/golden/<suite>/; where they differ it leaves <name>.golden.png and
/// <name>.difference.png beside it. `scripts/update-golden <suite>/<name>` makes the picture the
/// golden one after a person has looked at it. A test that needs another rule than the usual one
/// says why where it asks for it.
testing::AssertionResult matchesGolden(const QImage& actual, const std::string& suite,
                                       const std::string& name, const GoldenRule& rule = {});

/// The same with the folders named: what matchesGolden() does, for its own test.
testing::AssertionResult matchesGoldenIn(const std::string& golden_folder,
                                         const std::string& output_folder, const QImage& actual,
                                         const std::string& name, const GoldenRule& rule);

}  // namespace kova::test
