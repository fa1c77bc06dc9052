#include "console/port_open.h"

#include <cinttypes>
#include <cstdio>

#include "console/usage.h"
#include "format/console_log.h"
#include "platform/os_file.h"
#include "platform/os_serial.h"
#include "port/port_config.h"
#include "port/timed_io.h"
#include "support/run_settings.h"

namespace portwren {

namespace {

constexpr int kEnvValueChars = 40;
constexpr int32_t kDefaultBaudrate = 115200;

bool PrintLessWanted() {
  char value[kEnvValueChars];
  return os::GetEnvironmentVariableA("PORTWREN_PRINT_LESS", value, sizeof value) != 0;
}

os::Handle Open(os::Dword access) {
  return os::CreateFileA(g_dev_open_path, access, 0, os::kOpenExisting, os::kFileFlagOverlapped);
}

void PrintSummary() {
  std::printf("DevOpenPath: %s\n", g_dev_open_path);
  std::printf("g_bytes_to_rw = %d\n", g_bytes_to_rw);
  std::printf("g_wait_msec_before_cancel = %d\n", g_wait_msec_before_cancel);
  if (!g_datapipe) {
    char text[16];
    const auto dword = [&text](int32_t value) {
      return DwordText(static_cast<uint32_t>(value), text, sizeof text);
    };
    std::printf("g_rto_interval   = %s\n", dword(g_rto_interval));
    std::printf("g_rto_multiplier = %s\n", dword(g_rto_multiplier));
    std::printf("g_rto_constant   = %s\n", dword(g_rto_constant));
    std::printf("g_wto_multiplier = %s\n", dword(g_wto_multiplier));
    std::printf("g_wto_constant   = %s\n", dword(g_wto_constant));
  }
  if (g_in_queue_bytes > 0) std::printf("g_in_queue_bytes = %d\n", g_in_queue_bytes);
  if (g_out_queue_bytes > 0) std::printf("g_out_queue_bytes= %d\n", g_out_queue_bytes);
}

void OpenReadLog(MainLine& line) {
  if (g_read_log_path[0] == '\0') return;
  std::printf("Read logging to file(%s): %s\n", g_read_log_append ? "append" : "clean", g_read_log_path);
  if (!line.read_log.Open(g_read_log_path, g_read_log_append, static_cast<uint32_t>(g_log_buffer_bytes))) {
    std::printf("!!! Error: %s open/create fail!\n", g_read_log_path);
    return;
  }
  SetReadLog(&line.read_log);
}

}  // namespace

bool OpenPort(MainLine& line) {
  if (PrintLessWanted()) g_print_less = true;

  const os::Dword access = os::kGenericRead | (g_readonly ? 0 : os::kGenericWrite);
  line.port = Open(access);
  if (line.port == os::kInvalidHandle) {
    const os::Dword error = os::GetLastError();
    if (error != os::kErrAccessDenied) {
      WinErrPrint(0, "CreateFile('%s') fail.", g_dev_open_path);
      if (error == os::kErrFileNotFound) PathHint(g_dev_open_path);
      return false;
    }
    // Held for writing elsewhere: reading may still be allowed.
    line.port = Open(os::kGenericRead);
    if (line.port == os::kInvalidHandle) {
      WinErrPrint(0, "CreateFile('%s') fail -- even request read-only.", g_dev_open_path);
      return false;
    }
    g_readonly = true;
  }

  if (!g_print_less) PrintSummary();
  OpenReadLog(line);
  if (g_waitcommevent_delay0 != 0) std::printf("g_waitcommevent_delay0 = %u\n", g_waitcommevent_delay0);
  if (g_waitcommevent_delay != 0) std::printf("g_waitcommevent_delay = %u\n", g_waitcommevent_delay);
  if (g_echo_maxbytes64 > 0) std::printf("g_echo_maxbytes64 = %" PRId64 "\n", g_echo_maxbytes64);
  LogTickNow("CreateFile('%s') success. Handle=0x%p %s", g_dev_open_path, line.port,
             g_readonly ? "(read-only!)" : "");
  return true;
}

void ConfigurePort(MainLine& line) {
  if (!g_datapipe) {
    ApplyTimeouts(line.port);
    if (g_baudrate == 0) g_baudrate = kDefaultBaudrate;
    MySetBaudrate(line.port, g_baudrate);
  }
  if (g_in_queue_bytes > 0 || g_out_queue_bytes > 0) {
    WinErrStamp(os::SetupComm(line.port, static_cast<os::Dword>(g_in_queue_bytes),
                              static_cast<os::Dword>(g_out_queue_bytes)),
                "SetupComm fail!");
  }
}

}  // namespace portwren
