// The main line's state: the open port and what the keys started or opened.
#pragma once

#include "echo/log_file_writer.h"
#include "platform/os_handle.h"

namespace portwren {

class CommEventMonitor;

struct MainLine {
  os::Handle port = os::kInvalidHandle;
  int prompt_count = 0;
  LogFileWriter read_log;
  LogFileWriter echo_log_out;           // "out" records of the echo test
  LogFileWriter echo_log_in;            // "in" records of the echo test
  CommEventMonitor* monitor = nullptr;  // the comm-event monitor, while one is running
  bool reader_running = false;
};

}  // namespace portwren
