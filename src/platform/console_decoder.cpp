#include "platform/console_decoder.h"

#include "platform/os_console.h"

namespace portwren::os {

namespace {

constexpr unsigned char kEsc = 0x1B;
constexpr size_t kMaxParams = 8;  // longer parameters belong to no key we know

struct TildeKey {
  int number;  // ESC [ number ~
  int prefix;
  int code;
};

// xterm, VT220 and rxvt numbers; 7 and 8 are rxvt's Home and End, 11-14 its F1-F4.
constexpr TildeKey kTildeKeys[] = {
    {1, kKeyExtended, kKeyHome},      {2, kKeyExtended, kKeyInsert},   {3, kKeyExtended, kKeyDelete},
    {4, kKeyExtended, kKeyEnd},       {5, kKeyExtended, kKeyPageUp},   {6, kKeyExtended, kKeyPageDown},
    {7, kKeyExtended, kKeyHome},      {8, kKeyExtended, kKeyEnd},      {11, kKeyFunction, kKeyF1},
    {12, kKeyFunction, kKeyF1 + 1},   {13, kKeyFunction, kKeyF1 + 2},  {14, kKeyFunction, kKeyF1 + 3},
    {15, kKeyFunction, kKeyF1 + 4},   {17, kKeyFunction, kKeyF1 + 5},  {18, kKeyFunction, kKeyF1 + 6},
    {19, kKeyFunction, kKeyF1 + 7},   {20, kKeyFunction, kKeyF1 + 8},  {21, kKeyFunction, kKeyF1 + 9},
    {23, kKeyExtended, kKeyF11},      {24, kKeyExtended, kKeyF12},
};

// The final letter of ESC [ x or ESC O x for the cursor and editing keys; 0 when unknown.
int CursorCode(unsigned char final_byte) {
  switch (final_byte) {
    case 'A': return kKeyUp;
    case 'B': return kKeyDown;
    case 'C': return kKeyRight;
    case 'D': return kKeyLeft;
    case 'H': return kKeyHome;
    case 'F': return kKeyEnd;
    default: return 0;
  }
}

bool IsSequenceByte(unsigned char byte) { return byte >= 0x20 && byte <= 0x7E; }

}  // namespace

int EscapeDecoder::PopKey() {
  if (keys_.empty()) return -1;
  const int key = keys_.front();
  keys_.pop_front();
  return key;
}

void EscapeDecoder::Emit(int first, int second) {
  keys_.push_back(first);
  keys_.push_back(second);
}

void EscapeDecoder::Ground(unsigned char byte) {
  switch (byte) {
    case kEsc:
      state_ = State::kEscape;
      break;
    case 0x7F:  // the terminal's Backspace; Windows sends 8
      Emit(kKeyBackspace);
      break;
    case 0x00:  // Ctrl+@ reads as 0, 3 on Windows; a lone 0 would look like a prefix
      Emit(kKeyFunction, 3);
      break;
    default:
      Emit(byte);
      break;
  }
}

void EscapeDecoder::Push(unsigned char byte) {
  switch (state_) {
    case State::kGround:
      Ground(byte);
      return;
    case State::kEscape:
      if (byte == '[') {
        state_ = State::kCsi;
        params_.clear();
        params_overflow_ = false;
      } else if (byte == 'O') {
        state_ = State::kSs3;
      } else {
        // The ESC was a key of its own, and so is this byte (it may start a sequence itself).
        Emit(kKeyEsc);
        state_ = State::kGround;
        Ground(byte);
      }
      return;
    case State::kCsi:
      if (!IsSequenceByte(byte)) break;
      if (byte == '[' && params_.empty() && !params_overflow_) {
        state_ = State::kLinuxFunction;
      } else if (byte >= 0x40) {
        state_ = State::kGround;
        FinishCsi(byte);
      } else if (params_.size() < kMaxParams) {
        params_.push_back(static_cast<char>(byte));
      } else {
        params_overflow_ = true;
      }
      return;
    case State::kSs3:
      if (!IsSequenceByte(byte)) break;
      state_ = State::kGround;
      if (const int code = CursorCode(byte); code != 0) {
        Emit(kKeyExtended, code);
      } else if (byte >= 'P' && byte <= 'S') {
        Emit(kKeyFunction, kKeyF1 + (byte - 'P'));
      }
      return;
    case State::kLinuxFunction:
      if (!IsSequenceByte(byte)) break;
      state_ = State::kGround;
      if (byte >= 'A' && byte <= 'E') Emit(kKeyFunction, kKeyF1 + (byte - 'A'));
      return;
  }
  // A control byte inside a sequence: what came before is dropped, the byte counts anew.
  state_ = State::kGround;
  Ground(byte);
}

void EscapeDecoder::FinishCsi(unsigned char final_byte) {
  if (params_overflow_) return;
  if (final_byte == '~') {
    int number = 0;
    for (const char c : params_) {
      if (c < '0' || c > '9') return;  // modifiers (";5") and the like: not a key we map
      number = number * 10 + (c - '0');
    }
    if (params_.empty()) return;
    for (const TildeKey& key : kTildeKeys) {
      if (key.number == number) {
        Emit(key.prefix, key.code);
        return;
      }
    }
    return;
  }
  if (!params_.empty() && params_ != "1") return;
  if (const int code = CursorCode(final_byte); code != 0) Emit(kKeyExtended, code);
}

void EscapeDecoder::Expire() {
  if (state_ == State::kEscape) Emit(kKeyEsc);
  state_ = State::kGround;
}

}  // namespace portwren::os
