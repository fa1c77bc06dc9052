// Turns the bytes a terminal sends for a key into the codes _getch gives on Windows: the cursor,
// editing and function keys with their Shift, Ctrl and Alt forms, and Alt with a character key
// (ESC, then the character) as 0 and the key's scan code.
// Pure: the caller reads the bytes and decides when the wait for the rest of a sequence is over.
#pragma once

#include <cstddef>
#include <deque>
#include <string>

namespace portwren::os {

// How long the rest of an escape sequence may lag behind its ESC before the ESC is a key.
inline constexpr int kEscapeWaitMs = 50;

class EscapeDecoder {
 public:
  void Push(unsigned char byte);

  // The wait for more bytes ran out: a pending ESC becomes a key, ESC [ and ESC O are Alt+[
  // and Alt+O; a longer started sequence is dropped (a late rest of an arrow must not turn
  // into ESC, which quits the program).
  void Expire();

  // An ESC or a part of a sequence waits for more bytes; the caller waits kEscapeWaitMs at
  // most, then calls Expire().
  bool Pending() const { return state_ != State::kGround; }

  bool HasKey() const { return !keys_.empty(); }
  int PopKey();  // -1 when no key is waiting

 private:
  enum class State { kGround, kEscape, kCsi, kSs3, kLinuxFunction };

  void Ground(unsigned char byte);
  void AfterEscape(unsigned char byte);
  void StartSequence(State state);
  void Finish(unsigned char final_byte);
  void Emit(int first, int second);
  void Emit(int key) { keys_.push_back(key); }

  State state_ = State::kGround;
  std::string params_;  // parameter bytes of a CSI or SS3 sequence
  bool params_overflow_ = false;
  std::deque<int> keys_;
};

}  // namespace portwren::os
