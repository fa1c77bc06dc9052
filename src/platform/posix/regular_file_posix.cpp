#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>

#include "platform/posix/errno_map.h"
#include "platform/posix/regular_file.h"

namespace portwren::os::posix {

namespace {

class RegularFile : public IoObject {
 public:
  RegularFile(int fd, bool overlapped, bool can_read, bool can_write)
      : IoObject(overlapped, can_read, can_write), fd_(fd) {}
  ~RegularFile() override { CloseFd(); }

  void OnClose() override { CloseFd(); }

  bool Read(void* buffer, Dword size, Dword* done, const CompletionTarget& target) override {
    if (!can_read()) return Fail(kErrAccessDenied);
    std::lock_guard lock(mu_);
    if (fd_ < 0) return Fail(kErrInvalidHandle);
    target.Begin();
    ssize_t got;
    do {
      got = UsesOffset(target) ? pread(fd_, buffer, size, Offset(target)) : read(fd_, buffer, size);
    } while (got < 0 && errno == EINTR);
    if (got < 0) return FailRequest(target, WinErrorFromErrno(errno));
    // An overlapped read at the end of the file fails; a synchronous one returns 0 bytes.
    if (got == 0 && size > 0 && overlapped()) return FailRequest(target, kErrHandleEof);
    return Succeed(target, static_cast<Dword>(got), done);
  }

  bool Write(const void* buffer, Dword size, Dword* done, const CompletionTarget& target) override {
    if (!can_write()) return Fail(kErrAccessDenied);
    std::lock_guard lock(mu_);
    if (fd_ < 0) return Fail(kErrInvalidHandle);
    target.Begin();
    const auto* bytes = static_cast<const char*>(buffer);
    Dword written = 0;
    // A file write either takes every byte or fails.
    while (written < size) {
      const ssize_t put = UsesOffset(target)
                              ? pwrite(fd_, bytes + written, size - written, Offset(target) + written)
                              : write(fd_, bytes + written, size - written);
      if (put < 0 && errno == EINTR) continue;
      if (put <= 0) {
        if (done != nullptr) *done = written;
        return FailRequest(target, put < 0 ? WinErrorFromErrno(errno) : kErrDiskFull);
      }
      written += static_cast<Dword>(put);
    }
    return Succeed(target, written, done);
  }

  bool Seek(int64_t distance, Dword move_method, int64_t* position) override {
    int whence;
    switch (move_method) {
      case kFileBegin:
        whence = SEEK_SET;
        break;
      case kFileCurrent:
        whence = SEEK_CUR;
        break;
      case kFileEnd:
        whence = SEEK_END;
        break;
      default:
        return Fail(kErrInvalidParameter);
    }
    std::lock_guard lock(mu_);
    const off_t result = lseek(fd_, static_cast<off_t>(distance), whence);
    if (result < 0) return FailWithErrno(errno);
    *position = result;
    return true;
  }

  bool Truncate() override {
    std::lock_guard lock(mu_);
    if (!can_write()) return Fail(kErrAccessDenied);
    const off_t position = lseek(fd_, 0, SEEK_CUR);
    if (position < 0 || ftruncate(fd_, position) != 0) return FailWithErrno(errno);
    return true;
  }

 private:
  // An overlapped handle has no file pointer: its Overlapped says where.
  bool UsesOffset(const CompletionTarget& target) const {
    return overlapped() && target.overlapped != nullptr;
  }
  static off_t Offset(const CompletionTarget& target) {
    return static_cast<off_t>((static_cast<uint64_t>(target.overlapped->OffsetHigh) << 32) |
                              target.overlapped->Offset);
  }

  static bool Succeed(const CompletionTarget& target, Dword count, Dword* done) {
    if (done != nullptr) *done = count;
    target.Finish(kStatusSuccess, count, true);
    return true;
  }

  static bool FailRequest(const CompletionTarget& target, Dword error) {
    target.Finish(StatusFromError(error), 0, true);
    return Fail(error);
  }

  void CloseFd() {
    std::lock_guard lock(mu_);
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
  }

  std::mutex mu_;
  int fd_;
};

}  // namespace

std::shared_ptr<IoObject> MakeRegularFile(int fd, bool overlapped, bool can_read, bool can_write) {
  return std::make_shared<RegularFile>(fd, overlapped, can_read, can_write);
}

}  // namespace portwren::os::posix
