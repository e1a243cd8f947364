#pragma once

// A stand-in for OpenGL and GLEW that is linked in their place: it needs no display and no context,
// draws nothing and writes every call to the CallLog, under the function's name, with vectors as
// lists of numbers and uploaded pixels or buffers as data of the call. Texture and buffer names
// count up from 1.

#include <cstdint>

#include "tests/support/call_log.h"

namespace kova::test {

/// What glewInit() returns from now on; 0 is success.
void setGlewInitResult(unsigned int code);

/// Names count from 1 again and glewInit() succeeds; the log is emptied.
void resetGlDouble();

}  // namespace kova::test
