#include "common/run_program.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>

extern char** environ;

namespace portwren::testkit {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// How long to keep reading after the child ended, for output still held by its own children.
constexpr milliseconds kDrainAfterExit{2000};
// Creating a Wine prefix takes 10 to 30 seconds on a quiet machine.
constexpr milliseconds kWinePrefixTimeout{240000};

void IgnoreSigpipe() {
  static std::once_flag once;
  std::call_once(once, [] { std::signal(SIGPIPE, SIG_IGN); });
}

std::vector<std::string> ChildEnvironment(const ProcessOptions& options) {
  std::vector<std::string> env;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text(*entry);
    const std::string name = text.substr(0, text.find('='));
    bool keep = true;
    for (const auto& unset : options.env_unset) keep = keep && unset != name;
    for (const auto& [key, value] : options.env) keep = keep && key != name;
    if (keep) env.push_back(text);
  }
  for (const auto& [key, value] : options.env) env.push_back(key + "=" + value);
  return env;
}

std::vector<char*> NullTerminated(std::vector<std::string>& strings) {
  std::vector<char*> pointers;
  for (auto& s : strings) pointers.push_back(s.data());
  pointers.push_back(nullptr);
  return pointers;
}

void CloseFd(int& fd) {
  if (fd >= 0) close(fd);
  fd = -1;
}

void SetNonBlocking(int fd) {
  fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
}

// Reads what is there; closes the descriptor at end of file.
void ReadAvailable(int& fd, std::string* into) {
  char chunk[4096];
  for (;;) {
    const ssize_t n = read(fd, chunk, sizeof chunk);
    if (n > 0) {
      into->append(chunk, static_cast<size_t>(n));
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
    CloseFd(fd);
    return;
  }
}

struct Pipe {
  int read_end = -1;
  int write_end = -1;
  bool Open() {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return false;
    read_end = fds[0];
    write_end = fds[1];
    return true;
  }
  void Close() {
    CloseFd(read_end);
    CloseFd(write_end);
  }
};

std::filesystem::path BuildTreeDir() {
  // PORTWREN_EXE is <build>/src/portwren.
  return std::filesystem::path(PORTWREN_EXE).parent_path().parent_path();
}

void AddWineEnvironment(ProcessOptions* options) {
  options->env.emplace_back("WINEPREFIX", WinePrefixDir());
  options->env.emplace_back("WINEDEBUG", "-all");
  // No Mono or Gecko install prompts, no desktop menu entries, and no mount manager: at every
  // start it maps each /dev/ttyS* to a COM port (COM1 is this machine's own console). Only the
  // tests map COM ports.
  options->env.emplace_back("WINEDLLOVERRIDES", "mscoree,mshtml,winemenubuilder.exe=;mountmgr.sys=d");
  options->env_unset.push_back("DISPLAY");
  options->env_unset.push_back("WAYLAND_DISPLAY");
}

// The COM ports the prefix maps, each after a space.
std::string ComPortsOf(const std::filesystem::path& prefix) {
  std::string ports;
  std::error_code ec;
  for (const auto& entry : std::filesystem::directory_iterator(prefix / "dosdevices", ec)) {
    const std::string name = entry.path().filename().string();
    if (name.starts_with("com")) ports += " " + name;
  }
  return ports;
}

// Creates the shared prefix once per build tree; the lock makes other test processes wait for it.
std::string EnsureWinePrefix(const std::string& wine) {
  static std::mutex mutex;
  static bool ready = false;
  const std::lock_guard<std::mutex> guard(mutex);
  if (ready) return "";

  const std::filesystem::path prefix = WinePrefixDir();
  std::error_code ec;
  std::filesystem::create_directories(prefix.parent_path(), ec);
  const std::string lock_path = prefix.string() + ".lock";
  int lock_fd = open(lock_path.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0644);
  if (lock_fd < 0) return "cannot open " + lock_path + ": " + std::strerror(errno);
  while (flock(lock_fd, LOCK_EX) != 0 && errno == EINTR) {
  }

  std::string error;
  // A prefix from before the mount manager was left out maps COM1: it is made anew.
  const std::filesystem::path marker = prefix / ".portwren-ready-2";
  if (!std::filesystem::exists(marker, ec)) {
    std::filesystem::remove_all(prefix, ec);
    ProcessOptions options;
    AddWineEnvironment(&options);
    options.timeout = kWinePrefixTimeout;
    const ProcessResult boot = RunProcess(wine, {"wineboot", "--init"}, options);
    if (!boot.started) {
      error = "wineboot did not start: " + boot.error;
    } else if (boot.timed_out || boot.exit_code != 0) {
      error = "wineboot --init failed (exit " + std::to_string(boot.exit_code) +
              (boot.timed_out ? ", timed out" : "") + "): " + boot.err;
    } else if (const std::string ports = ComPortsOf(prefix); !ports.empty()) {
      error = "the new prefix maps COM ports of its own:" + ports;
    } else {
      const int marker_fd = open(marker.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644);
      if (marker_fd >= 0) close(marker_fd);
    }
  }
  flock(lock_fd, LOCK_UN);
  close(lock_fd);
  ready = error.empty();
  return error;
}

std::string FindOnPath(const std::string& name) {
  const char* path = std::getenv("PATH");
  if (path == nullptr) return "";
  const std::string dirs(path);
  for (size_t start = 0; start <= dirs.size();) {
    size_t end = dirs.find(':', start);
    if (end == std::string::npos) end = dirs.size();
    const std::string dir = end > start ? dirs.substr(start, end - start) : ".";
    const std::string candidate = dir + "/" + name;
    struct stat st;
    if (stat(candidate.c_str(), &st) == 0 && S_ISREG(st.st_mode) && access(candidate.c_str(), X_OK) == 0) {
      return candidate;
    }
    start = end + 1;
  }
  return "";
}

// In the sanitizer builds a finding in a child fails the test that ran it, whatever exit code the
// test expects: AddressSanitizer's exit code is 1, the same as a refused command line.
void ExpectNoSanitizerReport(const std::string& program, const std::string& err) {
  for (const char* report :
       {"ERROR: AddressSanitizer", "ERROR: LeakSanitizer", "WARNING: ThreadSanitizer", ": runtime error: "}) {
    if (err.find(report) != std::string::npos) {
      ADD_FAILURE() << program << " reported a sanitizer finding:\n" << err;
      return;
    }
  }
}

}  // namespace

std::string NormalizeLineEnds(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') continue;
    out.push_back(text[i]);
  }
  return out;
}

ProcessResult RunProcess(const std::string& program, const std::vector<std::string>& args,
                         const ProcessOptions& options) {
  ProcessResult result;
  IgnoreSigpipe();
  const std::string path = program.find('/') == std::string::npos ? FindOnPath(program) : program;
  if (path.empty()) {
    result.error = "not found on PATH: " + program;
    return result;
  }
  // Checked before the fork, so that a program that cannot run is an error rather than an exit code.
  if (access(path.c_str(), X_OK) != 0) {
    result.error = "cannot run " + path + ": " + std::strerror(errno);
    return result;
  }

  // Everything the child needs is built before fork: only async-signal-safe calls after it.
  std::vector<std::string> argv_strings{program};
  argv_strings.insert(argv_strings.end(), args.begin(), args.end());
  std::vector<std::string> env_strings = ChildEnvironment(options);
  std::vector<char*> child_argv = NullTerminated(argv_strings);
  std::vector<char*> child_env = NullTerminated(env_strings);
  const std::string working_dir = options.working_dir;

  Pipe out, err, in;
  int null_fd = -1;
  const bool feed_stdin = options.stdin_fd < 0 && options.stdin_bytes.has_value();
  const bool null_stdin = options.stdin_fd < 0 && !feed_stdin;
  if (!out.Open() || !err.Open() || (feed_stdin && !in.Open()) ||
      (null_stdin && (null_fd = open("/dev/null", O_RDONLY | O_CLOEXEC)) < 0)) {
    result.error = std::string("pipe setup failed: ") + std::strerror(errno);
    out.Close(), err.Close(), in.Close(), CloseFd(null_fd);
    return result;
  }
  const int stdin_source = options.stdin_fd >= 0 ? options.stdin_fd : feed_stdin ? in.read_end : null_fd;

  const pid_t pid = fork();
  if (pid == 0) {
    setpgid(0, 0);  // its own group, so that a kill at the time limit reaches its children too
    if (!working_dir.empty() && chdir(working_dir.c_str()) != 0) _exit(126);
    dup2(stdin_source, 0);
    dup2(out.write_end, 1);
    dup2(err.write_end, 2);
    for (const int fd : options.closed_fds) close(fd);
    execve(path.c_str(), child_argv.data(), child_env.data());
    _exit(127);
  }
  CloseFd(out.write_end);
  CloseFd(err.write_end);
  CloseFd(in.read_end);
  CloseFd(null_fd);
  if (pid < 0) {
    result.error = std::string("fork failed: ") + std::strerror(errno);
    out.Close(), err.Close(), in.Close();
    return result;
  }
  result.started = true;

  int out_fd = out.read_end, err_fd = err.read_end, in_fd = in.write_end;
  SetNonBlocking(out_fd);
  SetNonBlocking(err_fd);
  size_t stdin_written = 0;
  const std::string stdin_text = options.stdin_bytes.value_or("");
  if (in_fd >= 0) {
    SetNonBlocking(in_fd);
    if (stdin_text.empty()) CloseFd(in_fd);
  }

  const Clock::time_point deadline = Clock::now() + options.timeout;
  Clock::time_point ended_at{};
  bool ended = false;
  int status = 0;
  for (;;) {
    if (!ended && waitpid(pid, &status, WNOHANG) == pid) {
      ended = true;
      ended_at = Clock::now();
    }
    const Clock::time_point now = Clock::now();
    if (ended && ((out_fd < 0 && err_fd < 0) || now - ended_at > kDrainAfterExit)) break;
    if (!ended && now >= deadline) {
      kill(-pid, SIGKILL);
      kill(pid, SIGKILL);
      while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
      }
      result.timed_out = true;
      ended = true;
      ended_at = Clock::now();
      CloseFd(in_fd);
      continue;
    }

    pollfd fds[3];
    int count = 0;
    for (int fd : {out_fd, err_fd}) {
      if (fd >= 0) fds[count++] = pollfd{fd, POLLIN, 0};
    }
    if (in_fd >= 0) fds[count++] = pollfd{in_fd, POLLOUT, 0};
    poll(fds, static_cast<nfds_t>(count), 20);
    for (int i = 0; i < count; ++i) {
      if (fds[i].revents == 0) continue;
      if (fds[i].fd == out_fd) {
        const size_t before = result.out.size();
        ReadAvailable(out_fd, &result.out);
        if (options.on_out && result.out.size() > before) options.on_out(result.out.substr(before));
      } else if (fds[i].fd == err_fd) {
        ReadAvailable(err_fd, &result.err);
      } else if (fds[i].fd == in_fd) {
        const ssize_t n = write(in_fd, stdin_text.data() + stdin_written, stdin_text.size() - stdin_written);
        if (n > 0) stdin_written += static_cast<size_t>(n);
        if ((n < 0 && errno != EAGAIN && errno != EINTR) || stdin_written == stdin_text.size())
          CloseFd(in_fd);
      }
    }
  }
  CloseFd(out_fd);
  CloseFd(err_fd);
  CloseFd(in_fd);

  if (result.timed_out) {
    result.term_signal = SIGKILL;
  } else if (WIFEXITED(status)) {
    result.exit_code = WEXITSTATUS(status);
  } else if (WIFSIGNALED(status)) {
    result.term_signal = WTERMSIG(status);
  }
  ExpectNoSanitizerReport(program, result.err);
  return result;
}

ProcessResult RunPortwren(const std::vector<std::string>& args, const ProcessOptions& options) {
  return RunProcess(PORTWREN_EXE, args, options);
}

bool WindowsBuildConfigured() {
  return std::string(PORTWREN_WIN_EXE).size() > 0;
}

std::string WineUnavailableReason() {
  const std::string exe = PORTWREN_WIN_EXE;
  if (exe.empty()) return "no Windows build configured (PORTWREN_WIN_EXE is empty)";
  if (access(exe.c_str(), R_OK) != 0) return "the Windows build is missing: " + exe;
  if (FindOnPath("wine").empty()) return "wine is not on PATH";
  return "";
}

std::string WinePrefixDir() {
  return (BuildTreeDir() / "tests" / "wine-prefix").string();
}

std::string PrepareWinePrefix() {
  const std::string reason = WineUnavailableReason();
  return reason.empty() ? EnsureWinePrefix(FindOnPath("wine")) : reason;
}

ProcessResult RunPortwrenUnderWine(const std::vector<std::string>& args, ProcessOptions options) {
  ProcessResult result;
  result.error = WineUnavailableReason();
  if (!result.error.empty()) return result;
  const std::string wine = FindOnPath("wine");
  result.error = EnsureWinePrefix(wine);
  if (!result.error.empty()) return result;

  AddWineEnvironment(&options);
  std::vector<std::string> wine_args{PORTWREN_WIN_EXE};
  wine_args.insert(wine_args.end(), args.begin(), args.end());
  return RunProcess(wine, wine_args, options);
}

}  // namespace portwren::testkit
