// Plain files (and /dev/full) through the Windows file calls, as the log writer uses them.
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "platform/os_file.h"
#include "platform/os_sync.h"
#include "platform_test_util.h"
#include "support/handle_holder.h"

namespace portwren {
namespace {

using namespace os;
using testing_util::TempDir;

std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

bool WriteAll(Handle file, const std::string& text) {
  Dword done = 0;
  return WriteFile(file, text.data(), static_cast<Dword>(text.size()), &done, nullptr) && done == text.size();
}

TEST(RegularFileTest, CreateAlwaysTruncatesAndReportsThatTheFileExisted) {
  TempDir dir;
  const std::string path = dir.File("log.txt");
  {
    HandleHolder file(CreateFileA(path.c_str(), kGenericWrite, kFileShareRead, kCreateAlways, 0));
    ASSERT_TRUE(file);
    EXPECT_EQ(GetLastError(), kErrSuccess);
    ASSERT_TRUE(WriteAll(file.get(), "first run"));
  }
  EXPECT_EQ(Slurp(path), "first run");
  HandleHolder file(CreateFileA(path.c_str(), kGenericWrite, kFileShareRead, kCreateAlways, 0));
  ASSERT_TRUE(file);
  EXPECT_EQ(GetLastError(), kErrAlreadyExists);
  EXPECT_EQ(Slurp(path), "");
}

TEST(RegularFileTest, OpenAlwaysKeepsContentAndAppendsAfterSeekToEnd) {
  TempDir dir;
  const std::string path = dir.File("read.log");
  std::ofstream(path) << "abc";
  HandleHolder file(CreateFileA(path.c_str(), kGenericWrite, kFileShareRead, kOpenAlways, 0));
  ASSERT_TRUE(file);
  EXPECT_EQ(GetLastError(), kErrAlreadyExists);
  EXPECT_EQ(SetFilePointer(file.get(), 0, nullptr, kFileEnd), 3u);
  ASSERT_TRUE(WriteAll(file.get(), "def"));
  // Others may read the file while it is being written.
  EXPECT_EQ(Slurp(path), "abcdef");
}

TEST(RegularFileTest, SeekToStartAndSetEndOfFileEmptiesTheFile) {
  TempDir dir;
  const std::string path = dir.File("cut.log");
  std::ofstream(path) << "old content";
  HandleHolder file(CreateFileA(path.c_str(), kGenericWrite, kFileShareRead, kOpenAlways, 0));
  ASSERT_TRUE(file);
  EXPECT_EQ(SetFilePointer(file.get(), 0, nullptr, kFileBegin), 0u);
  ASSERT_TRUE(SetEndOfFile(file.get()));
  ASSERT_TRUE(WriteAll(file.get(), "new"));
  EXPECT_EQ(Slurp(path), "new");
}

TEST(RegularFileTest, SeekWithHighPartReportsBothHalves) {
  TempDir dir;
  const std::string path = dir.File("big.bin");
  HandleHolder file(CreateFileA(path.c_str(), kGenericRead | kGenericWrite, 0, kCreateAlways, 0));
  ASSERT_TRUE(file);
  int32_t high = 1;
  EXPECT_EQ(SetFilePointer(file.get(), 16, &high, kFileBegin), 16u);  // 4 GiB + 16, sparse
  EXPECT_EQ(high, 1);
  EXPECT_EQ(SetFilePointer(file.get(), 0, nullptr, 9), kInvalidSetFilePointer);
  EXPECT_EQ(GetLastError(), kErrInvalidParameter);
}

TEST(RegularFileTest, OpenFailuresCarryWindowsNumbers) {
  TempDir dir;
  std::ofstream(dir.File("exists")) << "x";
  struct Case {
    std::string path;
    Dword disposition;
    Dword error;
  } cases[] = {
      {dir.File("missing"), kOpenExisting, kErrFileNotFound},
      {dir.File("no-such-dir/file"), kOpenExisting, kErrPathNotFound},
      {dir.File("no-such-dir/file"), kCreateAlways, kErrPathNotFound},
      {dir.File("exists"), kCreateNew, kErrFileExists},
      {dir.path(), kOpenExisting, kErrAccessDenied},
      {dir.File("exists"), 0, kErrInvalidParameter},
      {"", kOpenExisting, kErrPathNotFound},
  };
  for (const Case& c : cases) {
    SetLastError(0);
    EXPECT_EQ(CreateFileA(c.path.c_str(), kGenericRead, 0, c.disposition, 0), kInvalidHandle) << c.path;
    EXPECT_EQ(GetLastError(), c.error) << c.path;
  }
}

TEST(RegularFileTest, WindowsDeviceNamesNameNothing) {
  TempDir dir;
  ASSERT_EQ(chdir(dir.path().c_str()), 0);
  std::ofstream("COM3") << "a file that must not be taken for the port";
  for (const char* name : {"COM3", "com12", "\\\\.\\COM12", "\\\\.\\QDX_Datapipe", "\\\\?\\COM1"}) {
    SetLastError(0);
    EXPECT_EQ(CreateFileA(name, kGenericRead | kGenericWrite, 0, kOpenExisting, kFileFlagOverlapped), kInvalidHandle)
        << name;
    EXPECT_EQ(GetLastError(), kErrFileNotFound) << name;
  }
  ASSERT_EQ(chdir("/"), 0);
}

TEST(RegularFileTest, WriteToAFullDeviceFailsWithDiskFull) {
  HandleHolder full(CreateFileA("/dev/full", kGenericWrite, kFileShareRead, kOpenAlways, 0));
  ASSERT_TRUE(full);
  Dword done = 77;
  EXPECT_FALSE(WriteFile(full.get(), "x", 1, &done, nullptr));
  EXPECT_EQ(GetLastError(), kErrDiskFull);
  EXPECT_EQ(done, 0u);
}

TEST(RegularFileTest, AccessIsCheckedPerHandle) {
  TempDir dir;
  const std::string path = dir.File("ro");
  std::ofstream(path) << "data";
  HandleHolder reader(CreateFileA(path.c_str(), kGenericRead, kFileShareRead, kOpenExisting, 0));
  ASSERT_TRUE(reader);
  EXPECT_FALSE(WriteFile(reader.get(), "x", 1, nullptr, nullptr));
  EXPECT_EQ(GetLastError(), kErrAccessDenied);
  char buffer[8] = {};
  Dword done = 0;
  ASSERT_TRUE(ReadFile(reader.get(), buffer, sizeof buffer, &done, nullptr));
  EXPECT_EQ(std::string(buffer, done), "data");
  ASSERT_TRUE(ReadFile(reader.get(), buffer, sizeof buffer, &done, nullptr));  // end of file: success, 0
  EXPECT_EQ(done, 0u);
}

TEST(RegularFileTest, OverlappedHandleUsesTheOffsetAndCompletesInTheCall) {
  TempDir dir;
  const std::string path = dir.File("ov.bin");
  std::ofstream(path) << "0123456789";
  HandleHolder file(CreateFileA(path.c_str(), kGenericRead, 0, kOpenExisting, kFileFlagOverlapped));
  ASSERT_TRUE(file);
  EventHolder event(CreateEventA(true, false));
  Overlapped overlapped;
  overlapped.hEvent = event.get();
  overlapped.Offset = 6;
  char buffer[16] = {};
  Dword done = 0;
  ASSERT_TRUE(ReadFile(file.get(), buffer, sizeof buffer, &done, &overlapped));
  EXPECT_EQ(std::string(buffer, done), "6789");
  EXPECT_EQ(WaitForSingleObject(event.get(), 0), kWaitObject0);
  Dword again = 0;
  ASSERT_TRUE(GetOverlappedResult(file.get(), &overlapped, &again, false));
  EXPECT_EQ(again, 4u);

  overlapped.Offset = 10;
  EXPECT_FALSE(ReadFile(file.get(), buffer, sizeof buffer, &done, &overlapped));
  EXPECT_EQ(GetLastError(), kErrHandleEof);
  EXPECT_FALSE(ReadFile(file.get(), buffer, sizeof buffer, &done, nullptr));
  EXPECT_EQ(GetLastError(), kErrInvalidParameter);
}

TEST(RegularFileTest, WideNameOpensTheSameFile) {
  TempDir dir;
  const std::string path = dir.File("caf\xC3\xA9.log");  // café, UTF-8
  std::ofstream(path) << "wide";
  std::u16string wide(dir.path().begin(), dir.path().end());
  wide += u"/caf\u00E9.log";
  HandleHolder file(CreateFileW(wide.c_str(), kGenericRead, 0, kOpenExisting, 0));
  ASSERT_TRUE(file);
  char buffer[8] = {};
  Dword done = 0;
  ASSERT_TRUE(ReadFile(file.get(), buffer, sizeof buffer, &done, nullptr));
  EXPECT_EQ(std::string(buffer, done), "wide");
  const char16_t broken[] = {u'a', 0xD800, 0};
  EXPECT_EQ(CreateFileW(broken, kGenericRead, 0, kOpenExisting, 0), kInvalidHandle);
  EXPECT_EQ(GetLastError(), kErrInvalidName);
}

}  // namespace
}  // namespace portwren
