#include "io/PendingFile.h"

#include "io/FileError.h"
#include "util/Text.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>

namespace kelvo {

namespace {

namespace fs = std::filesystem;

constexpr const char* kEnding = ".partial";
constexpr std::size_t kDigits = 8; // that make the name of a partial file unique

[[noreturn]] void Fail(const std::string& name, int error) {
  throw FileError(name + ": cannot be written: " + std::strerror(error));
}

/// Follows symbolic links, also to a file that is not there.
std::string TargetOf(const std::string& name) {
  constexpr int kMaxLinks = 40; // as many as the system follows
  fs::path path = name;
  std::error_code error;
  for (int i = 0; i < kMaxLinks && fs::is_symlink(path, error); i++) {
    const fs::path next = fs::read_symlink(path, error);
    path = next.is_absolute() ? next : path.parent_path() / next;
  }
  return path.string();
}

/// Whether a name is that of a partial file of the target.
bool IsPartialOf(const std::string& target, const std::string& name) {
  if (name.size() != target.size() + 1 + kDigits + std::strlen(kEnding)) return false;
  const std::string digits = name.substr(target.size() + 1, kDigits);
  return name.compare(0, target.size() + 1, target + '.') == 0 && EndsWith(name, kEnding) &&
         digits.find_first_not_of("0123456789abcdef") == std::string::npos;
}

/// Removes partial files of the target that nobody holds a lock of.
void RemoveLeftovers(const std::string& target) {
  const fs::path path = target;
  const fs::path folder = path.has_parent_path() ? path.parent_path() : fs::path(".");
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    if (!IsPartialOf(path.filename().string(), entry->path().filename().string())) continue;
    const int descriptor = ::open(entry->path().c_str(), O_RDWR | O_CLOEXEC);
    if (descriptor < 0) continue;
    if (::flock(descriptor, LOCK_EX | LOCK_NB) == 0) ::unlink(entry->path().c_str());
    ::close(descriptor);
  }
}

/// Makes a file of a name of its own and locks it.
/// @return its descriptor
int MakeLocked(const std::string& name, const std::string& target, std::string& partial) {
  constexpr int kTries = 100;
  std::random_device random;
  for (int i = 0; i < kTries; i++) {
    partial = fmt::format(FMT_STRING("{}.{:08x}{}"), target, random() & 0xffffffffU, kEnding);
    const int descriptor = ::open(partial.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (descriptor < 0 && errno == EEXIST) continue;
    if (descriptor < 0) Fail(name, errno);
    // Somebody may have taken it for a leftover before it was locked. Where a file system has no
    // locks, leftovers stay.
    ::flock(descriptor, LOCK_EX | LOCK_NB);
    struct stat status {};
    if (::fstat(descriptor, &status) == 0 && status.st_nlink > 0) return descriptor;
    ::close(descriptor);
  }
  Fail(name, EEXIST);
}

/// Gives a file the mode and, where that is allowed, the owner of an earlier one.
void TakeOver(const std::string& earlier, int descriptor) {
  struct stat status {};
  if (::stat(earlier.c_str(), &status) != 0) return;
  // A mode that lets others execute as the owner must not come with another owner.
  if (::fchown(descriptor, status.st_uid, status.st_gid) != 0) status.st_mode &= 0777;
  ::fchmod(descriptor, status.st_mode & 07777);
}

} // namespace

PendingFile::PendingFile(const std::string& name) : fName(name), fTarget(TargetOf(name)) {
  std::error_code ignored;
  const auto status = fs::status(fTarget, ignored);
  if (fs::is_directory(status))
    throw FileError(name + ": cannot be written: a folder has this name");
  if (fs::exists(status) && !fs::is_regular_file(status))
    throw FileError(name + ": cannot be written: something else than a file has this name");
  RemoveLeftovers(fTarget);
  fDescriptor = MakeLocked(name, fTarget, fPartial);
  TakeOver(fTarget, fDescriptor);
}

PendingFile::~PendingFile() {
  if (!fCommitted) std::remove(fPartial.c_str());
  ::close(fDescriptor);
}

void PendingFile::Commit() {
  if (::fsync(fDescriptor) != 0) Fail(fName, errno);
  struct stat status {};
  if (::fstat(fDescriptor, &status) == 0 && status.st_nlink == 0)
    throw FileError(fName + ": cannot be written: somebody removed " + fPartial);
  if (std::rename(fPartial.c_str(), fTarget.c_str()) != 0) Fail(fName, errno);
  fCommitted = true;
}

} // namespace kelvo
