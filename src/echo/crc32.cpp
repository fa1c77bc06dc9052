#include "echo/crc32.h"

namespace portwren {
namespace {

constexpr uint32_t kPolynomial = 0x04C11DB7;

// Sixteen bytes per step: table k maps a byte to its CRC after k further zero bytes, so
// sixteen independent look-ups replace sixteen dependent ones. Table 0 is the classic
// byte-at-a-time table.
constexpr int kSlices = 16;

struct Crc32Tables {
  uint32_t slice[kSlices][256];
};

uint32_t Reflect(uint32_t value, int bits) {
  uint32_t reflected = 0;
  for (int bit = 0; bit < bits; ++bit) {
    if (value & (1u << bit)) reflected |= 1u << (bits - 1 - bit);
  }
  return reflected;
}

Crc32Tables MakeTables() {
  Crc32Tables tables{};
  for (uint32_t i = 0; i < 256; ++i) {
    uint32_t reg = Reflect(i, 8) << 24;
    for (int step = 0; step < 8; ++step) {
      reg = (reg & 0x80000000u) ? (reg << 1) ^ kPolynomial : reg << 1;
    }
    tables.slice[0][i] = Reflect(reg, 32);
  }
  for (int k = 1; k < kSlices; ++k) {
    for (uint32_t i = 0; i < 256; ++i) {
      const uint32_t prev = tables.slice[k - 1][i];
      tables.slice[k][i] = (prev >> 8) ^ tables.slice[0][prev & 0xFF];
    }
  }
  return tables;
}

// Built on first use; the static's guard is the "built" flag, and the language makes
// concurrent first calls wait for the one that builds.
const Crc32Tables& Tables() {
  static const Crc32Tables tables = MakeTables();
  return tables;
}

// Byte order independent; compilers turn this into one load on little-endian targets.
inline uint32_t LoadLe32(const unsigned char* p) {
  return uint32_t{p[0]} | (uint32_t{p[1]} << 8) | (uint32_t{p[2]} << 16) | (uint32_t{p[3]} << 24);
}

uint32_t Update(uint32_t reg, const unsigned char* p, size_t count) {
  const auto& t = Tables().slice;
  while (count >= 16) {
    const uint32_t a = LoadLe32(p) ^ reg;
    const uint32_t b = LoadLe32(p + 4);
    const uint32_t c = LoadLe32(p + 8);
    const uint32_t d = LoadLe32(p + 12);
    reg = t[15][a & 0xFF] ^ t[14][(a >> 8) & 0xFF] ^ t[13][(a >> 16) & 0xFF] ^ t[12][a >> 24] ^
          t[11][b & 0xFF] ^ t[10][(b >> 8) & 0xFF] ^ t[9][(b >> 16) & 0xFF] ^ t[8][b >> 24] ^ t[7][c & 0xFF] ^
          t[6][(c >> 8) & 0xFF] ^ t[5][(c >> 16) & 0xFF] ^ t[4][c >> 24] ^ t[3][d & 0xFF] ^
          t[2][(d >> 8) & 0xFF] ^ t[1][(d >> 16) & 0xFF] ^ t[0][d >> 24];
    p += 16;
    count -= 16;
  }
  while (count-- > 0) reg = (reg >> 8) ^ t[0][(reg ^ *p++) & 0xFF];
  return reg;
}

}  // namespace

void BuildCrc32Table() {
  Tables();
}

uint32_t Crc32(const void* data, size_t count) {
  return Crc32Extend(0, data, count);
}

uint32_t Crc32Extend(uint32_t crc, const void* data, size_t count) {
  if (count == 0) return crc;
  return ~Update(~crc, static_cast<const unsigned char*>(data), count);
}

}  // namespace portwren
