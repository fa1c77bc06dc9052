#include "console/option_scanner.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

namespace portwren {
namespace {

// A mutable argv, "prog" first, the scanner may permute.
class Args {
 public:
  explicit Args(const std::vector<std::string>& args) : storage_{"prog"} {
    storage_.insert(storage_.end(), args.begin(), args.end());
    for (auto& s : storage_) pointers_.push_back(s.data());
    pointers_.push_back(nullptr);
  }
  int argc() const { return static_cast<int>(storage_.size()); }
  char** argv() { return pointers_.data(); }
  // The arguments in their current order, from `from` on.
  std::vector<std::string> From(int from) const { return {pointers_.begin() + from, pointers_.end() - 1}; }

 private:
  std::vector<std::string> storage_;
  std::vector<char*> pointers_;
};

const LongOption kLongs[] = {
    {"name", kRequiredArgument, nullptr, 200},     {"flag", kNoArgument, nullptr, 201},
    {"read-log", kRequiredArgument, nullptr, 202}, {"read-log-append", kNoArgument, nullptr, 203},
    {"optional", kOptionalArgument, nullptr, 204}, {nullptr, 0, nullptr, 0},
};

class OptionScannerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    errors_ = std::tmpfile();
    ASSERT_NE(errors_, nullptr);
  }
  void TearDown() override {
    if (scan_ != nullptr) {
      EXPECT_EQ(ReleaseOptionScan(scan_), 0);
    }
    std::fclose(errors_);
  }

  // Scans `args` to the end with a fresh record and tells each result as text: "-b=20" a short
  // option and its value, "--name=v" a long one (named by the index the scanner gave), "[a]" a
  // non-option returned in order, "!x <message>" a failed short option, "! <message>" a failed long
  // one. The next result after a value shows whether the value was cleared.
  std::vector<std::string> Trace(const char* shorts, const std::vector<std::string>& args,
                                 bool long_only = false) {
    if (scan_ != nullptr) {
      EXPECT_EQ(ReleaseOptionScan(scan_), 0);
    }
    scan_ = CreateOptionScan();
    scan_->error_stream = errors_;
    args_.emplace(args);
    std::vector<std::string> results;
    for (int guard = 0; guard < 100; ++guard) {
      int index = -1;
      const int code = (long_only ? ScanOptionsLongOnly : ScanOptions)(scan_, args_->argc(), args_->argv(),
                                                                       shorts, kLongs, &index);
      const std::string value = scan_->value != nullptr ? std::string("=") + scan_->value : "";
      if (code == kScanEnd) break;
      if (code == kScanError) {
        std::string message = scan_->message;
        if (message.ends_with('\n')) message.pop_back();
        const int failed = scan_->failed_option;
        results.push_back("!" + (failed != 0 ? std::string(1, static_cast<char>(failed)) : "") + " " +
                          message);
      } else if (code == kScanNonOption) {
        results.push_back("[" + value.substr(1) + "]");
      } else if (index >= 0) {
        EXPECT_EQ(code, kLongs[index].val);
        results.push_back("--" + std::string(kLongs[index].name) + value);
      } else {
        results.push_back("-" + std::string(1, static_cast<char>(code)) + value);
      }
    }
    return results;
  }
  // What stands from next_index on after the scan.
  std::vector<std::string> Rest() const {
    EXPECT_LE(scan_->next_index, args_->argc());
    return args_->From(std::min(scan_->next_index, args_->argc()));
  }
  std::string ErrorText() {
    std::fflush(errors_);
    std::rewind(errors_);
    std::string text;
    for (int c; (c = std::fgetc(errors_)) != EOF;) text.push_back(static_cast<char>(c));
    return text;
  }

  OptionScanState* scan_ = nullptr;
  std::optional<Args> args_;
  std::FILE* errors_ = nullptr;
};

// Diagnostics other than the ambiguous prefix go to the message buffer only.
TEST_F(OptionScannerTest, ScansEveryOptionAndLeavesTheNonOptionsBehind) {
  const std::string too_long = "--" + std::string(300, 'q');
  const struct {
    const char* shorts;
    std::vector<std::string> args;
    std::vector<std::string> results;
    std::vector<std::string> rest;
  } cases[] = {
      // Non-options go behind the options, in their order.
      {"lb:o::",
       {"COM3", "-b", "20", "x", "--name=v", "y", "-l"},
       {"-b=20", "--name=v", "-l"},
       {"COM3", "x", "y"}},
      {"lb:", {"-l", "-b", "1"}, {"-l", "-b=1"}, {}},
      {"l", {}, {}, {}},
      // "+": the first non-option ends the options; "-": non-options come back in order.
      {"+lb:", {"-l", "COM3", "-b", "5"}, {"-l"}, {"COM3", "-b", "5"}},
      {"-lb:", {"a", "-l", "b"}, {"[a]", "-l", "[b]"}, {}},
      // "--" ends the options; a lone "-" is a non-option.
      {"lb:", {"x", "-l", "--", "-b", "y"}, {"-l"}, {"x", "-b", "y"}},
      {"lb:", {"-l", "--"}, {"-l"}, {}},
      {"l", {"-", "-l"}, {"-l"}, {"-"}},
      // --name=value and --name value, whatever the value looks like.
      {"l", {"--name=a=b", "--name", "-l", "--name="}, {"--name=a=b", "--name=-l", "--name="}, {}},
      // Unique prefixes; an exact name beats the longer names.
      {"l",
       {"--na=1", "--read-log", "f", "--read-log-a", "--fl"},
       {"--name=1", "--read-log=f", "--read-log-append", "--flag"},
       {}},
      {"l", {"--optional", "x", "--optional=y"}, {"--optional", "--optional=y"}, {"x"}},
      // Grouped short options, values attached or separate; an optional value only attached.
      {"lb:", {"-lb20", "-b", "7", "-ll", "-b", "-l"}, {"-l", "-b=20", "-b=7", "-l", "-l", "-b=-l"}, {}},
      {"o::", {"-oX", "-o", "Y"}, {"-o=X", "-o"}, {"Y"}},
      // A failed long option leaves failed_option 0, whatever failed before it.
      {"lb:",
       {"-x", "--foo=1", "-x", "--flag=1", "-x", "--name"},
       {"!x prog: invalid option '-x'", "! prog: unrecognized option '--foo=1'",
        "!x prog: invalid option '-x'", "! prog: option `--flag' doesn't allow an argument",
        "!x prog: invalid option '-x'", "! prog: option `--name' requires an argument"},
       {}},
      {"lb:",
       {"-x", "--nam"},
       {"!x prog: invalid option '-x'", "! prog: option `--nam' requires an argument"},
       {}},
      // The message is cut to the buffer.
      {"lb:",
       {too_long},
       {"! " + ("prog: unrecognized option '" + too_long).substr(0, kOptionMessageCapacity - 1)},
       {}},
      // A high character is an error, not the end; ':' is never an option.
      {"lb:o::",
       {"-x", "-\xff", "-l:", "-lb"},
       {"!x prog: invalid option '-x'", "!\xff prog: invalid option '-\xff'", "-l",
        "!: prog: invalid option '-:'", "-l", "!b prog: option requires an argument -- b"},
       {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.args));
    EXPECT_EQ(Trace(c.shorts, c.args), c.results);
    EXPECT_EQ(Rest(), c.rest);
  }
  EXPECT_EQ(ErrorText(), "");
}

TEST_F(OptionScannerTest, LongOnlyTakesSingleDashNames) {
  // A valid short option alone stays short; with no long name "lb5" it is short options after all.
  EXPECT_EQ(Trace("lb:", {"-name=v", "-fl", "-l", "-lb5", "-zzz", "-flag=1"}, true),
            (std::vector<std::string>{"--name=v", "--flag", "-l", "-l", "-b=5",
                                      "! prog: unrecognized option '-zzz'",
                                      "! prog: option `-flag' doesn't allow an argument"}));
}

// Scanning goes on behind it; the message buffer keeps the diagnostic before it.
TEST_F(OptionScannerTest, AmbiguousPrefixIsReportedOnTheErrorStream) {
  EXPECT_EQ(Trace("l", {"-x", "--read-l=x", "-l"}),
            (std::vector<std::string>{"!x prog: invalid option '-x'", "! prog: invalid option '-x'", "-l"}));
  EXPECT_EQ(ErrorText(), "prog: option `--read-l=x' is ambiguous\n");
}

// Process-wide, set by the option string of the scan started last, whichever record it uses.
TEST_F(OptionScannerTest, OrderingIsProcessWideAndSetWhenAScanStarts) {
  Trace("+l", {"x"});
  EXPECT_EQ(CurrentOptionOrdering(), OptionOrdering::kRequireOrder);
  Trace("-l", {"x"});
  EXPECT_EQ(CurrentOptionOrdering(), OptionOrdering::kReturnInOrder);
  Trace("l", {"x"});
  EXPECT_EQ(CurrentOptionOrdering(), OptionOrdering::kPermute);
}

TEST_F(OptionScannerTest, ZeroNextIndexStartsOverAndNoArgumentsAtAllIsTheEnd) {
  EXPECT_EQ(Trace("l", {"-l", "x"}), (std::vector<std::string>{"-l"}));
  scan_->next_index = 0;
  EXPECT_EQ(ScanOptions(scan_, args_->argc(), args_->argv(), "l", kLongs, nullptr), 'l');
  EXPECT_EQ(ScanOptions(scan_, args_->argc(), args_->argv(), "l", kLongs, nullptr), kScanEnd);
  EXPECT_EQ(scan_->next_index, 2);
  EXPECT_EQ(ScanOptions(scan_, 0, nullptr, "l", kLongs, nullptr), kScanEnd);
}

// A prefix of entries that behave alike is not ambiguous; a flag entry stores its value.
TEST(OptionScanner, AlikeEntriesAndFlagEntries) {
  int flag = 0;
  const LongOption table[] = {
      {"verbose", kNoArgument, nullptr, 'v'},
      {"verbosity", kNoArgument, nullptr, 'v'},
      {"set", kNoArgument, &flag, 77},
      {nullptr, 0, nullptr, 0},
  };
  OptionScanState* scan = CreateOptionScan();
  Args args({"--verb", "--set"});
  EXPECT_EQ(ScanOptions(scan, args.argc(), args.argv(), "", table, nullptr), 'v');
  EXPECT_EQ(ScanOptions(scan, args.argc(), args.argv(), "", table, nullptr), 0);
  EXPECT_EQ(flag, 77);
  EXPECT_EQ(ReleaseOptionScan(scan), 0);
}

TEST(OptionScanRecord, StartsAtArgumentOneWithItsTagAndIsReleasedOnlyWithIt) {
  OptionScanState* scan = CreateOptionScan();
  ASSERT_NE(scan, nullptr);
  EXPECT_EQ(scan->next_index, 1);
  EXPECT_EQ(scan->tag, 0x20160325u);
  EXPECT_EQ(scan->value, nullptr);
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
