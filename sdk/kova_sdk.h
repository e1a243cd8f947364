#pragma once

/// The interface of the camera library, whole.

#include "sdk/cuda_functions.h"
#include "sdk/imu_data.h"
#include "sdk/mat_pointer_vector.h"
#include "sdk/model_file_stl.h"
#include "sdk/modes.h"
#include "sdk/records.h"
#include "sdk/result_code.h"
#include "sdk/size.h"
#include "sdk/stereo_camera.h"
#include "sdk/utils.h"
