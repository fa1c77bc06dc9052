// The echo test's random numbers: a 15-bit linear congruential generator. Its exact
// sequence is part of the wire contract: a run with a fixed seed repeats byte for byte.
#pragma once

#include <cstdint>

namespace portwren {

class EchoRandom {
 public:
  static constexpr uint32_t kMultiplier = 214013;
  static constexpr uint32_t kIncrement = 2531011;
  static constexpr uint32_t kUnseededState = 1;

  explicit EchoRandom(uint32_t seed = kUnseededState) : state_(seed) {}

  void Seed(uint32_t seed) { state_ = seed; }

  // 0..32767; the state wraps modulo 2^32.
  uint32_t Next() {
    state_ = state_ * kMultiplier + kIncrement;
    return (state_ >> 16) & 0x7FFF;
  }

 private:
  uint32_t state_;
};

// The calling thread's own generator, at state 1 until that thread seeds it.
EchoRandom& ThreadEchoRandom();

inline void SeedEchoRandom(uint32_t seed) {
  ThreadEchoRandom().Seed(seed);
}
inline uint32_t NextEchoRandom() {
  return ThreadEchoRandom().Next();
}

}  // namespace portwren
