#pragma once

#include <QString>

#include <string>

#include "sdk/result_code.h"
#include "sdk/size.h"

/// Texts that the window composes, translated in its context.
namespace kova::app {

/// A text of the camera library's tables; the empty text stays empty.
QString translatedName(const std::string& name);

/// For instance "Calculation time: 23.4 ms".
QString calculationTimeText(double seconds);

/// For instance "Confidence 75 %".
QString confidenceText(int position);

/// For instance "Distance Range  (300 8000)".
QString distanceRangeText(float minimum_mm, float maximum_mm);

/// For instance "12.50 ms".
QString exposureText(float exposure_ms);

/// For instance "SN 4711".
QString serialNumberText(unsigned int serial_number);

/// For instance "HW 1.0"; the version is in the local 8-bit encoding.
QString hardwareVersionText(const std::string& version);

/// For instance "Distance [x,y,z] at (3, 4) = [12, -5, 800] mm".
QString pointText(Size2_<int> pixel, Size3_<float> point_mm);

/// For instance "Distance between (3, 4), (5, 6) : 123.45 mm".
QString distanceText(Size2_<int> pressed, Size2_<int> released, float distance_mm);

/// What the tutorials box shows.
QString tutorialsText();

/// A translated lead-in with the text of the library's result.
QString errorText(const QString& lead_in, RESULT_CODE result);

}  // namespace kova::app
