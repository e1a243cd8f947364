#pragma once

#include <cstdio>
#include <cstdlib>

/// Checks one of our own contracts; never used on data. Active where KOVA_DCHECK is on.
#if defined(KOVA_DCHECK_ENABLED)
#define KOVA_DCHECK(condition)                                                                    \
    do {                                                                                          \
        if (!(condition)) {                                                                       \
            std::fprintf(stderr, "%s:%d: broken contract: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                         \
        }                                                                                         \
    } while (false)
#else
#define KOVA_DCHECK(condition) \
    do {                       \
    } while (false)
#endif
