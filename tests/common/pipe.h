// An anonymous pipe of the system for console input tests: the test writes, the code under
// test reads (through Read, or as the program's standard input).
#pragma once

#include <functional>
#include <string>

namespace portwren::testkit {

class Pipe {
 public:
  Pipe();
  ~Pipe();
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;

  bool ok() const { return reader_ >= 0; }
  int reader_fd() const { return reader_; }  // a C runtime descriptor on Windows
  // Bytes from the read end: their count, 0 at the end of input, -1 on failure.
  long Read(unsigned char* buffer, size_t size) const;
  // Writes all bytes (a full pipe waits for its reader).
  bool Write(const std::string& bytes) const;
  void CloseWriter();

  // Runs body with the read end as the process's standard input and returns what it returned.
  // Where the system can fork, body runs in a child process, so that the test runner's own
  // standard input is left alone; elsewhere standard input is put back afterwards. Either
  // way, the program's console may be made only once per process.
  std::string RunOnStandardInput(const std::function<std::string()>& body);

 private:
  int reader_ = -1;
  int writer_ = -1;
};

}  // namespace portwren::testkit
