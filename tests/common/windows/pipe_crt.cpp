// The pipe with the C runtime's calls (a system pipe underneath); swapping descriptor 0 also
// swaps the process's standard input handle, which is what the program's console reads.
#include <fcntl.h>
#include <io.h>

#include <cstdio>

#include "common/pipe.h"

namespace portwren::testkit {

Pipe::Pipe() {
  int fds[2];
  if (_pipe(fds, 65536, _O_BINARY | _O_NOINHERIT) != 0) return;
  reader_ = fds[0];
  writer_ = fds[1];
}

Pipe::~Pipe() {
  CloseWriter();
  if (reader_ >= 0) _close(reader_);
}

long Pipe::Read(unsigned char* buffer, size_t size) const {
  return _read(reader_, buffer, static_cast<unsigned>(size));
}

bool Pipe::Write(const std::string& bytes) const {
  size_t sent = 0;
  while (writer_ >= 0 && sent < bytes.size()) {
    const int put = _write(writer_, bytes.data() + sent, static_cast<unsigned>(bytes.size() - sent));
    if (put <= 0) return false;
    sent += static_cast<size_t>(put);
  }
  return sent == bytes.size();
}

void Pipe::CloseWriter() {
  if (writer_ >= 0) _close(writer_);
  writer_ = -1;
}

std::string Pipe::RunOnStandardInput(const std::function<std::string()>& body) {
  const int saved = _dup(0);  // -1 when there was none: nothing to put back
  if (_dup2(reader_, 0) != 0) return "<no standard input>";
  std::string result = body();
  if (saved >= 0) {
    _dup2(saved, 0);
    _close(saved);
  }
  return result;
}

}  // namespace portwren::testkit
