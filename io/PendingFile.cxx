#include "io/PendingFile.h"

#include "io/FileError.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace kelvo {

PendingFile::PendingFile(const std::string& name)
    : fName(name), fPartial(name + "." + std::to_string(getpid()) + ".partial") {
  std::error_code ignored;
  const auto status = std::filesystem::status(name, ignored);
  if (std::filesystem::is_directory(status))
    throw FileError(name + ": cannot be written: a folder has this name");
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status))
    throw FileError(name + ": cannot be written: something else than a file has this name");
  errno = 0;
  std::FILE* file = std::fopen(fPartial.c_str(), "wb");
  if (!file) throw FileError(name + ": cannot be written: " + std::strerror(errno));
  std::fclose(file);
}

PendingFile::~PendingFile() {
  if (!fCommitted) std::remove(fPartial.c_str());
}

void PendingFile::Commit() {
  errno = 0;
  if (std::rename(fPartial.c_str(), fName.c_str()) != 0)
    throw FileError(fName + ": cannot be written: " + std::strerror(errno));
  fCommitted = true;
}

} // namespace kelvo
