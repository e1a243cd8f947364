#pragma once

#include <GL/gl.h>

#include "tests/support/cuda/cuda_runtime_api.h"

extern "C" cudaError_t cudaGraphicsGLRegisterImage(cudaGraphicsResource_t* resource, GLuint image,
                                                   GLenum target, unsigned int flags);
