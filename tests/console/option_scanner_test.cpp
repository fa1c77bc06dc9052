#include "console/option_scanner.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

namespace portwren {
namespace {

// A mutable argv the scanner may permute.
class Args {
 public:
  Args(std::initializer_list<const char*> args) : storage_(args.begin(), args.end()) {
    for (auto& s : storage_) pointers_.push_back(s.data());
    pointers_.push_back(nullptr);
  }
  int argc() const { return static_cast<int>(storage_.size()); }
  char** argv() { return pointers_.data(); }
  // The arguments in their current order, from `from` on.
  std::vector<std::string> From(int from) const {
    std::vector<std::string> out;
    for (int i = from; i < argc(); ++i) out.emplace_back(pointers_[static_cast<size_t>(i)]);
    return out;
  }

 private:
  std::vector<std::string> storage_;
  std::vector<char*> pointers_;
};

struct Hit {
  int code;
  std::string value;  // "(null)" when there was none
  bool operator==(const Hit&) const = default;
};

std::ostream& operator<<(std::ostream& os, const Hit& h) {
  return os << "{" << h.code << ", " << h.value << "}";
}

constexpr int kName = 200;
constexpr int kFlag = 201;
constexpr int kReadLog = 202;
constexpr int kReadLogAppend = 203;
constexpr int kOptional = 204;
const LongOption kLongs[] = {
    {"name", kRequiredArgument, nullptr, kName},
    {"flag", kNoArgument, nullptr, kFlag},
    {"read-log", kRequiredArgument, nullptr, kReadLog},
    {"read-log-append", kNoArgument, nullptr, kReadLogAppend},
    {"optional", kOptionalArgument, nullptr, kOptional},
    {nullptr, 0, nullptr, 0},
};

class OptionScannerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    scan_ = CreateOptionScan();
    ASSERT_NE(scan_, nullptr);
    errors_ = std::tmpfile();
    ASSERT_NE(errors_, nullptr);
    scan_->error_stream = errors_;
  }
  void TearDown() override {
    EXPECT_EQ(ReleaseOptionScan(scan_), 0);
    std::fclose(errors_);
  }

  int Next(Args& args, const char* shorts = "lb:o::", bool long_only = false, int* index = nullptr) {
    return long_only ? ScanOptionsLongOnly(scan_, args.argc(), args.argv(), shorts, kLongs, index)
                     : ScanOptions(scan_, args.argc(), args.argv(), shorts, kLongs, index);
  }
  std::vector<Hit> All(Args& args, const char* shorts = "lb:o::", bool long_only = false) {
    std::vector<Hit> hits;
    for (int guard = 0; guard < 100; ++guard) {
      const int code = Next(args, shorts, long_only);
      if (code == kScanEnd) break;
      hits.push_back({code, scan_->value ? scan_->value : "(null)"});
    }
    return hits;
  }
  std::string ErrorText() {
    std::fflush(errors_);
    std::rewind(errors_);
    std::string text;
    for (int c; (c = std::fgetc(errors_)) != EOF;) text.push_back(static_cast<char>(c));
    return text;
  }

  OptionScanState* scan_ = nullptr;
  std::FILE* errors_ = nullptr;
};

TEST_F(OptionScannerTest, PermutesNonOptionsBehindTheOptionsInTheirOrder) {
  Args args{"prog", "COM3", "-b", "20", "x", "--name=v", "y", "-l"};
  EXPECT_EQ(All(args), (std::vector<Hit>{{'b', "20"}, {kName, "v"}, {'l', "(null)"}}));
  EXPECT_EQ(scan_->next_index, 5);
  EXPECT_EQ(args.From(scan_->next_index), (std::vector<std::string>{"COM3", "x", "y"}));
  EXPECT_EQ(args.From(1)[0], "-b");
  EXPECT_EQ(CurrentOptionOrdering(), OptionOrdering::kPermute);
}

TEST_F(OptionScannerTest, EndWithoutNonOptionsLeavesNextIndexAtTheEnd) {
  Args args{"prog", "-l", "-b", "1"};
  EXPECT_EQ(All(args).size(), 2u);
  EXPECT_EQ(scan_->next_index, 4);
  Args none{"prog"};
  ASSERT_EQ(ReleaseOptionScan(scan_), 0);
  scan_ = CreateOptionScan();
  EXPECT_EQ(Next(none), kScanEnd);
  EXPECT_EQ(scan_->next_index, 1);
}

TEST_F(OptionScannerTest, PlusKeepsOrderAndStopsAtTheFirstNonOption) {
  Args args{"prog", "-l", "COM3", "-b", "5"};
  EXPECT_EQ(All(args, "+lb:"), (std::vector<Hit>{{'l', "(null)"}}));
  EXPECT_EQ(CurrentOptionOrdering(), OptionOrdering::kRequireOrder);
  EXPECT_EQ(args.From(scan_->next_index), (std::vector<std::string>{"COM3", "-b", "5"}));
}

TEST_F(OptionScannerTest, MinusReturnsNonOptionsInOrder) {
  Args args{"prog", "a", "-l", "b"};
  EXPECT_EQ(All(args, "-lb:"),
            (std::vector<Hit>{{kScanNonOption, "a"}, {'l', "(null)"}, {kScanNonOption, "b"}}));
  EXPECT_EQ(CurrentOptionOrdering(), OptionOrdering::kReturnInOrder);
}

TEST_F(OptionScannerTest, OrderingIsProcessWideAndSetWhenAScanStarts) {
  Args first{"prog", "x"};
  All(first, "+l");
  EXPECT_EQ(CurrentOptionOrdering(), OptionOrdering::kRequireOrder);
  OptionScanState* other = CreateOptionScan();
  Args second{"prog", "x", "-l"};
  EXPECT_EQ(ScanOptions(other, second.argc(), second.argv(), "l", nullptr, nullptr), 'l');
  EXPECT_EQ(CurrentOptionOrdering(), OptionOrdering::kPermute);
  EXPECT_EQ(ReleaseOptionScan(other), 0);
}

TEST_F(OptionScannerTest, DoubleDashEndsOptions) {
  Args args{"prog", "x", "-l", "--", "-b", "y"};
  EXPECT_EQ(All(args), (std::vector<Hit>{{'l', "(null)"}}));
  EXPECT_EQ(args.From(scan_->next_index), (std::vector<std::string>{"x", "-b", "y"}));

  Args trailing{"prog", "-l", "--"};
  ASSERT_EQ(ReleaseOptionScan(scan_), 0);
  scan_ = CreateOptionScan();
  EXPECT_EQ(All(trailing).size(), 1u);
  EXPECT_EQ(scan_->next_index, 3);
}

TEST_F(OptionScannerTest, LoneDashIsANonOption) {
  Args args{"prog", "-", "-l"};
  EXPECT_EQ(All(args), (std::vector<Hit>{{'l', "(null)"}}));
  EXPECT_EQ(args.From(scan_->next_index), (std::vector<std::string>{"-"}));
}

TEST_F(OptionScannerTest, LongOptionValueAttachedOrSeparate) {
  Args args{"prog", "--name=a=b", "--name", "-l", "--name="};
  EXPECT_EQ(All(args), (std::vector<Hit>{{kName, "a=b"}, {kName, "-l"}, {kName, ""}}));
}

TEST_F(OptionScannerTest, UniquePrefixAcceptedAndExactNameBeatsLongerNames) {
  Args args{"prog", "--na=1", "--read-log", "f", "--read-log-a", "--fl"};
  int index = -1;
  EXPECT_EQ(Next(args, "l", false, &index), kName);
  EXPECT_EQ(index, 0);
  EXPECT_EQ(Next(args, "l", false, &index), kReadLog);
  EXPECT_EQ(std::string(scan_->value), "f");
  EXPECT_EQ(index, 2);
  EXPECT_EQ(Next(args, "l", false, &index), kReadLogAppend);
  EXPECT_EQ(index, 3);
  EXPECT_EQ(Next(args, "l", false, &index), kFlag);
  EXPECT_EQ(Next(args, "l"), kScanEnd);
  EXPECT_EQ(ErrorText(), "");
}

TEST_F(OptionScannerTest, AmbiguousPrefixIsReportedOnTheErrorStream) {
  Args args{"prog", "--read-l=x", "-l"};
  EXPECT_EQ(Next(args), kScanError);
  EXPECT_EQ(scan_->failed_option, 0);
  EXPECT_EQ(scan_->next_index, 2);
  EXPECT_EQ(ErrorText(), "prog: option `--read-l=x' is ambiguous\n");
  EXPECT_EQ(Next(args), 'l');  // scanning goes on behind it
}

TEST_F(OptionScannerTest, PrefixOfEntriesThatBehaveAlikeIsNotAmbiguous) {
  const LongOption same[] = {
      {"verbose", kNoArgument, nullptr, 'v'},
      {"verbosity", kNoArgument, nullptr, 'v'},
      {nullptr, 0, nullptr, 0},
  };
  Args args{"prog", "--verb"};
  EXPECT_EQ(ScanOptions(scan_, args.argc(), args.argv(), "", same, nullptr), 'v');
  EXPECT_EQ(ErrorText(), "");
}

TEST_F(OptionScannerTest, FlagEntryStoresItsValueAndReturnsZero) {
  int flag = 0;
  const LongOption table[] = {{"set", kNoArgument, &flag, 77}, {nullptr, 0, nullptr, 0}};
  Args args{"prog", "--set"};
  EXPECT_EQ(ScanOptions(scan_, args.argc(), args.argv(), "", table, nullptr), 0);
  EXPECT_EQ(flag, 77);
}

TEST_F(OptionScannerTest, OptionalLongValueOnlyWithEquals) {
  Args args{"prog", "--optional", "x", "--optional=y"};
  EXPECT_EQ(All(args), (std::vector<Hit>{{kOptional, "(null)"}, {kOptional, "y"}}));
  EXPECT_EQ(args.From(scan_->next_index), (std::vector<std::string>{"x"}));
}

TEST_F(OptionScannerTest, ShortOptionsGroupAndTakeAttachedOrSeparateValues) {
  Args args{"prog", "-lb20", "-b", "7", "-ll", "-b", "-l"};
  EXPECT_EQ(All(args),
            (std::vector<Hit>{
                {'l', "(null)"}, {'b', "20"}, {'b', "7"}, {'l', "(null)"}, {'l', "(null)"}, {'b', "-l"}}));
}

TEST_F(OptionScannerTest, OptionalShortValueOnlyWhenAttached) {
  Args args{"prog", "-oX", "-o", "Y"};
  EXPECT_EQ(All(args), (std::vector<Hit>{{'o', "X"}, {'o', "(null)"}}));
  EXPECT_EQ(args.From(scan_->next_index), (std::vector<std::string>{"Y"}));
}

TEST_F(OptionScannerTest, ValueIsClearedOnEveryCall) {
  Args args{"prog", "-b", "5", "-l"};
  EXPECT_EQ(Next(args), 'b');
  EXPECT_NE(scan_->value, nullptr);
  EXPECT_EQ(Next(args), 'l');
  EXPECT_EQ(scan_->value, nullptr);
}

// The diagnostics below go to the message buffer only.
TEST_F(OptionScannerTest, SilentDiagnosticsOfLongOptions) {
  struct Case {
    const char* arg;
    const char* message;
  };
  const Case cases[] = {
      {"--foo=1", "prog: unrecognized option '--foo=1'\n"},
      {"--flag=1", "prog: option `--flag' doesn't allow an argument\n"},
      {"--name", "prog: option `--name' requires an argument\n"},
      {"--nam", "prog: option `--nam' requires an argument\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.arg);
    OptionScanState* scan = CreateOptionScan();
    scan->error_stream = errors_;
    scan->failed_option = 'z';
    Args args{"prog", c.arg};
    EXPECT_EQ(ScanOptions(scan, args.argc(), args.argv(), "lb:", kLongs, nullptr), kScanError);
    EXPECT_EQ(scan->failed_option, 0);
    EXPECT_EQ(std::string(scan->message), c.message);
    EXPECT_EQ(scan->next_index, 2);
    EXPECT_EQ(ReleaseOptionScan(scan), 0);
  }
  EXPECT_EQ(ErrorText(), "");
}

TEST_F(OptionScannerTest, SilentDiagnosticsOfShortOptions) {
  Args args{"prog", "-x", "-l:", "-lb"};
  EXPECT_EQ(Next(args), kScanError);
  EXPECT_EQ(scan_->failed_option, 'x');
  EXPECT_EQ(std::string(scan_->message), "prog: invalid option '-x'\n");
  EXPECT_EQ(Next(args), 'l');
  EXPECT_EQ(Next(args), kScanError);  // ':' is never an option
  EXPECT_EQ(scan_->failed_option, ':');
  EXPECT_EQ(std::string(scan_->message), "prog: invalid option '-:'\n");
  EXPECT_EQ(Next(args), 'l');
  EXPECT_EQ(Next(args), kScanError);
  EXPECT_EQ(scan_->failed_option, 'b');
  EXPECT_EQ(std::string(scan_->message), "prog: option requires an argument -- b\n");
  EXPECT_EQ(Next(args), kScanEnd);
  EXPECT_EQ(ErrorText(), "");
}

TEST_F(OptionScannerTest, HighCharacterOptionIsAnErrorNotTheEnd) {
  Args args{"prog", "-\xff"};
  EXPECT_EQ(Next(args), kScanError);
  EXPECT_EQ(scan_->failed_option, 0xFF);
}

TEST_F(OptionScannerTest, MessageIsCutToTheBuffer) {
  const std::string longer(300, 'q');
  const std::string arg = "--" + longer;
  Args args{"prog", arg.c_str()};
  EXPECT_EQ(Next(args), kScanError);
  const std::string message = scan_->message;
  EXPECT_EQ(message.size(), static_cast<size_t>(kOptionMessageCapacity - 1));
  EXPECT_EQ(message.substr(0, 30), "prog: unrecognized option '--q");
}

TEST_F(OptionScannerTest, LongOnlyTakesSingleDashNames) {
  Args args{"prog", "-name=v", "-fl", "-l", "-lb5", "-zzz", "-flag=1"};
  EXPECT_EQ(Next(args, "lb:", true), kName);
  EXPECT_EQ(std::string(scan_->value), "v");
  EXPECT_EQ(Next(args, "lb:", true), kFlag);
  EXPECT_EQ(Next(args, "lb:", true), 'l');  // a valid short option alone stays short
  EXPECT_EQ(Next(args, "lb:", true), 'l');  // no long name "lb5": short options after all
  EXPECT_EQ(Next(args, "lb:", true), 'b');
  EXPECT_EQ(std::string(scan_->value), "5");
  EXPECT_EQ(Next(args, "lb:", true), kScanError);
  EXPECT_EQ(std::string(scan_->message), "prog: unrecognized option '-zzz'\n");
  EXPECT_EQ(Next(args, "lb:", true), kScanError);
  EXPECT_EQ(std::string(scan_->message), "prog: option `-flag' doesn't allow an argument\n");
  EXPECT_EQ(Next(args, "lb:", true), kScanEnd);
}

TEST_F(OptionScannerTest, ZeroNextIndexStartsOver) {
  Args args{"prog", "-l", "x"};
  All(args);
  scan_->next_index = 0;
  EXPECT_EQ(All(args), (std::vector<Hit>{{'l', "(null)"}}));
  EXPECT_EQ(scan_->next_index, 2);
}

TEST_F(OptionScannerTest, NoArgumentsAtAllIsTheEnd) {
  EXPECT_EQ(ScanOptions(scan_, 0, nullptr, "l", kLongs, nullptr), kScanEnd);
}

TEST(OptionScanRecord, StartsAtArgumentOneWithItsTag) {
  OptionScanState* scan = CreateOptionScan();
  ASSERT_NE(scan, nullptr);
  EXPECT_EQ(scan->next_index, 1);
  EXPECT_EQ(scan->tag, 0x20160325u);
  EXPECT_EQ(scan->value, nullptr);
  EXPECT_EQ(ReleaseOptionScan(scan), 0);
}

TEST(OptionScanRecord, ReleaseWithAnotherTagFreesNothing) {
  OptionScanState* scan = CreateOptionScan();
  ASSERT_NE(scan, nullptr);
  scan->tag = 0x20160326;
  EXPECT_EQ(ReleaseOptionScan(scan), -1);
  // Still ours to use (a sanitizer build would catch a use after free here).
  scan->next_index = 3;
  EXPECT_EQ(scan->next_index, 3);
  scan->tag = kOptionScanTag;
  EXPECT_EQ(ReleaseOptionScan(scan), 0);
  EXPECT_EQ(ReleaseOptionScan(nullptr), -1);
}

}  // namespace
}  // namespace portwren
