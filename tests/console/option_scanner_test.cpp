#include "console/option_scanner.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

namespace portwren {
namespace {

// A mutable argv: "prog", then `line` split at spaces; the scanner may permute it.
class Args {
 public:
  explicit Args(const std::string& line) : storage_{"prog"} {
    for (size_t at = 0; at < line.size();) {
      const size_t end = std::min(line.find(' ', at), line.size());
      storage_.push_back(line.substr(at, end - at));
      at = end + 1;
    }
    for (auto& s : storage_) pointers_.push_back(s.data());
    pointers_.push_back(nullptr);
  }
  int argc() const { return static_cast<int>(storage_.size()); }
  char** argv() { return pointers_.data(); }
  // The arguments in their current order from `from` on, joined by spaces.
  std::string From(int from) const {
    std::string text;
    for (int i = from; i < argc(); ++i) text += (i > from ? " " : "") + std::string(pointers_[i]);
    return text;
  }

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
  void SetUp() override { ASSERT_NE(errors_, nullptr); }
  void TearDown() override {
    EXPECT_TRUE(scan_ == nullptr || ReleaseOptionScan(scan_) == 0);
    std::fclose(errors_);
  }

  // Scans `line` to the end with a fresh record; the results joined by "|": "-b=20" a short option
  // and its value, "--name=v" a long one (named by the index the scanner gave), "[a]" a non-option
  // returned in order, "!x <message>" a failed short option, "! <message>" a failed long one. The
  // result after a value shows whether the value was cleared.
  std::string Trace(const char* shorts, const std::string& line, bool long_only = false) {
    EXPECT_TRUE(scan_ == nullptr || ReleaseOptionScan(scan_) == 0);
    scan_ = CreateOptionScan();
    scan_->error_stream = errors_;
    args_.emplace(line);
    std::string results;
    for (int guard = 0; guard < 100; ++guard) {
      int index = -1;
      const int code = (long_only ? ScanOptionsLongOnly : ScanOptions)(scan_, args_->argc(), args_->argv(),
                                                                       shorts, kLongs, &index);
      const std::string value = scan_->value != nullptr ? std::string("=") + scan_->value : "";
      if (code == kScanEnd) break;
      results += results.empty() ? "" : "|";
      if (code == kScanError) {
        std::string message = scan_->message;
        if (message.ends_with('\n')) message.pop_back();
        const char failed = static_cast<char>(scan_->failed_option);
        results += "!" + (failed != 0 ? std::string(1, failed) : "") + " " + message;
      } else if (code == kScanNonOption) {
        results += "[" + value.substr(1) + "]";
      } else if (index >= 0) {
        EXPECT_EQ(code, kLongs[index].val);
        results += "--" + std::string(kLongs[index].name) + value;
      } else {
        results += "-" + std::string(1, static_cast<char>(code)) + value;
      }
    }
    return results;
  }
  // What stands from next_index on after the scan.
  std::string Rest() const {
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
  std::FILE* errors_ = std::tmpfile();
};

// Diagnostics other than the ambiguous prefix go to the message buffer only.
TEST_F(OptionScannerTest, ScansEveryOptionAndLeavesTheNonOptionsBehind) {
  const std::string too_long = "--" + std::string(300, 'q');
  const struct {
    const char* shorts;
    std::string args, results, rest;
  } cases[] = {
      // Non-options go behind the options, in their order.
      {"lb:o::", "COM3 -b 20 x --name=v y -l", "-b=20|--name=v|-l", "COM3 x y"},
      {"l", "", "", ""},
      // "+": the first non-option ends the options; "-": non-options come back in order.
      {"+lb:", "-l COM3 -b 5", "-l", "COM3 -b 5"},
      {"-lb:", "a -l b", "[a]|-l|[b]", ""},
      // "--" ends the options; a lone "-" is a non-option.
      {"lb:", "x -l -- -b y", "-l", "x -b y"},
      {"lb:", "-l --", "-l", ""},
      {"l", "- -l", "-l", "-"},
      // --name=value and --name value, whatever the value looks like; unique prefixes; an exact
      // name beats the longer names.
      {"l", "--name=a=b --name -l --name=", "--name=a=b|--name=-l|--name=", ""},
      {"l", "--na=1 --read-log f --read-log-a --fl", "--name=1|--read-log=f|--read-log-append|--flag", ""},
      {"l", "--optional x --optional=y", "--optional|--optional=y", "x"},
      // Grouped short options, values attached or separate; an optional value only attached.
      {"lb:", "-lb20 -b 7 -ll -b -l", "-l|-b=20|-b=7|-l|-l|-b=-l", ""},
      {"o::", "-oX -o Y", "-o=X|-o", "Y"},
      // A failed long option leaves failed_option 0, whatever failed before it.
      {"lb:", "-x --foo=1 -x --flag=1 -x --name",
       "!x prog: invalid option '-x'|! prog: unrecognized option '--foo=1'|!x prog: invalid option '-x'|"
       "! prog: option `--flag' doesn't allow an argument|!x prog: invalid option '-x'|"
       "! prog: option `--name' requires an argument",
       ""},
      {"lb:", "-x --nam", "!x prog: invalid option '-x'|! prog: option `--nam' requires an argument", ""},
      // The message is cut to the buffer.
      {"lb:", too_long,
       "! " + ("prog: unrecognized option '" + too_long).substr(0, kOptionMessageCapacity - 1), ""},
      // A high character is an error, not the end; ':' is never an option.
      {"lb:o::", "-x -\xff -l: -lb",
       "!x prog: invalid option '-x'|!\xff prog: invalid option '-\xff'|-l|!: prog: invalid option '-:'|-l|"
       "!b prog: option requires an argument -- b",
       ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.args);
    EXPECT_EQ(Trace(c.shorts, c.args), c.results);
    EXPECT_EQ(Rest(), c.rest);
  }
  EXPECT_EQ(ErrorText(), "");
}

// A valid short option alone stays short; with no long name "lb5" it is short options after all.
// An ambiguous prefix goes to the error stream, the message buffer keeps the diagnostic before it.
TEST_F(OptionScannerTest, LongOnlyNamesAndAmbiguousPrefixes) {
  EXPECT_EQ(Trace("lb:", "-name=v -fl -l -lb5 -zzz -flag=1", true),
            "--name=v|--flag|-l|-l|-b=5|! prog: unrecognized option '-zzz'|"
            "! prog: option `-flag' doesn't allow an argument");
  EXPECT_EQ(Trace("l", "-x --read-l=x -l"), "!x prog: invalid option '-x'|! prog: invalid option '-x'|-l");
  EXPECT_EQ(ErrorText(), "prog: option `--read-l=x' is ambiguous\n");
}

// The ordering is process-wide, set by the option string of the scan started last; a zero
// next_index starts over; no arguments at all is the end.
TEST_F(OptionScannerTest, OrderingRestartAndNoArguments) {
  const std::pair<const char*, OptionOrdering> orderings[] = {{"+l", OptionOrdering::kRequireOrder},
                                                              {"-l", OptionOrdering::kReturnInOrder},
                                                              {"l", OptionOrdering::kPermute}};
  for (const auto& [shorts, ordering] : orderings) {
    Trace(shorts, "x");
    EXPECT_EQ(CurrentOptionOrdering(), ordering) << shorts;
  }
  EXPECT_EQ(Trace("l", "-l x"), "-l");
  scan_->next_index = 0;
  EXPECT_EQ(ScanOptions(scan_, args_->argc(), args_->argv(), "l", kLongs, nullptr), 'l');
  EXPECT_EQ(ScanOptions(scan_, args_->argc(), args_->argv(), "l", kLongs, nullptr), kScanEnd);
  EXPECT_EQ(scan_->next_index, 2);
  EXPECT_EQ(ScanOptions(scan_, 0, nullptr, "l", kLongs, nullptr), kScanEnd);
}

// A prefix of entries that behave alike is not ambiguous; a flag entry stores its value. The
// record starts at argument one with its tag, and is released only with that tag.
TEST(OptionScanner, AlikeEntriesFlagEntriesAndTheRecord) {
  int flag = 0;
  const LongOption table[] = {{"verbose", kNoArgument, nullptr, 'v'},
                              {"verbosity", kNoArgument, nullptr, 'v'},
                              {"set", kNoArgument, &flag, 77},
                              {nullptr, 0, nullptr, 0}};
  OptionScanState* scan = CreateOptionScan();
  ASSERT_NE(scan, nullptr);
  EXPECT_EQ(scan->next_index, 1);
  EXPECT_EQ(scan->tag, 0x20160325u);
  EXPECT_EQ(scan->value, nullptr);
  Args args("--verb --set");
  EXPECT_EQ(ScanOptions(scan, args.argc(), args.argv(), "", table, nullptr), 'v');
  EXPECT_EQ(ScanOptions(scan, args.argc(), args.argv(), "", table, nullptr), 0);
  EXPECT_EQ(flag, 77);
  scan->tag = 0x20160326;
  EXPECT_EQ(ReleaseOptionScan(scan), -1);
  scan->next_index = 3;  // still ours to use (a sanitizer build would catch a use after free)
  scan->tag = kOptionScanTag;
  EXPECT_EQ(ReleaseOptionScan(scan), 0);
  EXPECT_EQ(ReleaseOptionScan(nullptr), -1);
}

}  // namespace
}  // namespace portwren
