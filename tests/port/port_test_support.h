// Shared by the port tests: a port opened on a pseudo-terminal whose far end the test holds,
// settings and counters put back to a known state, and console output captured with its time
// stamps scrubbed, so whole transcripts can be compared.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <functional>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "common/pty_pair.h"
#include "format/format.h"
#include "format/thread_mark.h"
#include "platform/os_file.h"
#include "platform/os_serial.h"
#include "port/timed_io.h"
#include "port/transfer_buffer.h"
#include "support/run_settings.h"

namespace portwren::porttest {

// Tick stamps become [T], date stamps [D] or, with milliseconds, [D.ms].
inline std::string Scrub(const std::string& text) {
  static const std::regex tick(R"(\[\d+\.\d{3}\])");
  static const std::regex date_ms(R"(\[\d{4}-\d{2}-\d{2}_\d{2}:\d{2}:\d{2}\.\d{3}\])");
  static const std::regex date(R"(\[\d{4}-\d{2}-\d{2}_\d{2}:\d{2}:\d{2}\])");
  std::string out = std::regex_replace(text, tick, "[T]");
  out = std::regex_replace(out, date_ms, "[D.ms]");
  return std::regex_replace(out, date, "[D]");
}

inline std::string Captured(const std::function<void()>& body) {
  std::fflush(stdout);
  testing::internal::CaptureStdout();
  body();
  std::fflush(stdout);
  return Scrub(testing::internal::GetCapturedStdout());
}

class PortTest : public testing::Test {
 protected:
  void SetUp() override {
    ResetRunSettings();
    ResetTransferCounters();
    SetReadLog(nullptr);
    SetFormatLineEnd(1);
    RegisterThread(ThreadRole::kMain);
    g_wait_msec_before_cancel = 200;
    ASSERT_TRUE(pty_.ok());
    port_ = os::CreateFileA(pty_.slave_path().c_str(), os::kGenericRead | os::kGenericWrite, 0,
                            os::kOpenExisting, os::kFileFlagOverlapped);
    ASSERT_NE(port_, os::kInvalidHandle) << "open " << pty_.slave_path() << ": " << os::GetLastError();
    // As start-up does.
    os::Dcb dcb;
    ASSERT_TRUE(os::GetCommState(port_, &dcb));
    dcb.BaudRate = 115200;
    ASSERT_TRUE(os::SetCommState(port_, &dcb)) << os::GetLastError();
  }

  void TearDown() override {
    if (port_ != os::kInvalidHandle) os::CloseHandle(port_);
    UnregisterThread(ThreadRole::kMain);
    SetFormatLineEnd(0);
    SetReadLog(nullptr);
    ResetRunSettings();
  }

  os::Dword InQueue() {
    os::ComStat stat;
    return os::ClearCommError(port_, nullptr, &stat) ? stat.cbInQue : 0;
  }

  // Sends bytes from the far end and waits until the port holds all of them.
  bool Arrive(const std::string& bytes) {
    const os::Dword before = InQueue();
    if (!pty_.WriteFar(bytes)) return false;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (InQueue() < before + bytes.size()) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
  }

  void SetTimeouts(os::Dword interval, os::Dword multiplier, os::Dword constant) {
    os::CommTimeouts timeouts;
    timeouts.ReadIntervalTimeout = interval;
    timeouts.ReadTotalTimeoutMultiplier = multiplier;
    timeouts.ReadTotalTimeoutConstant = constant;
    ASSERT_TRUE(os::SetCommTimeouts(port_, &timeouts));
  }

  // The port's five timeouts: read interval, multiplier, constant; write multiplier, constant.
  std::vector<os::Dword> Timeouts() {
    os::CommTimeouts t;
    EXPECT_TRUE(os::GetCommTimeouts(port_, &t));
    return {t.ReadIntervalTimeout, t.ReadTotalTimeoutMultiplier, t.ReadTotalTimeoutConstant,
            t.WriteTotalTimeoutMultiplier, t.WriteTotalTimeoutConstant};
  }

  os::Dcb State() {
    os::Dcb dcb;
    EXPECT_TRUE(os::GetCommState(port_, &dcb));
    return dcb;
  }

  testkit::PtyPair pty_;
  os::Handle port_ = os::kInvalidHandle;
};

}  // namespace portwren::porttest
