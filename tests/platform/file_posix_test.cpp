// What only POSIX gives: a closed standard stream is taken by /dev/null before anything else can
// land on it, every descriptor the backend opens is close-on-exec, a full disk, and names that
// cannot be converted.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>
#include <string>
#include <vector>

#include "common/pipe.h"
#include "common/pty_pair.h"
#include "platform/os_console.h"
#include "platform/os_file.h"
#include "platform_test_util.h"
#include "support/handle_holder.h"

namespace portwren::os {
namespace {

// What a descriptor is: its target and access mode, "-" when closed. Async-signal-safe enough
// for a forked child of a test (no locks are held across the fork).
std::string Describe(int fd) {
  const int flags = fcntl(fd, F_GETFL);
  if (flags < 0) return "-";
  char target[256] = {};
  const std::string link = "/proc/self/fd/" + std::to_string(fd);
  const ssize_t length = readlink(link.c_str(), target, sizeof target - 1);
  const int mode = flags & O_ACCMODE;
  const bool cloexec = (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0;
  return std::string(target, length > 0 ? static_cast<size_t>(length) : 0) +
         (mode == O_RDONLY   ? " r"
          : mode == O_WRONLY ? " w"
                             : " rw") +
         (cloexec ? " cloexec" : "");
}

// Everything until every writer has closed its end.
std::string ReadAll(const testkit::Pipe& pipe) {
  std::string all;
  unsigned char chunk[256];
  for (long got; (got = pipe.Read(chunk, sizeof chunk)) > 0;) all.append(chunk, chunk + got);
  return all;
}

TEST(Descriptors, ClosedStandardStreamsAreTakenByDevNullAndOpenOnesStay) {
  const std::vector<std::string> before{Describe(0), Describe(1), Describe(2)};
  for (const std::vector<int>& closed : {std::vector<int>{}, {0}, {1}, {2}, {0, 2}, {0, 1, 2}}) {
    testkit::Pipe report;
    std::vector<std::string> expected = before;
    for (const int fd : closed) expected[static_cast<size_t>(fd)] = fd == 0 ? "/dev/null r" : "/dev/null w";

    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      for (const int fd : closed) close(fd);
      const bool occupied = OccupyClosedStandardStreams();
      const std::string seen =
          std::string(occupied ? "ok" : "failed") + "|" + Describe(0) + "|" + Describe(1) + "|" + Describe(2);
      report.Write(seen);
      _exit(0);
    }
    report.CloseWriter();
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(ReadAll(report), "ok|" + expected[0] + "|" + expected[1] + "|" + expected[2])
        << closed.size() << " closed";
  }
}

std::set<int> OpenDescriptors() {
  std::set<int> fds;
  if (DIR* dir = opendir("/proc/self/fd")) {
    while (const dirent* entry = readdir(dir)) {
      if (entry->d_name[0] != '.') fds.insert(std::stoi(entry->d_name));
    }
    closedir(dir);  // its own descriptor is gone again before the next look
  }
  return fds;
}

// A port holds its descriptor and a wake-up event, a file its descriptor: none may leak into a
// program started later.
TEST(Descriptors, EveryDescriptorTheBackendOpensIsCloseOnExec) {
  testkit::PtyPair pty;
  ASSERT_TRUE(pty.ok());
  testing_util::TempDir dir;
  const std::set<int> before = OpenDescriptors();
  HandleHolder port(CreateFileA(pty.slave_path().c_str(), kGenericRead | kGenericWrite, 0, kOpenExisting,
                                kFileFlagOverlapped));
  HandleHolder file(CreateFileA(dir.File("log").c_str(), kGenericWrite, kFileShareRead, kCreateAlways,
                                kFileAttributeNormal));
  ASSERT_NE(port.get(), kInvalidHandle);
  ASSERT_NE(file.get(), kInvalidHandle);
  int opened = 0;
  for (const int fd : OpenDescriptors()) {
    if (before.count(fd) != 0) continue;
    ++opened;
    EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0) << Describe(fd);
  }
  EXPECT_GE(opened, 3) << "the port's descriptor and event and the file's descriptor";
}

TEST(FilePosix, AFullDiskAndANameWithALoneSurrogateFailWithTheirWindowsNumbers) {
  HandleHolder full(CreateFileA("/dev/full", kGenericWrite, kFileShareRead, kOpenAlways, 0));
  ASSERT_TRUE(full);
  Dword done = 77;
  EXPECT_FALSE(WriteFile(full.get(), "x", 1, &done, nullptr));
  EXPECT_EQ(GetLastError(), kErrDiskFull);
  EXPECT_EQ(done, 0u);
  // Windows keeps a lone surrogate in a name; a POSIX file system has no UTF-8 for it.
  const char16_t broken[] = {u'a', 0xD800, 0};
  EXPECT_EQ(CreateFileW(broken, kGenericRead, 0, kOpenExisting, 0), kInvalidHandle);
  EXPECT_EQ(GetLastError(), kErrInvalidName);
}

}  // namespace
}  // namespace portwren::os
