// To be loaded before the program (LD_PRELOAD): lets one call of the system fail, as a disk or a
// quota would. KELVO_FAIL is "CALL N ERROR": the Nth write (to a file), fsync, rename or open (of a
// file to be written) from the first, 0, on gives the error of that number.

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

/// Whether this call fails; sets errno.
bool Fails(const char* call) {
  static std::atomic<int> calls{0};
  static const char* const plan = std::getenv("KELVO_FAIL");
  char name[16];
  int first = 0, error = 0;
  if (!plan || std::sscanf(plan, "%15s %d %d", name, &first, &error) != 3) return false;
  if (std::strcmp(name, call) != 0 || calls++ < first) return false;
  errno = error;
  return true;
}

bool IsFile(int descriptor) {
  struct stat status {};
  return ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink > 0;
}

template <typename Function>
Function* Real(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

int Open(const char* name, const char* path, int flags, mode_t mode) {
  if ((flags & O_ACCMODE) != O_RDONLY && Fails("open")) return -1;
  return Real<int(const char*, int, ...)>(name)(path, flags, mode);
}

} // namespace

extern "C" {

ssize_t write(int descriptor, const void* buffer, size_t size) {
  if (IsFile(descriptor) && Fails("write")) return -1;
  return Real<ssize_t(int, const void*, size_t)>("write")(descriptor, buffer, size);
}

ssize_t writev(int descriptor, const iovec* parts, int count) {
  if (IsFile(descriptor) && Fails("write")) return -1;
  return Real<ssize_t(int, const iovec*, int)>("writev")(descriptor, parts, count);
}

int fsync(int descriptor) {
  return Fails("fsync") ? -1 : Real<int(int)>("fsync")(descriptor);
}

int rename(const char* from, const char* to) noexcept {
  return Fails("rename") ? -1 : Real<int(const char*, const char*)>("rename")(from, to);
}

int open(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = va_arg(rest, mode_t);
  va_end(rest);
  return Open("open", path, flags, mode);
}

int open64(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = va_arg(rest, mode_t);
  va_end(rest);
  return Open("open64", path, flags, mode);
}
}
