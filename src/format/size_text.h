// Short human texts for sizes, rates and the special 32-bit values.
#pragma once

#include <cstdint>

namespace portwren {

// "1.50 K<unit>", "2.00 M<unit>", "999 <unit>": decimal scales, two decimals when scaled.
const char* SizeText(uint64_t count, const char* unit, char* buffer, int32_t capacity);

// Bytes per second; milliseconds must not be 0 (callers guard it).
const char* RateText(uint64_t bytes, uint32_t milliseconds, char* buffer, int32_t capacity);

// "MAXDWORD", "MAXDWORD-1", "MAXDWORD-2" or the decimal value.
const char* DwordText(uint32_t value, char* buffer, int32_t capacity);

}  // namespace portwren
