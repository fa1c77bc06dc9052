// The rules of the timeout check, one function each, in the order they run. Each sets the
// timeouts it needs, provokes the rule on the loopback and fills in expected, measured and the
// verdict; the runner empties the input between them.
#pragma once

#include <span>

#include "port/timeout_check.h"

namespace portwren {

struct TimeoutRule {
  const char* id;
  const char* rule;
  void (*run)(TimeoutCheckPort& port, TimeoutRuleResult& result);
};

// The first rule checks that written bytes come back: the others mean nothing without it.
std::span<const TimeoutRule> TimeoutRules();

// "read 50/0/0, write 0/0" with MAXDWORD by name.
std::string TimeoutsText(const os::CommTimeouts& timeouts);

}  // namespace portwren
