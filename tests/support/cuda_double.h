#pragma once

// A stand-in for the CUDA runtime: writes every call to the CallLog and answers as a test sets.

#include "tests/support/call_log.h"

namespace kova::test {

struct CudaScript {
    int devices = 1;              ///< 0: cudaGetDeviceCount() fails, as without a driver
    bool register_fails = false;  ///< the handle is left alone then
    bool unregister_fails = false;
};

/// Effective until the next call.
void setCudaScript(const CudaScript& script);

}  // namespace kova::test
