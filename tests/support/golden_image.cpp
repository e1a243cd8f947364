#include "tests/support/golden_image.h"

#include <QDir>
#include <QFile>

#include <algorithm>
#include <cstdlib>

namespace kova::test {

namespace {

QImage plain(const QImage& image) {
    QImage result = image.convertToFormat(QImage::Format_ARGB32);
    result.setDevicePixelRatio(1);
    return result;
}

std::string sizeOf(const QImage& image) {
    return std::to_string(image.width()) + " x " + std::to_string(image.height());
}

}  // namespace

ImageDifference differenceOf(const QImage& actual, const QImage& golden, int tolerance) {
    const QImage a = plain(actual);
    const QImage b = plain(golden);
    ImageDifference result;
    result.amplified = QImage(a.size(), QImage::Format_RGB32);
    for (int y = 0; y < a.height(); ++y) {
        const auto* row_a = reinterpret_cast<const QRgb*>(a.constScanLine(y));
        const auto* row_b = reinterpret_cast<const QRgb*>(b.constScanLine(y));
        auto* out = reinterpret_cast<QRgb*>(result.amplified.scanLine(y));
        for (int x = 0; x < a.width(); ++x) {
            const int red = std::abs(qRed(row_a[x]) - qRed(row_b[x]));
            const int green = std::abs(qGreen(row_a[x]) - qGreen(row_b[x]));
            const int blue = std::abs(qBlue(row_a[x]) - qBlue(row_b[x]));
            const int alpha = std::abs(qAlpha(row_a[x]) - qAlpha(row_b[x]));
            const int worst = std::max({red, green, blue, alpha});
            result.largest = std::max(result.largest, worst);
            if (worst > tolerance)
                ++result.different;
            const auto amplify = [alpha](int d) { return std::min(255, 8 * std::max(d, alpha)); };
            out[x] = qRgb(amplify(red), amplify(green), amplify(blue));
        }
    }
    if (!a.isNull())
        result.different_percent = 100.0 * result.different / (double(a.width()) * a.height());
    return result;
}

testing::AssertionResult matchesGoldenIn(const std::string& golden_folder,
                                         const std::string& output_folder, const QImage& actual,
                                         const std::string& name, const GoldenRule& rule) {
    const QString golden_path = QString::fromStdString(golden_folder + "/" + name + ".png");
    const QString stem = QString::fromStdString(output_folder + "/" + name);
    for (const char* left : {".actual.png", ".golden.png", ".difference.png"})
        QFile::remove(stem + left);  // of an earlier run

    const auto failure = [&](const std::string& what) {
        QDir().mkpath(QString::fromStdString(output_folder));
        std::string where;
        if (actual.save(stem + ".actual.png"))
            where = "\n  the picture: " + stem.toStdString() + ".actual.png";
        return testing::AssertionFailure() << what << where;
    };

    if (actual.isNull())
        return testing::AssertionFailure() << name << ": there is no picture to compare";
    if (!QFile::exists(golden_path)) {
        return failure(name + ": there is no golden image " + golden_path.toStdString() +
                       "\n  look at the picture, then scripts/update-golden");
    }
    const QImage golden(golden_path);
    if (golden.isNull())
        return failure(golden_path.toStdString() + " cannot be read");
    if (golden.size() != actual.size()) {
        return failure(name + ": the picture is " + sizeOf(actual) + ", the golden image " +
                       sizeOf(golden));
    }
    const ImageDifference difference = differenceOf(actual, golden, rule.tolerance);
    if (difference.different_percent <= rule.different_percent_max &&
        difference.largest <= rule.difference_max) {
        return testing::AssertionSuccess();
    }
    const testing::AssertionResult result =
        failure(name + ": " + std::to_string(difference.different_percent) +
                " % of the pixels differ by more than " + std::to_string(rule.tolerance) +
                " (at most " + std::to_string(rule.different_percent_max) +
                " % may), the largest difference is " + std::to_string(difference.largest) +
                " (at most " + std::to_string(rule.difference_max) + ")");
    golden.save(stem + ".golden.png");
    difference.amplified.save(stem + ".difference.png");
    return result;
}

testing::AssertionResult matchesGolden(const QImage& actual, const std::string& suite,
                                       const std::string& name, const GoldenRule& rule) {
    return matchesGoldenIn(std::string(KOVA_GOLDEN_FOLDER "/") + suite,
                           std::string(KOVA_GOLDEN_OUTPUT "/") + suite, actual, name, rule);
}

}  // namespace kova::test
