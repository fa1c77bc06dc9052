// Where Wine (Debian's 8.0, on pseudo-terminals) is not Windows: the one list of them. A check that
// meets one is left out under Wine only, with its reason printed, never bent to fit.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

namespace portwren::wine {

// Synchronisation.
inline constexpr char kDuplicateWaitAll[] = "a wait-all list naming one handle twice is not refused with 87";
// Serial ports (COM ports mapped to pseudo-terminals through the prefix's dosdevices links).
inline constexpr char kReadFirstByteTimeout[] =
    "a read with MAXDWORD/MAXDWORD/C timeouts never completes on an empty line";
inline constexpr char kReadReturnAtOnce[] =
    "a read with MAXDWORD/0/0 timeouts blocks instead of returning at once";
inline constexpr char kExpiredReadFails[] =
    "an expired read timeout fails with 1460 instead of succeeding short";
inline constexpr char kPurgeAbort[] = "PurgeComm's abort flags do not end pending requests";
inline constexpr char kSecondOpen[] = "a second open of a port is not refused";
inline constexpr char kModemStatusOnPty[] = "GetCommModemStatus on a pseudo-terminal fails with 50";
inline constexpr char kCommStateOnPty[] = "GetCommState on a pseudo-terminal can fail";
inline constexpr char kNoHangUp[] =
    "the far end cannot hang up: closing one COM port of the socat pair leaves the line up";
// Whole features that rest on the above.
inline constexpr char kEchoAndClearing[] =
    "the echo test and the 0 key clear the line with MAXDWORD/MAXDWORD/C reads, which never complete";

}  // namespace portwren::wine

namespace portwren::testing_util {

// True under Wine (its runner sets PORTWREN_UNDER_WINE); says which difference left a check out.
inline bool UnderWine(const char* reason) {
  const char* flag = std::getenv("PORTWREN_UNDER_WINE");
  if (flag == nullptr || *flag == '\0') return false;
  std::printf("[ wine     ] left out: %s\n", reason);
  return true;
}

}  // namespace portwren::testing_util

// Leaves the whole test out under Wine, with the reason.
#define PORTWREN_SKIP_UNDER_WINE(reason) \
  if (::portwren::testing_util::UnderWine(reason)) GTEST_SKIP() << "Wine: " << (reason)
