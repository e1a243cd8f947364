#pragma once

#include <memory>
#include <string>
#include <vector>

#include "camera/base/status.h"
#include "camera/calibration/stereo_calibration.h"
#include "camera/sources/decode.h"

namespace kova::tools {

/// The picture pairs of a recording or of folders, before rectification.
class PicturePairs {
public:
    virtual ~PicturePairs() = default;
    virtual int count() const = 0;
    /// For messages: the file's name, or "frame 12".
    virtual std::string name(int i) const = 0;
    virtual camera::Status read(int i, camera::StereoPair& pair) = 0;
    /// The calibration that comes with the pictures; null where there is none.
    virtual const camera::StereoCalibration* calibration() const { return nullptr; }

    /// @param path   a recording; a folder with pictures named left* and right* (im0 and im1, imL
    ///               and imR, view1 and view5, *_left and *_right) or with a folder for each eye
    ///               (left, right; image_l, image_r; image_0, image_1; image_2, image_3;
    ///               cam0/data, cam1/data; also below mav0 or training); a picture of both eyes
    ///               side by side
    /// @param right  if not empty, the folder of the right eye's pictures, `path` being the left's;
    ///               or the right picture, `path` being the left one
    static camera::Result<std::unique_ptr<PicturePairs>> open(const std::string& path,
                                                              const std::string& right);
};

}  // namespace kova::tools
