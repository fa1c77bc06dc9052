// The keyboard shared by a console thread that polls it and a worker that stops for the
// operator: while a worker holds it, the poller reads nothing, so the key meant for the worker
// cannot be taken as the poller's own command.
#pragma once

namespace portwren {

inline constexpr int kNoKeyWaiting = -1;

// A waiting key, or kNoKeyWaiting when none waits or a worker holds the keyboard. Never waits.
// The code after an extended-key prefix is dropped with it.
int PollKey();

// Taken by a worker before it tells the operator which key it waits for, so that a key typed
// in answer is never polled away.
class KeyboardHold {
 public:
  KeyboardHold();
  ~KeyboardHold();
  KeyboardHold(const KeyboardHold&) = delete;
  KeyboardHold& operator=(const KeyboardHold&) = delete;
};

// Reads keys until `wanted` comes (true) or the input ends (false), so that a scripted run
// never hangs here; every other key is dropped.
bool WaitForHeldKey(const KeyboardHold& hold, int wanted);

}  // namespace portwren
