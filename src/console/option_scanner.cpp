#include "console/option_scanner.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace portwren {

namespace {

// Chosen by the option string when a scan starts; no environment variable changes it.
OptionOrdering s_ordering = OptionOrdering::kPermute;

// ScanLong's answer when a long-only "-name" is no long option but may be short ones.
constexpr int kTryShortOptions = -2;

const char* ProgramName(char** argv) {
  return argv[0] ? argv[0] : "";
}

bool IsNonOption(const char* arg) {
  return arg[0] != '-' || arg[1] == '\0';
}

// The non-options seen so far go behind the options that followed them.
void MoveNonOptionsBack(OptionScanState* s, char** argv) {
  std::rotate(argv + s->first_nonopt, argv + s->last_nonopt, argv + s->next_index);
  s->first_nonopt += s->next_index - s->last_nonopt;
  s->last_nonopt = s->next_index;
}

// next_char points at the name, just past "--" (dash_dash) or "-" (long-only form).
// A failing long option leaves failed_option 0, whatever the failure.
int ScanLong(OptionScanState* s, int argc, char** argv, const char* short_options,
             const LongOption* long_options, int* long_index, bool long_only, bool dash_dash) {
  const char* name = s->next_char;
  const char* name_end = name;
  while (*name_end != '\0' && *name_end != '=') ++name_end;
  const size_t length = static_cast<size_t>(name_end - name);

  const LongOption* found = nullptr;
  int found_index = -1;
  for (int i = 0; long_options[i].name != nullptr; ++i) {
    if (std::strlen(long_options[i].name) == length &&
        std::strncmp(long_options[i].name, name, length) == 0) {
      found = &long_options[i];
      found_index = i;
      break;
    }
  }
  if (found == nullptr) {
    bool ambiguous = false;
    for (int i = 0; long_options[i].name != nullptr; ++i) {
      const LongOption& o = long_options[i];
      if (std::strncmp(o.name, name, length) != 0) continue;
      if (found == nullptr) {
        found = &o;
        found_index = i;
      } else if (long_only || found->has_arg != o.has_arg || found->flag != o.flag || found->val != o.val) {
        ambiguous = true;  // entries that behave alike do not make a prefix ambiguous
      }
    }
    if (ambiguous) {
      if (s->error_stream != nullptr) {
        std::fprintf(s->error_stream, "%s: option `%s' is ambiguous\n", ProgramName(argv),
                     argv[s->next_index]);
      }
      s->next_char = nullptr;
      ++s->next_index;
      s->failed_option = 0;
      return kScanError;
    }
  }

  if (found == nullptr) {
    if (long_only && !dash_dash && std::strchr(short_options, *name) != nullptr) return kTryShortOptions;
    if (dash_dash) {
      std::snprintf(s->message, sizeof s->message, "%s: unrecognized option '--%s'\n", ProgramName(argv),
                    name);
    } else {
      std::snprintf(s->message, sizeof s->message, "%s: unrecognized option '%c%s'\n", ProgramName(argv),
                    argv[s->next_index][0], name);
    }
    s->next_char = nullptr;
    ++s->next_index;
    s->failed_option = 0;
    return kScanError;
  }

  ++s->next_index;
  s->next_char = nullptr;
  if (*name_end == '=') {
    if (found->has_arg == kNoArgument) {
      if (dash_dash) {
        std::snprintf(s->message, sizeof s->message, "%s: option `--%s' doesn't allow an argument\n",
                      ProgramName(argv), found->name);
      } else {
        std::snprintf(s->message, sizeof s->message, "%s: option `%c%s' doesn't allow an argument\n",
                      ProgramName(argv), argv[s->next_index - 1][0], found->name);
      }
      s->failed_option = 0;
      return kScanError;
    }
    s->value = name_end + 1;
  } else if (found->has_arg == kRequiredArgument) {
    if (s->next_index >= argc) {
      std::snprintf(s->message, sizeof s->message, "%s: option `%s' requires an argument\n",
                    ProgramName(argv), argv[s->next_index - 1]);
      s->failed_option = 0;
      return kScanError;
    }
    s->value = argv[s->next_index++];  // taken even when it looks like an option
  }
  if (long_index != nullptr) *long_index = found_index;
  if (found->flag != nullptr) {
    *found->flag = found->val;
    return 0;
  }
  return found->val;
}

// next_char points at the next character of a group of short options.
int ScanShort(OptionScanState* s, int argc, char** argv, const char* short_options) {
  const unsigned char c = static_cast<unsigned char>(*s->next_char++);
  const char* spec = c == ':' ? nullptr : std::strchr(short_options, c);
  if (*s->next_char == '\0') ++s->next_index;  // the group is used up

  if (spec == nullptr) {
    std::snprintf(s->message, sizeof s->message, "%s: invalid option '-%c'\n", ProgramName(argv), c);
    s->failed_option = c;
    return kScanError;
  }
  if (spec[1] != ':') return c;

  const bool optional = spec[2] == ':';
  if (*s->next_char != '\0') {
    s->value = s->next_char;  // attached: "-b20"
    ++s->next_index;
  } else if (!optional) {
    if (s->next_index >= argc) {
      std::snprintf(s->message, sizeof s->message, "%s: option requires an argument -- %c\n",
                    ProgramName(argv), c);
      s->failed_option = c;
      s->next_char = nullptr;
      return kScanError;
    }
    s->value = argv[s->next_index++];  // separate: "-b 20"
  }
  s->next_char = nullptr;
  return c;
}

int Scan(OptionScanState* s, int argc, char** argv, const char* short_options, const LongOption* long_options,
         int* long_index, bool long_only) {
  if (s == nullptr || argv == nullptr || argc < 1) return kScanEnd;
  if (short_options == nullptr) short_options = "";
  s->value = nullptr;

  if (s->next_index == 0 || !s->started) {
    if (s->next_index == 0) s->next_index = 1;
    s->first_nonopt = s->last_nonopt = s->next_index;
    s->next_char = nullptr;
    s->started = true;
    s_ordering = short_options[0] == '+'   ? OptionOrdering::kRequireOrder
                 : short_options[0] == '-' ? OptionOrdering::kReturnInOrder
                                           : OptionOrdering::kPermute;
  }
  if (short_options[0] == '+' || short_options[0] == '-') ++short_options;

  if (s->next_char == nullptr || *s->next_char == '\0') {
    // Move on to the next argument. A caller may have moved next_index back meanwhile.
    if (s->last_nonopt > s->next_index) s->last_nonopt = s->next_index;
    if (s->first_nonopt > s->next_index) s->first_nonopt = s->next_index;

    if (s_ordering == OptionOrdering::kPermute) {
      if (s->first_nonopt != s->last_nonopt && s->last_nonopt != s->next_index) {
        MoveNonOptionsBack(s, argv);
      } else if (s->last_nonopt != s->next_index) {
        s->first_nonopt = s->next_index;
      }
      while (s->next_index < argc && IsNonOption(argv[s->next_index])) ++s->next_index;
      s->last_nonopt = s->next_index;
    }

    if (s->next_index < argc && std::strcmp(argv[s->next_index], "--") == 0) {
      ++s->next_index;
      if (s->first_nonopt != s->last_nonopt && s->last_nonopt != s->next_index) {
        MoveNonOptionsBack(s, argv);
      } else if (s->first_nonopt == s->last_nonopt) {
        s->first_nonopt = s->next_index;
      }
      s->last_nonopt = argc;
      s->next_index = argc;
    }

    if (s->next_index >= argc) {
      if (s->first_nonopt != s->last_nonopt) s->next_index = s->first_nonopt;
      return kScanEnd;
    }

    if (IsNonOption(argv[s->next_index])) {
      if (s_ordering == OptionOrdering::kRequireOrder) return kScanEnd;
      s->value = argv[s->next_index++];
      return kScanNonOption;
    }

    const char* arg = argv[s->next_index];
    if (long_options != nullptr) {
      if (arg[1] == '-') {
        s->next_char = arg + 2;
        return ScanLong(s, argc, argv, short_options, long_options, long_index, long_only, true);
      }
      // In long-only mode a lone valid short option "-f" stays short; "-fu" may abbreviate "--fubar".
      if (long_only && (arg[2] != '\0' || std::strchr(short_options, arg[1]) == nullptr)) {
        s->next_char = arg + 1;
        const int result = ScanLong(s, argc, argv, short_options, long_options, long_index, true, false);
        if (result != kTryShortOptions) return result;
      }
    }
    s->next_char = arg + 1;
  }
  return ScanShort(s, argc, argv, short_options);
}

}  // namespace

OptionScanState* CreateOptionScan() {
  return new (std::nothrow) OptionScanState();
}

int ReleaseOptionScan(OptionScanState* state) {
  if (state == nullptr || state->tag != kOptionScanTag) return -1;
  state->tag = 0;
  delete state;
  return 0;
}

int ScanOptions(OptionScanState* state, int argc, char** argv, const char* short_options,
                const LongOption* long_options, int* long_index) {
  return Scan(state, argc, argv, short_options, long_options, long_index, false);
}

int ScanOptionsLongOnly(OptionScanState* state, int argc, char** argv, const char* short_options,
                        const LongOption* long_options, int* long_index) {
  return Scan(state, argc, argv, short_options, long_options, long_index, true);
}

OptionOrdering CurrentOptionOrdering() {
  return s_ordering;
}

}  // namespace portwren
