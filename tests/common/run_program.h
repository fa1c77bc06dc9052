// Runs a program as a child process: arguments, extra environment, bytes on standard input;
// captures standard output and standard error apart, the exit code, and kills it at a time limit.
// Also runs the Windows build under Wine in a throwaway prefix shared by every test of a build tree.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace portwren::testkit {

struct ProcessOptions {
  std::vector<std::pair<std::string, std::string>> env;  // set in the child's environment
  std::vector<std::string> env_unset;                    // removed from the child's environment
  std::optional<std::string> stdin_bytes;                // fed through a pipe, which is then closed
  int stdin_fd = -1;                                     // this descriptor instead; with neither, /dev/null
  std::vector<int> closed_fds;                           // standard streams the child starts without
  std::chrono::milliseconds timeout{20000};              // the child is killed after this long
  std::string working_dir;                               // the child starts here; empty: ours
  // Each piece of standard output as it arrives, on the thread that runs the child; for tests that
  // act on what a running program printed. The pieces still end up in ProcessResult::out.
  std::function<void(const std::string& piece)> on_out;
};

struct ProcessResult {
  bool started = false;  // false: `error` says why nothing ran
  std::string error;
  std::string out;
  std::string err;
  int exit_code = -1;  // -1 unless the program exited by itself
  int term_signal = 0;
  bool timed_out = false;
};

// `program` is a path, or a name looked up on PATH.
ProcessResult RunProcess(const std::string& program, const std::vector<std::string>& args,
                         const ProcessOptions& options = {});

// CR LF becomes LF (the Windows C runtime writes "\n" as CR LF in text mode).
std::string NormalizeLineEnds(const std::string& text);

// The native build of portwren.
ProcessResult RunPortwren(const std::vector<std::string>& args, const ProcessOptions& options = {});

// True when the build has a Windows exe for the Wine runs.
bool WindowsBuildConfigured();
// Why the Wine runs cannot happen (no exe configured, exe missing, no wine), or empty when they can.
std::string WineUnavailableReason();
// The prefix of the Wine runs; its dosdevices folder maps COM ports to pseudo-terminals.
std::string WinePrefixDir();
// Creates the prefix when it is missing; empty, or why the Wine runs cannot happen.
std::string PrepareWinePrefix();
// Runs the Windows build under Wine. The first call in a build tree creates the prefix, which takes
// tens of seconds; concurrent test processes wait for it. On failure `started` is false.
ProcessResult RunPortwrenUnderWine(const std::vector<std::string>& args, ProcessOptions options = {});

}  // namespace portwren::testkit
