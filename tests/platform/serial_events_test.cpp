// SetCommMask / WaitCommEvent: the history word, the wait that SetCommMask ends, and which
// events a pseudo-terminal can and cannot produce.
#include <gtest/gtest.h>

#include "port_fixture.h"

namespace portwren::testing_util {
namespace {

constexpr Dword kNoEnd = 0xDEAD;  // what Ended gives for a wait that did not end successfully

// A WaitCommEvent with its own event and mask word.
struct EventWait {
  EventWait() : event(CreateEventA(true, false)) { overlapped.hEvent = event.get(); }
  bool Start(Handle port) {
    mask = kNoEnd;
    const bool completed = WaitCommEvent(port, &mask, &overlapped);
    error = completed ? 0 : GetLastError();
    return completed;
  }
  bool Done(Dword milliseconds) { return WaitForSingleObject(event.get(), milliseconds) == kWaitObject0; }
  // The events of a wait that ended successfully within 3 s, else kNoEnd.
  Dword Ended(Handle port) {
    Dword count = 0;
    return Done(3000) && GetOverlappedResult(port, &overlapped, &count, true) ? mask : kNoEnd;
  }

  EventHolder event;
  Overlapped overlapped;
  Dword mask = 0;
  Dword error = 0;
};

class CommEventTest : public PortTest {};

// A pseudo-terminal has no modem lines: their events never fire, so only SetCommMask ends the wait.
TEST_F(CommEventTest, BadMasksAndSecondWaitsAreRefusedSetCommMaskOrCancelEndsTheWait) {
  EventWait wait;
  EXPECT_FALSE(wait.Start(port()));  // mask 0
  EXPECT_EQ(wait.error, kErrInvalidParameter);
  EXPECT_FALSE(SetCommMask(port(), 0x2000));
  EXPECT_EQ(GetLastError(), kErrInvalidParameter);
  Dword mask = 0;
  EXPECT_FALSE(GetCommModemStatus(port(), &mask));
  EXPECT_EQ(GetLastError(), kErrNotSupported);

  const Dword modem = kEvCts | kEvDsr | kEvRlsd | kEvRing;
  ASSERT_TRUE(SetCommMask(port(), modem));
  ASSERT_FALSE(wait.Start(port()));
  ASSERT_EQ(wait.error, kErrIoPending);
  EventWait second;
  EXPECT_FALSE(second.Start(port()));
  EXPECT_EQ(second.error, kErrInvalidParameter);
  ASSERT_TRUE(GetCommMask(port(), &mask));
  EXPECT_EQ(mask, modem);
  ASSERT_TRUE(pty_.WriteFar("data is no line change"));
  EXPECT_FALSE(wait.Done(200));
  ASSERT_TRUE(SetCommMask(port(), 0));
  EXPECT_EQ(wait.Ended(port()), 0u);

  ASSERT_TRUE(SetCommMask(port(), kEvRxChar));
  ASSERT_FALSE(wait.Start(port()));
  ASSERT_TRUE(CancelIo(port()));
  ASSERT_TRUE(wait.Done(2000));
  EXPECT_FALSE(GetOverlappedResult(port(), &wait.overlapped, &mask, true));
  EXPECT_EQ(GetLastError(), kErrOperationAborted);
  EXPECT_EQ(wait.mask, 0u) << "a cancelled wait reports no events";
}

// A byte is one event, whether a waiting read takes it at once or it is queued; it waits in the
// history for the next WaitCommEvent, which reports it once.
TEST_F(CommEventTest, EachByteSinceSetCommMaskIsOneEventKeptUntilReported) {
  ASSERT_TRUE(Queue("early"));
  ASSERT_TRUE(SetCommMask(port(), kEvRxChar));
  EventWait wait;
  ASSERT_FALSE(wait.Start(port()));
  EXPECT_FALSE(wait.Done(150)) << "bytes queued before SetCommMask are no event";
  Io read(6);
  ASSERT_FALSE(read.Read(port(), 6));
  ASSERT_TRUE(pty_.WriteFar("z"));
  EXPECT_EQ(read.Finish(port()), Ok("earlyz"));
  EXPECT_EQ(wait.Ended(port()), kEvRxChar);

  ASSERT_TRUE(Queue("a"));
  EventWait first;
  ASSERT_TRUE(first.Start(port()));  // from the history, in the call
  EXPECT_EQ(first.mask, kEvRxChar);
  EventWait second;
  ASSERT_FALSE(second.Start(port()));
  Io later(1);
  later.Read(port(), 1);
  EXPECT_EQ(later.Finish(port()), Ok("a"));
  EXPECT_FALSE(second.Done(150)) << "the history was cleared, and reading a reported byte is no event";
  ASSERT_TRUE(pty_.WriteFar("b"));
  EXPECT_EQ(second.Ended(port()), kEvRxChar);
}

TEST_F(CommEventTest, TxEmptyComesOnlyAfterSomethingWasSentHistoryBitsOutsideANewMaskAreDropped) {
  Io before;  // sent while the mask did not ask for it
  before.Write(port(), "old");
  EXPECT_EQ(before.Finish(port()), Ok("old"));
  ASSERT_TRUE(SetCommMask(port(), kEvTxEmpty));
  EventWait wait;
  ASSERT_FALSE(wait.Start(port()));
  EXPECT_FALSE(wait.Done(150));  // nor does an idle port report it
  Io write;
  write.Write(port(), "hello");
  EXPECT_EQ(write.Finish(port()), Ok("hello"));
  EXPECT_EQ(wait.Ended(port()), kEvTxEmpty);
  EXPECT_EQ(pty_.ReadFar(8, 1000), "oldhello");

  ASSERT_TRUE(SetCommMask(port(), kEvRxChar | kEvTxEmpty));
  for (const Dword new_mask : {kEvRxChar | kEvTxEmpty, kEvRxChar}) {
    Io sent;
    sent.Write(port(), "x");
    ASSERT_TRUE(sent.Done(2000));
    ASSERT_TRUE(Queue("y"));
    ASSERT_TRUE(SetCommMask(port(), new_mask));
    EventWait kept;
    ASSERT_TRUE(kept.Start(port()));
    EXPECT_EQ(kept.mask, new_mask);
    PurgeComm(port(), kPurgeRxClear);
    pty_.DrainFar(20);
  }
}

TEST_F(CommEventTest, InputQueueFillingUpRaisesRx80Full) {
  ASSERT_TRUE(SetCommMask(port(), kEvRxChar | kEvRx80Full));
  ASSERT_TRUE(pty_.WriteFar(std::string(4000, 'f')));
  Dword seen = 0;
  for (const auto start = Clock::now(); (seen & kEvRx80Full) == 0 && MsSince(start) < 3000;) {
    EventWait wait;
    const Dword events = wait.Start(port()) ? wait.mask : wait.Ended(port());
    if (events == kNoEnd) {
      SetCommMask(port(), 0);
      wait.Done(2000);
      break;
    }
    seen |= events;
  }
  EXPECT_EQ(seen, kEvRxChar | kEvRx80Full);
}

// The far end hanging up ends a pending wait with 1167, also while unread bytes have the input
// queue watched by sampling rather than by waiting for the first byte.
TEST_F(CommEventTest, HangUpEndsAWaitWithBytesNobodyTook) {
  ASSERT_TRUE(SetCommMask(port(), kEvRxChar));
  ASSERT_TRUE(Queue("abc"));
  EventWait wait;
  ASSERT_TRUE(wait.Start(port()));  // the arrival, kept in the history
  ASSERT_FALSE(wait.Start(port()));
  ASSERT_EQ(wait.error, kErrIoPending);
  pty_.CloseFar();
  ASSERT_TRUE(wait.Done(3000));
  Dword count = 0;
  EXPECT_FALSE(GetOverlappedResult(port(), &wait.overlapped, &count, true));
  EXPECT_EQ(GetLastError(), kErrDeviceNotConnected);
}

}  // namespace
}  // namespace portwren::testing_util
