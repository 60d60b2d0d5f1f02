// The page's numbers are not limited in size; this is the one rule by which
// they become 32-bit integers.
#pragma once

#include <cstdint>

// Truncation toward zero; a value a 32-bit integer cannot hold (or NaN) gives
// INT32_MIN, as the processor's own conversion does, without undefined
// behaviour.
inline int32_t truncateToInt32(double value) {
    if (!(value > -2147483649.0 && value < 2147483648.0)) return INT32_MIN;
    return static_cast<int32_t>(value);
}
