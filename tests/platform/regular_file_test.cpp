// Plain files through the Windows file calls, as the log writer uses them.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "common/wine_differences.h"
#include "platform/os_file.h"
#include "platform/os_sync.h"
#include "platform_test_util.h"
#include "support/handle_holder.h"

namespace portwren {
namespace {

using namespace os;

class RegularFileTest : public ::testing::Test {
 protected:
  // The test's file, made with content first unless content is null.
  Handle Open(const char* content, Dword access, Dword disposition, Dword flags = 0) {
    if (content != nullptr) std::ofstream(path) << content;
    return CreateFileA(path.c_str(), access, kFileShareRead, disposition, flags);
  }
  std::string Content() const {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
  }
  static bool WriteAll(Handle file, const std::string& text) {
    Dword done = 0;
    return WriteFile(file, text.data(), static_cast<Dword>(text.size()), &done, nullptr) &&
           done == text.size();
  }
  static std::string ReadSome(Handle file) {
    char buffer[16];
    Dword done = 0;
    return ReadFile(file, buffer, sizeof buffer, &done, nullptr) ? std::string(buffer, done) : "<failed>";
  }

  testing_util::TempDir dir;
  std::string path = dir.File("log.txt");
};

TEST_F(RegularFileTest, DispositionsSeeksAndAccessPerHandle) {
  {
    HandleHolder file(Open(nullptr, kGenericWrite, kCreateAlways));
    ASSERT_TRUE(file);
    EXPECT_EQ(GetLastError(), kErrSuccess);
    ASSERT_TRUE(WriteAll(file.get(), "first run"));
    EXPECT_EQ(Content(), "first run");  // others may read the file while it is being written
  }
  HandleHolder again(Open(nullptr, kGenericWrite, kCreateAlways));
  EXPECT_EQ(GetLastError(), kErrAlreadyExists);
  EXPECT_EQ(Content(), "");
  again.reset();
  {
    HandleHolder file(Open("abc", kGenericWrite, kOpenAlways));
    ASSERT_TRUE(file);
    EXPECT_EQ(GetLastError(), kErrAlreadyExists);
    EXPECT_EQ(SetFilePointer(file.get(), 0, nullptr, kFileEnd), 3u);
    ASSERT_TRUE(WriteAll(file.get(), "def"));
    EXPECT_EQ(Content(), "abcdef");
    EXPECT_EQ(SetFilePointer(file.get(), 0, nullptr, kFileBegin), 0u);
    ASSERT_TRUE(SetEndOfFile(file.get()));
    ASSERT_TRUE(WriteAll(file.get(), "new"));
    EXPECT_EQ(Content(), "new");
  }
  HandleHolder reader(Open(nullptr, kGenericRead, kOpenExisting));
  ASSERT_TRUE(reader);
  EXPECT_FALSE(WriteFile(reader.get(), "x", 1, nullptr, nullptr));
  EXPECT_EQ(GetLastError(), kErrAccessDenied);
  EXPECT_EQ(ReadSome(reader.get()), "new");
  EXPECT_EQ(ReadSome(reader.get()), "");  // end of file: success, 0
  int32_t high = 1;
  EXPECT_EQ(SetFilePointer(reader.get(), 16, &high, kFileBegin), 16u);  // 4 GiB + 16
  EXPECT_EQ(high, 1);
  EXPECT_EQ(SetFilePointer(reader.get(), 0, nullptr, 9), kInvalidSetFilePointer);
  EXPECT_EQ(GetLastError(), kErrInvalidParameter);
}

TEST_F(RegularFileTest, OpenFailuresCarryWindowsNumbers) {
  std::ofstream(path) << "x";
  const struct {
    std::string path;
    Dword disposition;
    Dword error;
  } cases[] = {
      {dir.File("missing"), kOpenExisting, kErrFileNotFound},
      {dir.File("no-such-dir/file"), kOpenExisting, kErrPathNotFound},
      {dir.File("no-such-dir/file"), kCreateAlways, kErrPathNotFound},
      {path, kCreateNew, kErrFileExists},
      {dir.path(), kOpenExisting, kErrAccessDenied},
      {path, 0, kErrInvalidParameter},
      {"", kOpenExisting, kErrPathNotFound},
  };
  for (const auto& c : cases) {
    SetLastError(0);
    EXPECT_EQ(CreateFileA(c.path.c_str(), kGenericRead, 0, c.disposition, 0), kInvalidHandle) << c.path;
    EXPECT_EQ(GetLastError(), c.error) << c.path;
  }
}

TEST_F(RegularFileTest, OverlappedHandleUsesTheOffsetAndCompletesInTheCall) {
  HandleHolder file(Open("0123456789", kGenericRead, kOpenExisting, kFileFlagOverlapped));
  ASSERT_TRUE(file);
  EventHolder event(CreateEventA(true, false));
  Overlapped overlapped;
  overlapped.hEvent = event.get();
  overlapped.Offset = 6;
  char buffer[16] = {};
  Dword done = 0;
  const bool in_call = ReadFile(file.get(), buffer, sizeof buffer, &done, &overlapped);
  if (!in_call && testing_util::UnderWine(wine::kFileReadsPend)) {
    ASSERT_EQ(GetLastError(), kErrIoPending);
    ASSERT_TRUE(GetOverlappedResult(file.get(), &overlapped, &done, true));
  } else {
    ASSERT_TRUE(in_call);
  }
  EXPECT_EQ(std::string(buffer, done), "6789");
  EXPECT_EQ(WaitForSingleObject(event.get(), 0), kWaitObject0);
  Dword again = 0;
  ASSERT_TRUE(GetOverlappedResult(file.get(), &overlapped, &again, false));
  EXPECT_EQ(again, 4u);

  overlapped.Offset = 10;
  const bool past_end = ReadFile(file.get(), buffer, sizeof buffer, &done, &overlapped) ||
                        (GetLastError() == kErrIoPending && testing_util::UnderWine(wine::kFileReadsPend) &&
                         GetOverlappedResult(file.get(), &overlapped, &done, true));
  EXPECT_FALSE(past_end);
  EXPECT_EQ(GetLastError(), kErrHandleEof);
  EXPECT_FALSE(ReadFile(file.get(), buffer, sizeof buffer, &done, nullptr));
  EXPECT_EQ(GetLastError(), kErrInvalidParameter);
}

TEST_F(RegularFileTest, WideNameOpensTheSameFile) {
  const std::filesystem::path name = std::filesystem::path(dir.path()) / u"caf\u00E9.log";
  std::ofstream(name) << "wide";
  const std::u16string wide = name.u16string();
  HandleHolder file(CreateFileW(wide.c_str(), kGenericRead, 0, kOpenExisting, 0));
  ASSERT_TRUE(file);
  EXPECT_EQ(ReadSome(file.get()), "wide");
}

}  // namespace
}  // namespace portwren
