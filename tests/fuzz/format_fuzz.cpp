// The format engine on formats from the input. Any text goes in through %w with no argument list,
// where every argument reads as zero, so no directive can read an argument nobody gave; typed
// directives get real arguments, each of the type its conversion reads.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "format/format.h"
#include "fuzz/fuzz_input.h"

namespace {

using portwren::fuzz::Input;

// Conversions by the argument they read.
enum Kind { kInt, kLongLong, kDouble, kText, kKinds };
constexpr const char* kConversions[kKinds][6] = {
    {"d", "u", "x", "o", "D", "c"},
    {"lld", "llu", "llx", "llX", "llD", "llU"},
    {"f", "e", "g", "E", "G", "f"},
    {"s", "s", "s", "s", "s", "s"},
};

std::string Directive(Input& in, Kind kind) {
  std::string out = "%";
  const uint8_t flags = in.Byte();
  const char kFlags[] = "-0+ #";
  for (int i = 0; i < 5; ++i) {
    if (flags & (1u << i)) out += kFlags[i];
  }
  if (flags & 0x20) out += std::to_string(in.Byte() % 140);
  if (flags & 0x40) out += "." + std::to_string(in.Byte() % 140);
  out += kConversions[kind][in.Byte() % 6];
  return out;
}

struct Call {
  std::string format;
  std::vector<char> output;
  std::string texts[3];
};

template <class... Args>
void Format(Call& call, Args... args) {
  portwren::FormatToBuffer(call.output.data(), static_cast<int32_t>(call.output.size()), call.format.c_str(),
                           args...);
}

// Builds the argument list one directive at a time, each argument of its directive's kind.
template <int Left, class... Args>
void WithArguments(Input& in, Call& call, int directives, Args... args) {
  if constexpr (Left == 0) {
    Format(call, args...);
  } else {
    if (directives == 0) return Format(call, args...);
    const Kind kind = static_cast<Kind>(in.Byte() % kKinds);
    const std::string literal = in.Take(in.Byte() % 8);
    for (char c : literal) {
      if (c == 0) break;
      call.format += c;
      if (c == '%') call.format += '%';
    }
    call.format += Directive(in, kind);
    switch (kind) {
      case kInt:
        return WithArguments<Left - 1>(in, call, directives - 1, args..., static_cast<int>(in.U32()));
      case kLongLong:
        return WithArguments<Left - 1>(in, call, directives - 1, args...,
                                       static_cast<long long>((uint64_t{in.U32()} << 32) | in.U32()));
      case kDouble: {
        const uint64_t bits = (uint64_t{in.U32()} << 32) | in.U32();
        double value;
        std::memcpy(&value, &bits, sizeof value);
        return WithArguments<Left - 1>(in, call, directives - 1, args..., value);
      }
      default: {
        std::string& text = call.texts[Left - 1];
        text = in.Take(in.Byte() % 64);
        return WithArguments<Left - 1>(in, call, directives - 1, args..., text.c_str());
      }
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Input in(data, size);
  const uint8_t mode = in.Byte();
  const size_t capacity = 1 + in.Byte() % 300;
  Call call;
  call.output.resize(capacity);
  if (mode & 1) {
    WithArguments<3>(in, call, 1 + mode / 2 % 3);
    return 0;
  }
  std::string text = in.Rest();
  text.resize(std::strlen(text.c_str()));
  va_list* no_arguments = nullptr;
  portwren::NestedFormat nested{portwren::kNestedFormatTag, text.c_str(), no_arguments};
  portwren::FormatToBuffer(call.output.data(), static_cast<int32_t>(capacity), "%w", &nested);
  char* grown = nullptr;
  if (portwren::FormatAllocMax(&grown, 4096, "%w|%w", &nested, &nested) >= 0) std::free(grown);
  // The wide engine, two bytes a character.
  std::u16string wide(text.size() / 2, u'\0');
  std::memcpy(wide.data(), text.data(), wide.size() * 2);
  wide.resize(std::char_traits<char16_t>::length(wide.c_str()));
  portwren::WideNestedFormat wide_nested{portwren::kNestedFormatTag, wide.c_str(), no_arguments};
  std::vector<char16_t> wide_output(capacity);
  portwren::FormatToBuffer(wide_output.data(), static_cast<int32_t>(capacity), u"%w", &wide_nested);
  return 0;
}
