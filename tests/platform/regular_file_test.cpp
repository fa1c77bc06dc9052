// Plain files through the Windows file calls, as the log writer uses them.
#include <filesystem>
#include <fstream>
#include <sstream>

#include "common/wine_differences.h"
#include "platform/os_file.h"
#include "platform/os_sync.h"
#include "platform_test_util.h"
#include "support/handle_holder.h"

namespace portwren {
namespace {

using namespace os;
using testing_util::ErrorOf;

class RegularFileTest : public ::testing::Test {
 protected:
  // The test's file, made with content first unless content is null.
  Handle Open(const char* content, Dword access, Dword disposition, Dword flags = 0) {
    if (content != nullptr) std::ofstream(path) << content;
    return CreateFileA(path.c_str(), access, kFileShareRead, disposition, flags);
  }
  std::string Content() const {
    std::stringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
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
  EXPECT_EQ(ErrorOf(WriteFile(reader.get(), "x", 1, nullptr, nullptr)), kErrAccessDenied);
  EXPECT_EQ(ReadSome(reader.get()), "new");
  EXPECT_EQ(ReadSome(reader.get()), "");  // end of file: success, 0
  int32_t high = 1;
  EXPECT_EQ(SetFilePointer(reader.get(), 16, &high, kFileBegin), 16u);  // 4 GiB + 16
  EXPECT_EQ(high, 1);
  EXPECT_EQ(ErrorOf(SetFilePointer(reader.get(), 0, nullptr, 9) != kInvalidSetFilePointer),
            kErrInvalidParameter);
}

TEST_F(RegularFileTest, OpenFailuresCarryWindowsNumbersAndAWideNameOpens) {
  std::ofstream(path) << "x";
  const struct {
    std::string path;
    Dword disposition, error;
  } cases[] = {
      {dir.File("missing"), kOpenExisting, kErrFileNotFound},
      {dir.File("no/file"), kOpenExisting, kErrPathNotFound},
      {dir.File("no/file"), kCreateAlways, kErrPathNotFound},
      {path, kCreateNew, kErrFileExists},
      {dir.path(), kOpenExisting, kErrAccessDenied},
      {path, 0, kErrInvalidParameter},
      {"", kOpenExisting, kErrPathNotFound},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(ErrorOf(CreateFileA(c.path.c_str(), kGenericRead, 0, c.disposition, 0) != kInvalidHandle),
              c.error)
        << c.path;
  }
  const std::filesystem::path name = std::filesystem::path(dir.path()) / u"caf\u00E9.log";
  std::ofstream(name) << "wide";
  HandleHolder file(CreateFileW(name.u16string().c_str(), kGenericRead, 0, kOpenExisting, 0));
  ASSERT_TRUE(file);
  EXPECT_EQ(ReadSome(file.get()), "wide");
}

TEST_F(RegularFileTest, OverlappedHandleUsesTheOffsetAndCompletesInTheCall) {
  HandleHolder file(Open("0123456789", kGenericRead, kOpenExisting, kFileFlagOverlapped));
  ASSERT_TRUE(file);
  EventHolder event(CreateEventA(true, false));
  Overlapped overlapped;
  overlapped.hEvent = event.get();
  char buffer[16] = {};
  Dword done = 0;
  // Wine lets the read pend; it must then end as it would have in the call.
  const auto read_at = [&](Dword offset) {
    overlapped.Offset = offset;
    return ReadFile(file.get(), buffer, sizeof buffer, &done, &overlapped) ||
           (GetLastError() == kErrIoPending && testing_util::UnderWine(wine::kFileReadsPend) &&
            GetOverlappedResult(file.get(), &overlapped, &done, true));
  };
  ASSERT_TRUE(read_at(6));
  EXPECT_EQ(std::string(buffer, done), "6789");
  EXPECT_EQ(WaitForSingleObject(event.get(), 0), kWaitObject0);
  Dword again = 0;
  ASSERT_TRUE(GetOverlappedResult(file.get(), &overlapped, &again, false));
  EXPECT_EQ(again, 4u);
  EXPECT_EQ(ErrorOf(read_at(10)), kErrHandleEof);
  EXPECT_EQ(ErrorOf(ReadFile(file.get(), buffer, sizeof buffer, &done, nullptr)), kErrInvalidParameter);
}

}  // namespace
}  // namespace portwren
