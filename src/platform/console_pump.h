// Input read ahead on a thread of its own, so that looking for a waiting key never blocks,
// whatever the input is. Windows uses it for redirected standard input, where PeekNamedPipe
// cannot be relied on (Wine has none for pipes from a POSIX parent).
#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>

#include "platform/console_keys.h"

namespace portwren::os {

class PumpedStream final : public ConsoleStream {
 public:
  // Fills up to size bytes and returns how many; 0 or less is the end of input.
  using ReadFunction = std::function<long(unsigned char* buffer, size_t size)>;

  static constexpr size_t kMaxAhead = 65536;  // read ahead no further than this

  explicit PumpedStream(ReadFunction read) : read_(std::move(read)) {}
  // Waits for a read in progress to return. The program's console is never destroyed.
  ~PumpedStream() override;
  PumpedStream(const PumpedStream&) = delete;
  PumpedStream& operator=(const PumpedStream&) = delete;

  int Read(int wait_ms) override;  // the pump starts with the first call

 private:
  void Pump();

  ReadFunction read_;
  std::thread pump_;
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::condition_variable room_;
  std::deque<unsigned char> bytes_;
  bool ended_ = false;
  bool stopping_ = false;
};

}  // namespace portwren::os
