// Where Wine (Debian's 8.0, on pseudo-terminals) is not Windows: the one list of them. A check that
// meets one is left out under Wine only, with its reason printed, never bent to fit.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

namespace portwren::wine {

// Synchronisation.
inline constexpr char kDuplicateWaitAll[] = "a wait-all list naming one handle twice is not refused with 87";
// Files.
inline constexpr char kFileReadsPend[] =
    "an overlapped read of a regular file pends instead of completing in the call";
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
inline constexpr char kReadsAlwaysPend[] =
    "an overlapped read pends even when the bytes it asks for are there";
inline constexpr char kQueuedReadTimer[] =
    "a queued read's timeout runs from its issue, not from when it becomes the current read";
inline constexpr char kAllMaxTimeouts[] =
    "SetCommTimeouts takes MAXDWORD for all three read timeouts instead of refusing it with 87";
inline constexpr char kSyncReadFileEx[] =
    "ReadFileEx on a port opened without FILE_FLAG_OVERLAPPED is not refused: it waits for its bytes";
inline constexpr char kAlertableWaitOrder[] =
    "an alertable wait on the port ends as signalled before the routine of the request it ended runs";
inline constexpr char kSyncHandleOverlapped[] =
    "a read given an Overlapped on a port opened without FILE_FLAG_OVERLAPPED ends with no bytes";
inline constexpr char kCloseAbort[] = "closing a port ends its pending requests with 676, not 995";
inline constexpr char kCommEventOnPty[] = "WaitCommEvent on a pseudo-terminal ends at once with mask 0";
inline constexpr char kOutQueueOnPty[] = "ClearCommError counts no unsent output on a pseudo-terminal";
inline constexpr char kCommStateReadBack[] =
    "GetCommState gives the pseudo-terminal's termios back, not what SetCommState was given";
inline constexpr char kCommStateChecks[] =
    "SetCommState refuses bad data bits, parity or stop bits with 50, not 87, and takes other bad values";
inline constexpr char kBulkBothWays[] =
    "96 KiB each way at once on the socat line, its far end echoing, stalled 3 times in 90 runs: the "
    "far end's write timed out while its own input was full and socat was blocked writing into it";
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
