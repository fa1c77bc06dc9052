// CRC-32 of the echo chunk bodies: the reflected IEEE 802.3 / ISO-HDLC checksum
// (polynomial 0x04C11DB7, register starts at all ones, result inverted).
#pragma once

#include <cstddef>
#include <cstdint>

namespace portwren {

// Builds the lookup tables. Crc32() does it on first use anyway; start-up calls this so
// the first chunk does not pay for it. Safe to call from any thread, any number of times.
void BuildCrc32Table();

// CRC-32 of count bytes: "123456789" gives 0xCBF43926, no bytes give 0.
uint32_t Crc32(const void* data, size_t count);

// Carries a finished CRC on over more bytes: Crc32Extend(Crc32(a), b) == Crc32(a then b).
uint32_t Crc32Extend(uint32_t crc, const void* data, size_t count);

}  // namespace portwren
