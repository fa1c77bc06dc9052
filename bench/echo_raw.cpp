// The yardstick of the echo benchmark: the least an echo over a serial line can do. The server
// sends back what it reads; the client writes the same well-formed echo chunk over and over from
// one thread, never more than the in-flight cap ahead of what came back, and counts the echo in
// another (in lock-step, in the same one). Nothing is built per chunk, nothing checked, nothing
// logged, and nothing waits by spinning.
//
//   echo_raw server PORT [--buffer BYTES]        echoes until the line hangs up or SIGTERM
//   echo_raw client PORT --chunk N --bytes TOTAL [--cap BYTES] [--lockstep] [--delay-ms MS]
//
// With --pty, PORT is a link that it makes to the far end of a new pseudo-terminal pair, whose
// near end it uses itself: a direct line to a program that opens the link. --delay-ms gives that
// program time to start before the client sends.
//
// The client prints one line: "raw: bytes=B seconds=S mbps=M round_trips_per_s=R cpu_s=C"; with
// --lockstep it times each round trip (write started to echo complete) and then prints the same
// latency lines as portwren's mild-mode client, the first "Round trip latency (us): count ...".
// The server prints "raw server: bytes=B cpu_s=C" when it ends. CPU is user + system time.
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/resource.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "echo/chunk_format.h"
#include "echo/latency_stats.h"

namespace {

volatile sig_atomic_t g_stop = 0;
void OnStop(int) {
  g_stop = 1;
}

double CpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

// The near end of a new pair; the far end stays open here too, so the program that opens the
// link may close and reopen it without hanging the line up.
int OpenPty(const char* link) {
  termios raw{};
  cfmakeraw(&raw);
  int master = -1, slave = -1;
  char name[256] = {};
  if (openpty(&master, &slave, name, &raw, nullptr) != 0) {
    std::fprintf(stderr, "echo_raw: openpty: %s\n", std::strerror(errno));
    return -1;
  }
  unlink(link);
  if (symlink(name, link) != 0) {
    std::fprintf(stderr, "echo_raw: %s: %s\n", link, std::strerror(errno));
    return -1;
  }
  return master;
}

int OpenRaw(const char* path) {
  const int fd = open(path, O_RDWR | O_NOCTTY);
  if (fd < 0) {
    std::fprintf(stderr, "echo_raw: %s: %s\n", path, std::strerror(errno));
    return -1;
  }
  termios raw{};
  if (tcgetattr(fd, &raw) == 0) {
    cfmakeraw(&raw);
    tcsetattr(fd, TCSANOW, &raw);
  }
  tcflush(fd, TCIOFLUSH);
  return fd;
}

// One thread, non-blocking: reads while the buffer has room, writes while it holds bytes.
int Server(int fd, size_t buffer_size) {
  fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
  std::vector<char> ring(buffer_size);
  size_t head = 0, fill = 0;
  uint64_t total = 0;
  while (!g_stop) {
    pollfd wait{fd, 0, 0};
    if (fill < ring.size()) wait.events |= POLLIN;
    if (fill > 0) wait.events |= POLLOUT;
    if (poll(&wait, 1, 200) < 0 && errno != EINTR) break;
    if ((wait.revents & (POLLHUP | POLLERR)) != 0) break;
    if ((wait.revents & POLLIN) != 0) {
      const size_t tail = (head + fill) % ring.size();
      const size_t room = std::min(ring.size() - fill, ring.size() - tail);
      const ssize_t got = read(fd, ring.data() + tail, room);
      if (got > 0) fill += static_cast<size_t>(got);
    }
    if ((wait.revents & POLLOUT) != 0 || fill > 0) {
      const size_t run = std::min(fill, ring.size() - head);
      const ssize_t put = write(fd, ring.data() + head, run);
      if (put > 0) {
        head = (head + static_cast<size_t>(put)) % ring.size();
        fill -= static_cast<size_t>(put);
        total += static_cast<uint64_t>(put);
      }
    }
  }
  std::printf("raw server: bytes=%llu cpu_s=%.3f\n", static_cast<unsigned long long>(total), CpuSeconds());
  return 0;
}

// Waits up to 200 ms for bytes and reads them; false when the line failed or ended.
bool ReadSome(int fd, std::vector<char>& in, uint64_t* got_bytes) {
  *got_bytes = 0;
  pollfd wait{fd, POLLIN, 0};
  if (poll(&wait, 1, 200) == 0) return true;
  const ssize_t got = read(fd, in.data(), in.size());
  if (got > 0) *got_bytes = static_cast<uint64_t>(got);
  return got > 0 || (got < 0 && errno == EINTR);
}

bool WriteAll(int fd, const char* data, size_t size) {
  for (size_t done = 0; done < size;) {
    const ssize_t put = write(fd, data + done, size - done);
    if (put > 0) {
      done += static_cast<size_t>(put);
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

// Nobody waits by spinning: a spinning thread keeps a CPU from the far end's threads, and a thread
// woken on a busy CPU may wait for the scheduler's next tick (4 ms here). In lock-step the writer
// reads the echo itself; otherwise a reader thread counts it and wakes the writer at the cap.
int Client(int fd, size_t chunk, uint64_t total, size_t cap, bool lockstep) {
  std::mutex mutex;
  std::condition_variable more;
  uint64_t received = 0;  // guarded by mutex
  bool reader_ended = false;
  // One well-formed echo chunk, sent again and again, so portwren's server can be the far end.
  std::vector<char> out(portwren::ChunkBufferSize(static_cast<uint32_t>(chunk)));
  uint32_t sequence = 0;
  portwren::BuildChunk(reinterpret_cast<uint8_t*>(out.data()), static_cast<uint32_t>(chunk), 0,
                       portwren::ChunkBodySource{nullptr, &sequence});
  const auto start = std::chrono::steady_clock::now();
  std::thread reader;
  if (!lockstep) {
    reader = std::thread([&] {
      std::vector<char> in(65536);
      for (bool going = true; going && !g_stop;) {
        uint64_t got = 0;
        going = ReadSome(fd, in, &got);
        std::lock_guard lock(mutex);
        received += got;
        going = going && received < total;
        if (got > 0 || !going) more.notify_one();
      }
      std::lock_guard lock(mutex);
      reader_ended = true;
      more.notify_one();
    });
  }
  uint64_t sent = 0;
  std::vector<uint32_t> round_trips_us;
  std::vector<char> in(65536);
  while (sent < total && !g_stop) {
    const size_t size = static_cast<size_t>(std::min<uint64_t>(chunk, total - sent));
    if (!lockstep) {
      std::unique_lock lock(mutex);
      while (sent + size - received > cap && !reader_ended && !g_stop)
        more.wait_for(lock, std::chrono::milliseconds(200));
      if (reader_ended) break;
    }
    const int64_t pushed_us = portwren::LatencyClockUs();
    if (!WriteAll(fd, out.data(), size)) g_stop = 1;
    sent += size;
    if (lockstep) {
      // In lock-step the chunk's echo is all that can come back next.
      bool going = true;
      while (received < sent && going && !g_stop) {
        uint64_t got = 0;
        going = ReadSome(fd, in, &got);
        received += got;
      }
      if (received >= sent)
        round_trips_us.push_back(static_cast<uint32_t>(portwren::LatencyClockUs() - pushed_us));
      if (!going) break;
    }
  }
  if (reader.joinable()) reader.join();
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  const double chunks = static_cast<double>((total + chunk - 1) / chunk);
  std::printf("raw: bytes=%llu seconds=%.3f mbps=%.2f round_trips_per_s=%.0f cpu_s=%.3f\n",
              static_cast<unsigned long long>(received), seconds,
              static_cast<double>(received) / seconds / 1e6, chunks / seconds, CpuSeconds());
  if (lockstep) {
    for (const std::string& line : portwren::LatencyLines(portwren::SummarizeLatency(round_trips_us))) {
      std::printf("%s\n", line.c_str());
    }
  }
  return received >= total ? 0 : 1;
}

int Usage() {
  std::fprintf(
      stderr,
      "usage: echo_raw server PORT [--buffer BYTES]\n"
      "       echo_raw client PORT --chunk N --bytes TOTAL [--cap BYTES] [--lockstep] [--delay-ms MS]\n"
      "       (either with --pty: PORT is a link made to a new pseudo-terminal)\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return Usage();
  const std::string mode = argv[1];
  size_t chunk = 16000, cap = 0, buffer = 0;
  uint64_t total = 0;
  bool lockstep = false, pty = false;
  unsigned delay_ms = 0;
  for (int i = 3; i < argc; ++i) {
    const std::string arg = argv[i];
    const bool has_value = i + 1 < argc;
    if (arg == "--chunk" && has_value) {
      chunk = std::strtoull(argv[++i], nullptr, 0);
    } else if (arg == "--bytes" && has_value) {
      total = std::strtoull(argv[++i], nullptr, 0);
    } else if (arg == "--cap" && has_value) {
      cap = std::strtoull(argv[++i], nullptr, 0);
    } else if (arg == "--buffer" && has_value) {
      buffer = std::strtoull(argv[++i], nullptr, 0);
    } else if (arg == "--lockstep") {
      lockstep = true;
    } else if (arg == "--pty") {
      pty = true;
    } else if (arg == "--delay-ms" && has_value) {
      delay_ms = static_cast<unsigned>(std::strtoul(argv[++i], nullptr, 0));
    } else {
      return Usage();
    }
  }
  if (chunk < portwren::kEchoHeadSize || chunk > 8024012) return Usage();
  struct sigaction stop {};
  stop.sa_handler = OnStop;  // no SA_RESTART: a blocked read or write gives up
  sigaction(SIGTERM, &stop, nullptr);
  sigaction(SIGINT, &stop, nullptr);
  const int fd = pty ? OpenPty(argv[2]) : OpenRaw(argv[2]);
  if (fd < 0) return 1;
  if (pty) {
    std::printf("echo_raw ready\n");
    std::fflush(stdout);
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(delay_ms));
  if (mode == "server") return Server(fd, buffer > 0 ? buffer : 2 * chunk);
  if (mode == "client" && total > 0) return Client(fd, chunk, total, cap > 0 ? cap : 2 * chunk, lockstep);
  return Usage();
}
