// Whom a signal wakes: only threads waiting for that object, and not the port's service thread
// for a request that ended inside its call. A thread's sleeps are counted by the kernel
// (voluntary context switches), so a needless wake-up shows as one more sleep.
#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/os_core.h"
#include "platform/os_sync.h"
#include "port_fixture.h"

namespace portwren::testing_util {
namespace {

std::string TaskFile(Dword tid, const char* name) {
  std::ifstream file("/proc/self/task/" + std::to_string(tid) + "/" + name);
  std::stringstream text;
  text << file.rdbuf();
  return text.str();
}

bool Asleep(Dword tid) {
  const std::string stat = TaskFile(tid, "stat");
  const size_t name_end = stat.rfind(')');
  return name_end != std::string::npos && stat.size() > name_end + 2 && stat[name_end + 2] == 'S';
}

// How often the thread went to sleep so far, taken once it sleeps; -1 if it never does.
long Sleeps(Dword tid) {
  if (!WaitFor([&] { return Asleep(tid); })) return -1;
  const std::string status = TaskFile(tid, "status");
  const size_t at = status.find("voluntary_ctxt_switches:");
  return at == std::string::npos ? -1 : std::stol(status.substr(at + 24));
}

std::set<Dword> Tasks() {
  std::set<Dword> tasks;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
    tasks.insert(static_cast<Dword>(std::stoul(entry.path().filename().string())));
  }
  return tasks;
}

// Each of these wakes the thread that waits for the auto-reset event, and nobody else.
TEST(WakeTest, ASignalWakesOnlyTheThreadsWaitingForItsObject) {
  constexpr int kRounds = 40;
  EventHolder mine(CreateEventA(false, false)), other(CreateEventA(true, false));
  EventHolder quit(CreateEventA(true, false));
  HandleHolder mutex(CreateMutexA(false));
  std::atomic<Dword> bystander_id{0}, taker_id{0};
  std::atomic<int> taken{0};
  std::thread bystander([&] {
    bystander_id = GetCurrentThreadId();
    WaitForSingleObject(quit.get(), 20000);
  });
  std::thread taker([&] {
    taker_id = GetCurrentThreadId();
    const Handle handles[] = {mine.get(), quit.get()};
    while (WaitForMultipleObjects(2, handles, false, 20000) == kWaitObject0) ++taken;
  });
  ASSERT_TRUE(WaitFor([&] { return bystander_id != 0 && taker_id != 0; }));
  const long bystander_before = Sleeps(bystander_id);
  const long taker_before = Sleeps(taker_id);
  for (int round = 0; round < kRounds; ++round) {
    ASSERT_TRUE(WaitFor([&] { return Asleep(bystander_id) && Asleep(taker_id); }));
    SetEvent(mine.get());
    SetEvent(other.get());
    ResetEvent(other.get());
    WaitForSingleObject(mutex.get(), 0);
    ReleaseMutex(mutex.get());
    ASSERT_TRUE(WaitFor([&] { return taken == round + 1; })) << "round " << round;
  }
  const long bystander_after = Sleeps(bystander_id);
  const long taker_after = Sleeps(taker_id);
  SetEvent(quit.get());
  bystander.join();
  taker.join();
  ASSERT_GE(bystander_before, 0);
  EXPECT_LT(bystander_after - bystander_before, kRounds / 8) << "woken for objects it does not wait for";
  EXPECT_GE(taker_after - taker_before, kRounds);
}

// Three threads pass one auto-reset signal round, each waiting in 1 ms waits (one for all of
// its event and an always-set one, one alertable) and holding the signal up to 1.5 ms, so
// signals keep meeting waits that time out: a signal taken on a waiter's behalf just as its
// wait gives up must still reach it.
TEST(WakeTest, NoSignalIsLostToAWaitThatTimesOut) {
  constexpr int kThreads = 3;
  constexpr int kHops = 1000;
  std::vector<EventHolder> token;
  for (int i = 0; i < kThreads; ++i) token.emplace_back(CreateEventA(false, false));
  EventHolder always(CreateEventA(true, true));
  std::atomic<int> hops{0};
  std::atomic<bool> stop{false};
  std::vector<std::thread> ring;
  for (int i = 0; i < kThreads; ++i) {
    ring.emplace_back([&, i] {
      const Handle handles[] = {token[i].get(), always.get()};
      const bool wait_all = i == 1;
      while (!stop) {
        const Dword got = wait_all ? WaitForMultipleObjects(2, handles, true, 1)
                                   : WaitForSingleObjectEx(handles[0], 1, i == 2);
        if (got != kWaitObject0) continue;
        const int hop = ++hops;
        std::this_thread::sleep_for(std::chrono::microseconds(hop * 7919 % 1500));
        SetEvent(token[(i + 1) % kThreads].get());
      }
    });
  }
  SetEvent(token[0].get());
  // A lost signal stops the round for good; a slow machine only slows it.
  int seen = -1;
  auto progress = Clock::now();
  while (hops < kHops && Clock::now() - progress < std::chrono::seconds(5)) {
    if (hops != seen) {
      seen = hops;
      progress = Clock::now();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  const bool went_round = hops >= kHops;
  stop = true;
  for (auto& thread : ring) thread.join();
  EXPECT_TRUE(went_round) << "the signal got lost after " << hops << " hops";
}

class ServiceWakeTest : public PortTest {};

// Reads and writes that end at once signal their events and report as usual, with the service
// thread left asleep.
TEST_F(ServiceWakeTest, RequestsThatEndInTheCallLeaveTheServiceThreadAsleep) {
  constexpr int kRounds = 40;
  port_.reset();
  const std::set<Dword> before = Tasks();
  port_.reset(OpenPort());
  ASSERT_TRUE(port_);
  std::vector<Dword> started;
  for (Dword task : Tasks()) {
    if (before.count(task) == 0) started.push_back(task);
  }
  ASSERT_EQ(started.size(), 1u) << "the port's service thread";
  const Dword service = started[0];

  SetTimeouts(kMaxDword, 0, 0);
  ASSERT_TRUE(Queue(std::string(2 * kRounds, 'r')));
  const long service_before = Sleeps(service);
  for (int round = 0; round < kRounds; ++round) {
    Io read, write;
    ASSERT_TRUE(read.Read(port(), 2)) << GetLastError();
    EXPECT_EQ(read.issued_done, 2u);
    EXPECT_EQ(read.Finish(port(), 0), Ok("rr"));
    ASSERT_TRUE(write.Write(port(), "wr")) << GetLastError();
    EXPECT_EQ(write.issued_done, 2u);
    EXPECT_EQ(write.Finish(port(), 0), Ok("wr"));
  }
  const long service_after = Sleeps(service);
  ASSERT_GE(service_before, 0);
  EXPECT_LT(service_after - service_before, kRounds / 8);
  std::string sent;
  for (int round = 0; round < kRounds; ++round) sent += "wr";
  EXPECT_EQ(pty_.ReadFar(2 * kRounds, 2000), sent);
}

}  // namespace
}  // namespace portwren::testing_util
