// The program's console: standard input, made on first use and kept until the process ends.
// A terminal is put back into its own mode at exit and on the signals that end or stop us.
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <mutex>

#include "platform/os_console.h"
#include "platform/posix/console_posix.h"

namespace portwren::os {

namespace {

std::mutex g_mutex;
PosixConsole* g_console = nullptr;  // set once, before any handler that reads it

constexpr int kEndingSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

void RestoreAtExit() {
  g_console->Restore();
}

void OnEndingSignal(int signal_number) {
  g_console->Restore();
  raise(signal_number);  // the default action again (SA_RESETHAND), so the exit status tells it
}

void OnStopSignal(int);

void SetHandler(int signal_number, void (*handler)(int), int flags) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = flags;
  sigemptyset(&action.sa_mask);
  sigaction(signal_number, &action, nullptr);
}

// Ctrl+Z: give the shell its terminal mode while we are stopped, take single keys back after.
void OnStopSignal(int) {
  const int saved_errno = errno;
  const bool was_key_mode = g_console->InKeyMode();
  g_console->Restore();
  SetHandler(SIGTSTP, SIG_DFL, 0);
  sigset_t stop;
  sigemptyset(&stop);
  sigaddset(&stop, SIGTSTP);
  sigprocmask(SIG_UNBLOCK, &stop, nullptr);
  raise(SIGTSTP);  // stops here until SIGCONT
  SetHandler(SIGTSTP, OnStopSignal, SA_RESTART);
  if (was_key_mode) g_console->EnterKeyMode();
  errno = saved_errno;
}

// Only where the disposition is still the default: an ignored SIGHUP (nohup) stays ignored,
// and a handler someone else set stays theirs.
bool IsDefault(int signal_number) {
  struct sigaction old {};
  if (sigaction(signal_number, nullptr, &old) != 0) return false;
  return (old.sa_flags & SA_SIGINFO) == 0 && old.sa_handler == SIG_DFL;
}

PosixConsole& Console() {
  if (g_console == nullptr) {
    g_console = new PosixConsole(STDIN_FILENO);
    if (g_console->IsTerminal()) {
      std::atexit(RestoreAtExit);
      for (const int signal_number : kEndingSignals) {
        if (IsDefault(signal_number)) SetHandler(signal_number, OnEndingSignal, SA_RESETHAND | SA_NODEFER);
      }
      if (IsDefault(SIGTSTP)) SetHandler(SIGTSTP, OnStopSignal, SA_RESTART);
    }
  }
  return *g_console;
}

}  // namespace

int GetKey() {
  std::fflush(stdout);
  std::lock_guard<std::mutex> lock(g_mutex);
  return Console().GetKey();
}

bool KeyWaiting() {
  std::lock_guard<std::mutex> lock(g_mutex);
  return Console().KeyWaiting();
}

bool KeyInputEnded() {
  std::lock_guard<std::mutex> lock(g_mutex);
  return Console().InputEnded();
}

bool ReadLine(char* buffer, int capacity) {
  std::fflush(stdout);
  std::lock_guard<std::mutex> lock(g_mutex);
  return Console().ReadLine(buffer, capacity);
}

void RestoreConsole() {
  std::lock_guard<std::mutex> lock(g_mutex);
  if (g_console != nullptr) g_console->Restore();
}

}  // namespace portwren::os
