#include "io/InputBytes.h"

#include "io/FileError.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>

namespace kelvo {

namespace {

std::atomic<bool> gStop{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler sets it");

// A pipe is opened without waiting for its writer: that wait could not be ended from elsewhere.
int Open(const std::string& name) {
  if (name == "-") return ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0);
  return ::open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
}

} // namespace

InputBytes::InputBytes(const std::string& name) : fName(name), fDescriptor(Open(name)) {
  if (fDescriptor < 0) throw FileError(name + ": cannot be opened: " + std::strerror(errno));
  struct stat status {};
  if (::fstat(fDescriptor, &status) == 0 && S_ISDIR(status.st_mode)) {
    ::close(fDescriptor);
    throw FileError(name + ": is a folder, a file of hits is expected");
  }
  fIsFile = S_ISREG(status.st_mode);
  if (fIsFile) fSize = static_cast<double>(status.st_size);
  try {
    for (std::size_t n = 1; n > 0 && fHeadSize < sizeof fHead; fHeadSize += n)
      n = ReadOn(fHead + fHeadSize, sizeof fHead - fHeadSize);
  } catch (...) {
    ::close(fDescriptor);
    throw;
  }
}

InputBytes::~InputBytes() {
  ::close(fDescriptor);
}

std::size_t InputBytes::Read(char* buffer, std::size_t size) {
  if (fHeadUsed == fHeadSize) return ReadOn(buffer, size);
  const std::size_t n = std::min(size, fHeadSize - fHeadUsed);
  std::memcpy(buffer, fHead + fHeadUsed, n);
  fHeadUsed += n;
  return n;
}

std::size_t InputBytes::ReadOn(char* buffer, std::size_t size) {
  ssize_t n = 0;
  do {
    if (!fIsFile) WaitForPipe();
    n = ::read(fDescriptor, buffer, size);
  } while (n < 0 && (errno == EAGAIN || errno == EINTR));
  if (n < 0) throw FileError(fName + ": cannot be read: " + std::strerror(errno));
  fRead += static_cast<double>(n);
  return static_cast<std::size_t>(n);
}

void InputBytes::WaitForPipe() const {
  constexpr int kLookUp = 100; // ms
  pollfd wanted{fDescriptor, POLLIN, 0};
  while (::poll(&wanted, 1, kLookUp) <= 0 || wanted.revents == 0)
    if (gStop) throw FileError(fName + ": reading was interrupted");
}

void InputBytes::StopWaiting() {
  gStop = true;
}

double InputBytes::Fraction() const {
  return fSize > 0 ? std::min(1., fRead / fSize) : 0;
}

} // namespace kelvo
