// Keys and lines from a byte stream, by the rules of a terminal or of piped input. Pure: the
// backends hand in the stream (a descriptor or a Windows handle); tests hand in their own.
#pragma once

#include <cstddef>

#include "platform/console_decoder.h"

namespace portwren::os {

class ConsoleStream {
 public:
  static constexpr int kNothing = -1;  // no byte came within the wait
  static constexpr int kEnd = -2;      // end of input or a read error

  virtual ~ConsoleStream() = default;

  // The next byte (0..255). wait_ms < 0 waits as long as it takes; 0 only looks.
  virtual int Read(int wait_ms) = 0;

  // Shows what a line read takes back to the user; only terminals do.
  virtual void Echo(const char* text, size_t length) {
    (void)text;
    (void)length;
  }
};

// Input that is not a terminal: every byte is a key, LF or CR LF is one Enter, the end is ESC.
class StreamKeys {
 public:
  explicit StreamKeys(ConsoleStream& stream) : stream_(stream) {}

  int GetKey();
  bool KeyWaiting();
  bool ReadLine(char* buffer, int capacity);
  bool Ended() const { return ended_; }  // nothing is held once the end has been read

 private:
  int NextByte(int wait_ms);  // kNothing, kEnd or a byte, with the LF of a CR LF left out

  ConsoleStream& stream_;
  int held_ = ConsoleStream::kNothing;  // the byte KeyWaiting looked at
  bool after_cr_ = false;               // an LF now still belongs to the last Enter
  bool ended_ = false;
};

// A terminal in single-key mode: escape sequences become extended keys, a line read is edited
// on the screen.
class TerminalKeys {
 public:
  explicit TerminalKeys(ConsoleStream& stream) : stream_(stream) {}

  int GetKey();
  bool KeyWaiting();
  bool ReadLine(char* buffer, int capacity);
  bool Ended() const { return ended_ && !decoder_.HasKey(); }

 private:
  int NextKey();  // a key, or ConsoleStream::kEnd
  void Erase(int count);

  ConsoleStream& stream_;
  EscapeDecoder decoder_;
  bool ended_ = false;
};

}  // namespace portwren::os
