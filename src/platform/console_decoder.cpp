#include "platform/console_decoder.h"

#include <cstring>

#include "platform/os_console.h"

namespace portwren::os {

namespace {

constexpr unsigned char kEsc = 0x1B;
constexpr size_t kMaxParams = 8;  // longer parameters belong to no key we know

// The keys a sequence can name, in the order of kCodes.
// clang-format off
enum Key {
  kHome, kUp, kPgUp, kLeft, kRight, kEnd, kDown, kPgDn, kIns, kDel,
  kF1, kF2, kF3, kF4, kF5, kF6, kF7, kF8, kF9, kF10, kF11, kF12,
  kBackTab,
  kNoKey
};
// clang-format on

// What _getch gives for a key: prefix and code alone, with Shift, with Ctrl, and the pair
// with Alt. Alt counts before Ctrl, Ctrl before Shift, as in the Windows runtime.
struct KeyCodes {
  int prefix;
  int plain;
  int shift;
  int ctrl;
  int alt_prefix;
  int alt;
};

constexpr KeyCodes kCodes[] = {
    {224, 71, 71, 119, 0, 151},      // Home
    {224, 72, 72, 141, 0, 152},      // Up
    {224, 73, 73, 134, 0, 153},      // PgUp
    {224, 75, 75, 115, 0, 155},      // Left
    {224, 77, 77, 116, 0, 157},      // Right
    {224, 79, 79, 117, 0, 159},      // End
    {224, 80, 80, 145, 0, 160},      // Down
    {224, 81, 81, 118, 0, 161},      // PgDn
    {224, 82, 82, 146, 0, 162},      // Insert
    {224, 83, 83, 147, 0, 163},      // Delete
    {0, 59, 84, 94, 0, 104},         // F1
    {0, 60, 85, 95, 0, 105},         // F2
    {0, 61, 86, 96, 0, 106},         // F3
    {0, 62, 87, 97, 0, 107},         // F4
    {0, 63, 88, 98, 0, 108},         // F5
    {0, 64, 89, 99, 0, 109},         // F6
    {0, 65, 90, 100, 0, 110},        // F7
    {0, 66, 91, 101, 0, 111},        // F8
    {0, 67, 92, 102, 0, 112},        // F9
    {0, 68, 93, 103, 0, 113},        // F10
    {224, 133, 135, 137, 224, 139},  // F11
    {224, 134, 136, 138, 224, 140},  // F12
    {0, 15, 15, 148, 0, 15},         // Shift+Tab (ESC [ Z); a plain Tab is a byte of its own
};
static_assert(sizeof kCodes / sizeof kCodes[0] == kNoKey);

// The modifier bits of xterm's parameter (the parameter less one).
constexpr int kShift = 1;
constexpr int kAlt = 2;
constexpr int kCtrl = 4;
constexpr int kMeta = 8;  // taken as Alt

// ESC [ number ~ : xterm, VT220 and rxvt numbers; 7 and 8 are rxvt's Home and End, 11-14 its
// F1-F4.
struct TildeNumber {
  int number;
  Key key;
};
constexpr TildeNumber kTildeKeys[] = {
    {1, kHome}, {2, kIns}, {3, kDel}, {4, kEnd},  {5, kPgUp}, {6, kPgDn}, {7, kHome},
    {8, kEnd},  {11, kF1}, {12, kF2}, {13, kF3},  {14, kF4},  {15, kF5},  {17, kF6},
    {18, kF7},  {19, kF8}, {20, kF9}, {21, kF10}, {23, kF11}, {24, kF12},
};

Key TildeKey(int number) {
  for (const TildeNumber& tilde : kTildeKeys) {
    if (tilde.number == number) return tilde.key;
  }
  return kNoKey;
}

// The final letter of ESC [ x or ESC O x; rxvt's lower-case a-d are modified arrows.
Key LetterKey(unsigned char final_byte) {
  static constexpr char kLetters[] = "ABCDabcdHFPQRSZ";
  static constexpr Key kKeys[] = {kUp,   kDown, kRight, kLeft, kUp, kDown, kRight,  kLeft,
                                  kHome, kEnd,  kF1,    kF2,   kF3, kF4,   kBackTab};
  static_assert(sizeof kKeys / sizeof kKeys[0] == sizeof kLetters - 1);
  const char* at = final_byte == 0 ? nullptr : std::strchr(kLetters, final_byte);
  return at == nullptr ? kNoKey : kKeys[at - kLetters];
}

// Alt with a character key gives 0 and the key's scan code on a US keyboard: along each row of
// keys, unshifted and shifted, the codes count up from the row's first.
struct KeyRow {
  const char* keys;
  int first_code;
};
constexpr KeyRow kAltRows[] = {
    {"1234567890-=", 120}, {"!@#$%^&*()_+", 120}, {"qwertyuiop[]", 16}, {"QWERTYUIOP{}", 16},
    {"asdfghjkl;'`", 30},  {"ASDFGHJKL:\"~", 30}, {"zxcvbnm,./", 44},   {"ZXCVBNM<>?", 44},
};

constexpr int kAltNone = -1;     // no Alt key: the ESC is a key of its own
constexpr int kAltNothing = -2;  // Windows gives no key for it at all (Alt+\)
constexpr int kAltSpace = -3;    // Alt+Space gives a plain space

// The scan code that Alt reports for the byte after an ESC.
int AltCode(unsigned char byte) {
  if (byte == 0x7F || byte == 0x08) return 14;  // Backspace
  if (byte == 0x09) return 15;                  // Tab
  if (byte == 0x0D) return 28;                  // Enter
  if (byte == ' ') return kAltSpace;
  if (byte == '\\' || byte == '|') return kAltNothing;
  if (byte >= 0x01 && byte <= 0x1A) byte = static_cast<unsigned char>('a' + byte - 1);  // Ctrl+Alt+letter
  if (byte < 0x21 || byte > 0x7E) return kAltNone;
  for (const KeyRow& row : kAltRows) {
    if (const char* at = std::strchr(row.keys, byte); at != nullptr) {
      return row.first_code + static_cast<int>(at - row.keys);
    }
  }
  return kAltNone;
}

bool IsSequenceByte(unsigned char byte) {
  return byte >= 0x20 && byte <= 0x7E;
}

// Up to two numbers separated by ';', each at most 999; false for anything else.
bool ParseParams(const std::string& params, int numbers[2], int* count) {
  *count = 0;
  if (params.empty()) return true;
  int value = -1;
  for (const char c : params) {
    if (c == ';') {
      if (value < 0 || *count == 1) return false;
      numbers[(*count)++] = value;
      value = -1;
    } else if (c >= '0' && c <= '9' && value < 100) {
      value = (value < 0 ? 0 : value * 10) + (c - '0');
    } else {
      return false;
    }
  }
  if (value < 0) return false;
  numbers[(*count)++] = value;
  return true;
}

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

void EscapeDecoder::StartSequence(State state) {
  state_ = state;
  params_.clear();
  params_overflow_ = false;
}

void EscapeDecoder::AfterEscape(unsigned char byte) {
  if (byte == '[') return StartSequence(State::kCsi);
  if (byte == 'O') return StartSequence(State::kSs3);
  state_ = State::kGround;
  if (byte == kEsc) {
    // The first ESC was a key; the second may still start a sequence.
    Emit(kKeyEsc);
    state_ = State::kEscape;
    return;
  }
  const int code = AltCode(byte);
  if (code >= 0) {
    Emit(kKeyFunction, code);
  } else if (code == kAltSpace) {
    Emit(' ');
  } else if (code == kAltNone) {
    // The ESC was a key of its own, and so is this byte.
    Emit(kKeyEsc);
    Ground(byte);
  }
}

void EscapeDecoder::Push(unsigned char byte) {
  switch (state_) {
    case State::kGround:
      Ground(byte);
      return;
    case State::kEscape:
      AfterEscape(byte);
      return;
    case State::kCsi:
    case State::kSs3:
      if (!IsSequenceByte(byte)) break;
      if (state_ == State::kCsi && byte == '[' && params_.empty() && !params_overflow_) {
        state_ = State::kLinuxFunction;
      } else if (byte >= 0x40 || byte == '$') {  // rxvt ends Shift+Delete and the like with '$'
        Finish(byte);
        state_ = State::kGround;
      } else if (params_.size() < kMaxParams) {
        params_.push_back(static_cast<char>(byte));
      } else {
        params_overflow_ = true;
      }
      return;
    case State::kLinuxFunction:
      if (!IsSequenceByte(byte)) break;
      state_ = State::kGround;
      if (byte >= 'A' && byte <= 'E') Emit(kKeyFunction, kCodes[kF1 + (byte - 'A')].plain);
      return;
  }
  // A control byte inside a sequence: what came before is dropped, the byte counts anew.
  state_ = State::kGround;
  Ground(byte);
}

// Forms: ESC [ n ~ and ESC [ n ; m ~ (rxvt: n ^ Ctrl, n $ Shift, n @ Ctrl+Shift); ESC [ x,
// ESC [ 1 ; m x, ESC O x, ESC O m x and ESC O 1 ; m x (rxvt: ESC [ a Shift+Up, ESC O a
// Ctrl+Up), where m is xterm's modifier parameter.
void EscapeDecoder::Finish(unsigned char final_byte) {
  int numbers[2] = {0, 0};
  int count = 0;
  if (params_overflow_ || !ParseParams(params_, numbers, &count)) return;
  const bool ss3 = state_ == State::kSs3;
  Key key = kNoKey;
  int modifier = 1;
  int rxvt = 0;  // the modifiers rxvt puts into the final byte
  if (std::strchr("~^$@", final_byte) != nullptr) {
    if (ss3 || count == 0 || (count == 2 && final_byte != '~')) return;
    key = TildeKey(numbers[0]);
    if (count == 2) modifier = numbers[1];
    rxvt = final_byte == '^' ? kCtrl : final_byte == '$' ? kShift : final_byte == '@' ? kCtrl | kShift : 0;
  } else {
    key = LetterKey(final_byte);
    if (final_byte >= 'a' && final_byte <= 'd') rxvt = ss3 ? kCtrl : kShift;
    if (count == 2) {
      if (numbers[0] != 1) return;
      modifier = numbers[1];
    } else if (count == 1) {
      if (!ss3 && numbers[0] != 1) return;  // ESC [ 2 A would be a cursor movement, no key
      modifier = numbers[0];
    }
  }
  if (key == kNoKey || modifier < 1 || modifier > 16) return;
  const int bits = (modifier - 1) | rxvt;
  const KeyCodes& codes = kCodes[key];
  if ((bits & (kAlt | kMeta)) != 0) {
    Emit(codes.alt_prefix, codes.alt);
  } else if ((bits & kCtrl) != 0) {
    Emit(codes.prefix, codes.ctrl);
  } else if ((bits & kShift) != 0) {
    Emit(codes.prefix, codes.shift);
  } else {
    Emit(codes.prefix, codes.plain);
  }
}

void EscapeDecoder::Expire() {
  if (state_ == State::kEscape) {
    Emit(kKeyEsc);
  } else if (params_.empty() && !params_overflow_ && state_ != State::kLinuxFunction) {
    // Alt+[ and Alt+O send what starts a sequence; nothing came after it.
    if (state_ == State::kCsi) Emit(kKeyFunction, AltCode('['));
    if (state_ == State::kSs3) Emit(kKeyFunction, AltCode('o'));
  }
  state_ = State::kGround;
}

}  // namespace portwren::os
