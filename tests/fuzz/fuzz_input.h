// Takes a fuzzer's bytes apart: small numbers first, the rest as text.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace portwren::fuzz {

class Input {
 public:
  Input(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  bool empty() const { return at_ >= size_; }
  uint8_t Byte() { return at_ < size_ ? data_[at_++] : 0; }
  uint32_t U32() {
    uint32_t value = 0;
    for (int i = 0; i < 4; ++i) value = (value << 8) | Byte();
    return value;
  }
  // Up to n bytes; fewer at the end.
  std::string Take(size_t n) {
    const size_t take = n < size_ - at_ ? n : size_ - at_;
    std::string out(reinterpret_cast<const char*>(data_ + at_), take);
    at_ += take;
    return out;
  }
  std::string Rest() { return Take(size_ - at_); }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t at_ = 0;
};

}  // namespace portwren::fuzz
