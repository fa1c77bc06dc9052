// A serial line with faults on order: forwards bytes both ways between two ends and, at positions
// given on the command line, flips a bit, drops, inserts or duplicates a byte, or holds the bytes
// back for a while. Positions count the bytes that came in from one side; "cN" positions fall in
// the N-th echo chunk of that stream (its 12-byte head declares the length), so a campaign can
// hit a chunk without knowing where it lies on the wire.
//
//   fault_relay --pty LINK_A LINK_B [options]   two pseudo-terminal pairs: programs open the
//                                               links, the relay holds the other sides
//   fault_relay --fds FD_A FD_B [options]       two descriptors it was given
// Options:
//   --fault KIND@POS[/ba]   KIND: flip[:BIT] drop insert[:BYTE] dup; POS: N (byte N of the
//                           stream), cN (a byte of chunk N picked from the seed) or cN+K (byte K
//                           of chunk N). Faults hit the A-to-B stream unless /ba is added.
//   --seed N                for picked bytes, bits and inserted values (default 1)
//   --delay-ms N            every byte waits N ms before it goes on (both ways)
//   --stdin-ends            end when standard input ends (tests hold a pipe)
// It prints "relay ready A=... B=..." once it forwards, and one "relay: ..." line per fault.
// SIGINT and SIGTERM end it; the links it made go with it.
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t kHeadSize = 12;
constexpr size_t kQueueLimit = 256 * 1024;  // stop reading a side while this much waits for the other

volatile sig_atomic_t g_stop = 0;
void OnStopSignal(int) {
  g_stop = 1;
}

enum class Kind { kFlip, kDrop, kInsert, kDup };

struct Fault {
  Kind kind = Kind::kFlip;
  int value = -1;             // bit to flip or byte to insert; -1: from the seed
  bool reverse = false;       // B-to-A stream
  uint64_t position = 0;      // absolute, once known
  bool known = false;         // position resolved
  int64_t chunk = -1;         // chunk number for cN forms
  int64_t chunk_offset = -1;  // K of cN+K; -1: picked
  bool done = false;
  std::string text;  // as given
};

// The seed's generator: xorshift, so a campaign repeats exactly.
struct Random {
  uint64_t state;
  uint32_t Next() {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    return static_cast<uint32_t>(state >> 32);
  }
};

const char* KindName(Kind kind) {
  switch (kind) {
    case Kind::kFlip:
      return "flip";
    case Kind::kDrop:
      return "drop";
    case Kind::kInsert:
      return "insert";
    case Kind::kDup:
      return "dup";
  }
  return "?";
}

bool ParseNumber(const char* text, uint64_t* out) {
  if (text == nullptr || *text == 0) return false;
  char* end = nullptr;
  errno = 0;
  const unsigned long long value = std::strtoull(text, &end, 0);
  if (errno != 0 || *end != 0 || text[0] == '-') return false;
  *out = value;
  return true;
}

std::optional<Fault> ParseFault(const std::string& text) {
  Fault fault;
  fault.text = text;
  std::string spec = text;
  if (spec.size() > 3 && spec.compare(spec.size() - 3, 3, "/ba") == 0) {
    fault.reverse = true;
    spec.resize(spec.size() - 3);
  }
  const size_t at = spec.find('@');
  if (at == std::string::npos) return std::nullopt;
  std::string kind = spec.substr(0, at);
  const std::string where = spec.substr(at + 1);
  if (const size_t colon = kind.find(':'); colon != std::string::npos) {
    uint64_t value = 0;
    if (!ParseNumber(kind.c_str() + colon + 1, &value) || value > 255) return std::nullopt;
    fault.value = static_cast<int>(value);
    kind.resize(colon);
  }
  if (kind == "flip") {
    fault.kind = Kind::kFlip;
    if (fault.value > 7) return std::nullopt;
  } else if (kind == "drop" && fault.value < 0) {
    fault.kind = Kind::kDrop;
  } else if (kind == "insert") {
    fault.kind = Kind::kInsert;
  } else if (kind == "dup" && fault.value < 0) {
    fault.kind = Kind::kDup;
  } else {
    return std::nullopt;
  }
  uint64_t number = 0;
  if (!where.empty() && where[0] == 'c') {
    const size_t plus = where.find('+');
    if (!ParseNumber(where.substr(1, plus == std::string::npos ? std::string::npos : plus - 1).c_str(),
                     &number)) {
      return std::nullopt;
    }
    fault.chunk = static_cast<int64_t>(number);
    if (plus != std::string::npos) {
      if (!ParseNumber(where.c_str() + plus + 1, &number)) return std::nullopt;
      fault.chunk_offset = static_cast<int64_t>(number);
    }
  } else {
    if (!ParseNumber(where.c_str(), &number)) return std::nullopt;
    fault.position = number;
    fault.known = true;
  }
  return fault;
}

// One direction: what came in, the chunk it belongs to, what waits to go out.
struct Stream {
  const char* name = "";
  int in_fd = -1;
  int out_fd = -1;
  uint64_t offset = 0;  // input bytes seen
  // Chunk tracking over the input.
  uint64_t chunk = 0;
  uint64_t chunk_start = 0;
  uint32_t head_fill = 0;
  uint8_t head[kHeadSize] = {};
  uint64_t body_left = 0;
  struct Block {
    Clock::time_point due;
    std::vector<uint8_t> bytes;
  };
  std::deque<Block> queue;
  size_t queued = 0;
  std::vector<Fault*> faults;
};

uint64_t ChunkLength(const uint8_t* head) {
  const uint32_t body =
      uint32_t{head[4]} | (uint32_t{head[5]} << 8) | (uint32_t{head[6]} << 16) | (uint32_t{head[7]} << 24);
  return uint64_t{body} + kHeadSize;
}

// Chunk faults get their byte as soon as the chunk's start, or its length, is known. A picked
// byte that lies in a part of the head already passed on lands on the next byte instead.
void ResolveChunkFaults(Stream& s, bool head_complete, Random& random) {
  for (Fault* fault : s.faults) {
    if (fault->known || fault->chunk != static_cast<int64_t>(s.chunk)) continue;
    if (fault->chunk_offset >= 0) {
      fault->position = s.chunk_start + static_cast<uint64_t>(fault->chunk_offset);
      fault->known = true;
    } else if (head_complete) {
      const uint64_t length = ChunkLength(s.head);
      fault->position = s.chunk_start + random.Next() % length;
      if (fault->position < s.offset) fault->position = s.offset;
      fault->known = true;
    }
  }
}

// Follows the chunk structure of one input byte; the byte's offset is s.offset.
void TrackChunk(Stream& s, uint8_t byte, Random& random) {
  if (s.head_fill == 0 && s.body_left == 0) {
    s.chunk_start = s.offset;
    ResolveChunkFaults(s, false, random);
  }
  if (s.head_fill < kHeadSize) {
    s.head[s.head_fill++] = byte;
    if (s.head_fill == kHeadSize) {
      s.body_left = ChunkLength(s.head) - kHeadSize;
      ResolveChunkFaults(s, true, random);
      if (s.body_left == 0) {
        s.head_fill = 0;
        ++s.chunk;
      }
    }
    return;
  }
  if (--s.body_left == 0) {
    s.head_fill = 0;
    ++s.chunk;
  }
}

void Report(const Stream& s, const Fault& fault, uint64_t position, const char* what) {
  std::printf("relay: %s %s at byte %llu of %s (%s)\n", KindName(fault.kind), what,
              static_cast<unsigned long long>(position), s.name, fault.text.c_str());
  std::fflush(stdout);
}

void Take(Stream& s, const uint8_t* bytes, size_t count, Random& random, int delay_ms) {
  Stream::Block block;
  block.due = Clock::now() + std::chrono::milliseconds(delay_ms);
  block.bytes.reserve(count + 4);
  for (size_t i = 0; i < count; ++i, ++s.offset) {
    const uint8_t byte = bytes[i];
    TrackChunk(s, byte, random);
    bool keep = true;
    uint8_t out = byte;
    for (Fault* fault : s.faults) {
      if (fault->done || !fault->known || fault->position != s.offset) continue;
      fault->done = true;
      char what[64];
      switch (fault->kind) {
        case Kind::kFlip: {
          const int bit = fault->value >= 0 ? fault->value : static_cast<int>(random.Next() % 8);
          out = static_cast<uint8_t>(out ^ (1u << bit));
          std::snprintf(what, sizeof what, "bit %d, 0x%02X to 0x%02X,", bit, byte, out);
          break;
        }
        case Kind::kDrop:
          keep = false;
          std::snprintf(what, sizeof what, "0x%02X", byte);
          break;
        case Kind::kInsert: {
          const auto value = static_cast<uint8_t>(fault->value >= 0 ? fault->value : random.Next() & 0xFF);
          block.bytes.push_back(value);
          std::snprintf(what, sizeof what, "0x%02X before", value);
          break;
        }
        case Kind::kDup:
          block.bytes.push_back(byte);
          std::snprintf(what, sizeof what, "0x%02X", byte);
          break;
      }
      Report(s, *fault, s.offset, what);
    }
    if (keep) block.bytes.push_back(out);
  }
  if (block.bytes.empty()) return;
  s.queued += block.bytes.size();
  s.queue.push_back(std::move(block));
}

// False when the far side is gone for good.
bool Send(Stream& s) {
  const auto now = Clock::now();
  while (!s.queue.empty() && s.queue.front().due <= now) {
    std::vector<uint8_t>& bytes = s.queue.front().bytes;
    const ssize_t put = write(s.out_fd, bytes.data(), bytes.size());
    if (put < 0) return errno == EAGAIN || errno == EINTR;
    bytes.erase(bytes.begin(), bytes.begin() + put);
    s.queued -= static_cast<size_t>(put);
    if (!bytes.empty()) return true;
    s.queue.pop_front();
  }
  return true;
}

struct PtyEnd {
  int master = -1;
  int slave = -1;  // held so the program's closes and reopens never hang the line up
  std::string link;
};

bool MakePty(PtyEnd& end, const std::string& link) {
  termios raw{};
  cfmakeraw(&raw);
  char name[256] = {};
  if (openpty(&end.master, &end.slave, name, &raw, nullptr) != 0) return false;
  fcntl(end.master, F_SETFD, FD_CLOEXEC);
  fcntl(end.slave, F_SETFD, FD_CLOEXEC);
  unlink(link.c_str());
  if (symlink(name, link.c_str()) != 0) {
    std::fprintf(stderr, "relay: cannot make link %s: %s\n", link.c_str(), std::strerror(errno));
    return false;
  }
  end.link = link;
  return true;
}

int Usage() {
  std::fprintf(stderr,
               "usage: fault_relay (--pty LINK_A LINK_B | --fds FD_A FD_B) [--fault KIND@POS[/ba]]... "
               "[--seed N] [--delay-ms N] [--stdin-ends]\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<Fault> faults;
  faults.reserve(static_cast<size_t>(argc));
  uint64_t seed = 1;
  uint64_t delay_ms = 0;
  bool stdin_ends = false;
  PtyEnd a, b;
  int fd_a = -1, fd_b = -1;
  std::string link_a, link_b;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    const bool has_next = i + 1 < argc;
    if (arg == "--pty" && i + 2 < argc) {
      link_a = argv[++i];
      link_b = argv[++i];
    } else if (arg == "--fds" && i + 2 < argc) {
      uint64_t first = 0, second = 0;
      if (!ParseNumber(argv[i + 1], &first) || !ParseNumber(argv[i + 2], &second)) return Usage();
      fd_a = static_cast<int>(first);
      fd_b = static_cast<int>(second);
      i += 2;
    } else if (arg == "--fault" && has_next) {
      std::optional<Fault> fault = ParseFault(argv[++i]);
      if (!fault) {
        std::fprintf(stderr, "relay: bad fault '%s'\n", argv[i]);
        return Usage();
      }
      faults.push_back(*fault);
    } else if (arg == "--seed" && has_next) {
      if (!ParseNumber(argv[++i], &seed)) return Usage();
    } else if (arg == "--delay-ms" && has_next) {
      if (!ParseNumber(argv[++i], &delay_ms) || delay_ms > 600000) return Usage();
    } else if (arg == "--stdin-ends") {
      stdin_ends = true;
    } else {
      return Usage();
    }
  }
  if (link_a.empty() == (fd_a < 0)) return Usage();
  if (!link_a.empty()) {
    if (!MakePty(a, link_a) || !MakePty(b, link_b)) return 1;
    fd_a = a.master;
    fd_b = b.master;
  }
  for (const int fd : {fd_a, fd_b}) {
    if (fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK) != 0) {
      std::fprintf(stderr, "relay: descriptor %d: %s\n", fd, std::strerror(errno));
      return 1;
    }
  }
  struct sigaction action {};
  action.sa_handler = OnStopSignal;
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
  signal(SIGPIPE, SIG_IGN);

  Random random{seed * 0x9E3779B97F4A7C15ull + 1};
  Stream streams[2];
  streams[0].name = "a>b";
  streams[0].in_fd = streams[1].out_fd = fd_a;
  streams[1].name = "b>a";
  streams[1].in_fd = streams[0].out_fd = fd_b;
  for (Fault& fault : faults) streams[fault.reverse ? 1 : 0].faults.push_back(&fault);
  std::printf("relay ready A=%s B=%s\n", link_a.empty() ? std::to_string(fd_a).c_str() : link_a.c_str(),
              link_b.empty() ? std::to_string(fd_b).c_str() : link_b.c_str());
  std::fflush(stdout);

  std::vector<uint8_t> buffer(65536);
  int status = 0;
  while (!g_stop) {
    pollfd fds[3];
    nfds_t count = 0;
    int timeout = 100;
    for (Stream& s : streams) {
      fds[count++] = {s.in_fd, static_cast<short>(s.queued < kQueueLimit ? POLLIN : 0), 0};
      if (!s.queue.empty()) {
        const auto wait =
            std::chrono::duration_cast<std::chrono::milliseconds>(s.queue.front().due - Clock::now());
        timeout = wait.count() <= 0 ? 5 : std::min<int>(timeout, static_cast<int>(wait.count()) + 1);
      }
    }
    if (stdin_ends) fds[count++] = {STDIN_FILENO, POLLIN, 0};
    if (poll(fds, count, timeout) < 0 && errno != EINTR) break;
    if (stdin_ends && (fds[2].revents & (POLLIN | POLLHUP)) != 0) {
      char sink[64];
      if (read(STDIN_FILENO, sink, sizeof sink) <= 0) break;
    }
    for (int i = 0; i < 2; ++i) {
      Stream& s = streams[i];
      if ((fds[i].revents & POLLIN) != 0) {
        const ssize_t got = read(s.in_fd, buffer.data(), buffer.size());
        if (got > 0) Take(s, buffer.data(), static_cast<size_t>(got), random, static_cast<int>(delay_ms));
      }
      if (!Send(s)) {
        std::fprintf(stderr, "relay: %s: %s\n", s.name, std::strerror(errno));
        status = 1;
        g_stop = 1;
      }
    }
  }
  for (const Fault& fault : faults) {
    if (!fault.done) std::printf("relay: fault %s not reached\n", fault.text.c_str());
  }
  if (!a.link.empty()) unlink(a.link.c_str());
  if (!b.link.empty()) unlink(b.link.c_str());
  return status;
}
