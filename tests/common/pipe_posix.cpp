// The pipe with POSIX calls; standard input is replaced in a child process.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "common/pipe.h"

namespace portwren::testkit {

Pipe::Pipe() {
  int fds[2];
  if (pipe(fds) != 0) return;
  reader_ = fds[0];
  writer_ = fds[1];
}

Pipe::~Pipe() {
  CloseWriter();
  if (reader_ >= 0) close(reader_);
}

long Pipe::Read(unsigned char* buffer, size_t size) const {
  return static_cast<long>(read(reader_, buffer, size));
}

bool Pipe::Write(const std::string& bytes) const {
  size_t sent = 0;
  while (writer_ >= 0 && sent < bytes.size()) {
    const ssize_t put = write(writer_, bytes.data() + sent, bytes.size() - sent);
    if (put <= 0) return false;
    sent += static_cast<size_t>(put);
  }
  return sent == bytes.size();
}

void Pipe::CloseWriter() {
  if (writer_ >= 0) close(writer_);
  writer_ = -1;
}

std::string Pipe::RunOnStandardInput(const std::function<std::string()>& body) {
  Pipe output;
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child < 0) return "<fork failed>";
  if (child == 0) {
    dup2(reader_, STDIN_FILENO);
    output.Write(body());
    _exit(0);
  }
  output.CloseWriter();
  std::string result;
  unsigned char chunk[256];
  for (long got; (got = output.Read(chunk, sizeof chunk)) > 0;)
    result.append(reinterpret_cast<char*>(chunk), got);
  int status = 0;
  if (waitpid(child, &status, 0) != child || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    result += "<child failed>";
  }
  return result;
}

}  // namespace portwren::testkit
