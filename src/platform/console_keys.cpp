#include "platform/console_keys.h"

#include "platform/os_console.h"

namespace portwren::os {

namespace {
constexpr int kNothing = ConsoleStream::kNothing;
constexpr int kEnd = ConsoleStream::kEnd;
constexpr int kCtrlU = 21;  // clears the line, as in a shell
}  // namespace

// ---- piped input ----

int StreamKeys::NextByte(int wait_ms) {
  for (;;) {
    int byte = held_;
    held_ = kNothing;
    if (byte == kNothing) byte = ended_ ? kEnd : stream_.Read(wait_ms);
    if (byte == kEnd) {
      ended_ = true;
      return kEnd;
    }
    if (byte == kNothing) return kNothing;
    if (after_cr_) {
      after_cr_ = false;
      if (byte == '\n') continue;
    }
    return byte;
  }
}

int StreamKeys::GetKey() {
  const int byte = NextByte(-1);
  if (byte == kEnd) return kKeyEsc;
  if (byte == '\r') {
    after_cr_ = true;
    return kKeyEnter;
  }
  if (byte == '\n') return kKeyEnter;
  return byte;
}

bool StreamKeys::KeyWaiting() {
  const int byte = NextByte(0);
  if (byte == kNothing) return false;
  if (byte != kEnd) held_ = byte;
  return true;
}

bool StreamKeys::ReadLine(char* buffer, int capacity) {
  if (buffer == nullptr || capacity < 1) return false;
  int length = 0;
  bool got_any = false;
  for (;;) {
    const int byte = NextByte(-1);
    if (byte == kEnd) break;
    got_any = true;
    if (byte == '\r') {
      after_cr_ = true;
      break;
    }
    if (byte == '\n') break;
    if (length < capacity - 1) buffer[length++] = static_cast<char>(byte);
  }
  buffer[length] = '\0';
  return got_any;
}

// ---- terminal ----

int TerminalKeys::NextKey() {
  while (!decoder_.HasKey()) {
    if (ended_) return kEnd;
    const int byte = stream_.Read(decoder_.Pending() ? kEscapeWaitMs : -1);
    if (byte == kNothing) {
      decoder_.Expire();
    } else if (byte == kEnd) {
      ended_ = true;
      decoder_.Expire();
    } else {
      decoder_.Push(static_cast<unsigned char>(byte));
    }
  }
  return decoder_.PopKey();
}

int TerminalKeys::GetKey() {
  const int key = NextKey();
  return key == kEnd ? kKeyEsc : key;
}

bool TerminalKeys::KeyWaiting() {
  while (!decoder_.HasKey() && !ended_) {
    const bool pending = decoder_.Pending();
    const int byte = stream_.Read(pending ? kEscapeWaitMs : 0);
    if (byte == kNothing) {
      if (!pending) return false;
      decoder_.Expire();  // a lone ESC becomes a key; a broken sequence is gone
    } else if (byte == kEnd) {
      ended_ = true;
      decoder_.Expire();
    } else {
      decoder_.Push(static_cast<unsigned char>(byte));
    }
  }
  return true;
}

void TerminalKeys::Erase(int count) {
  for (int i = 0; i < count; ++i) stream_.Echo("\b \b", 3);
}

bool TerminalKeys::ReadLine(char* buffer, int capacity) {
  if (buffer == nullptr || capacity < 1) return false;
  int length = 0;
  for (;;) {
    const int key = NextKey();
    if (key == kEnd) {
      buffer[length] = '\0';
      return length > 0;
    }
    if (key == kKeyEnter || key == '\n') break;
    if (key == kKeyExtended || key == kKeyFunction) {
      NextKey();  // the code of an arrow or function key: no part of a line
    } else if (key == kKeyBackspace) {
      if (length > 0) {
        --length;
        Erase(1);
      }
    } else if (key == kKeyEsc || key == kCtrlU) {
      Erase(length);
      length = 0;
    } else if (key >= 0x20 && key < 0x7F && length < capacity - 1) {
      const char c = static_cast<char>(key);
      buffer[length++] = c;
      stream_.Echo(&c, 1);
    }
  }
  stream_.Echo("\r\n", 2);
  buffer[length] = '\0';
  return true;
}

}  // namespace portwren::os
