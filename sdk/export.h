#pragma once

/// Marks what the three shared libraries offer; everything else in them is hidden.
#if defined(KOVA_SDK_BUILD)
#define KOVA_SDK_API __attribute__((visibility("default")))
#else
#define KOVA_SDK_API
#endif
