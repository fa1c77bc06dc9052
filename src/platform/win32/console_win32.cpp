// Console keys on Windows: the runtime's _getch/_kbhit on a console; piped or redirected
// input goes through the same byte rules as on POSIX.
#include <conio.h>

#include <cstdio>
#include <mutex>

#include "platform/console_keys.h"
#include "platform/console_pump.h"
#include "platform/os_console.h"
#include "platform/win32/windows_proxy.h"

namespace portwren::os {

namespace {

HANDLE StandardInput() {
  const HANDLE handle = ::GetStdHandle(STD_INPUT_HANDLE);
  return handle == INVALID_HANDLE_VALUE ? nullptr : handle;
}

long ReadHandle(HANDLE handle, unsigned char* buffer, size_t size) {
  DWORD got = 0;
  if (handle == nullptr || !::ReadFile(handle, buffer, static_cast<DWORD>(size), &got, nullptr)) return -1;
  return static_cast<long>(got);
}

struct Console {
  Console()
      : handle(StandardInput()),
        stream([this](unsigned char* buffer, size_t size) { return ReadHandle(handle, buffer, size); }),
        keys(stream) {
    DWORD mode = 0;
    is_console = handle != nullptr && ::GetConsoleMode(handle, &mode) != 0;
  }

  HANDLE handle;
  bool is_console = false;
  PumpedStream stream;
  StreamKeys keys;
};

std::mutex g_mutex;

// Never destroyed: the pump may still be in ReadFile when the process ends.
Console& TheConsole() {
  static Console* console = new Console;
  return *console;
}

// A console line through the runtime (the console edits and echoes it), as the prompts have
// always read it.
bool ReadConsoleLine(char* buffer, int capacity) {
  if (buffer == nullptr || capacity < 1) return false;
  int length = 0;
  bool got_any = false;
  int c;
  while ((c = std::fgetc(stdin)) != EOF) {
    got_any = true;
    if (c == '\n') break;
    if (c != '\r' && length < capacity - 1) buffer[length++] = static_cast<char>(c);
  }
  buffer[length] = '\0';
  return got_any;
}

}  // namespace

int GetKey() {
  std::fflush(stdout);
  std::lock_guard<std::mutex> lock(g_mutex);
  Console& console = TheConsole();
  return console.is_console ? _getch() : console.keys.GetKey();
}

bool KeyWaiting() {
  std::lock_guard<std::mutex> lock(g_mutex);
  Console& console = TheConsole();
  return console.is_console ? _kbhit() != 0 : console.keys.KeyWaiting();
}

bool KeyInputEnded() {
  std::lock_guard<std::mutex> lock(g_mutex);
  Console& console = TheConsole();
  return !console.is_console && console.keys.Ended();
}

bool ReadLine(char* buffer, int capacity) {
  std::fflush(stdout);
  std::lock_guard<std::mutex> lock(g_mutex);
  Console& console = TheConsole();
  return console.is_console ? ReadConsoleLine(buffer, capacity) : console.keys.ReadLine(buffer, capacity);
}

void RestoreConsole() {}

}  // namespace portwren::os
