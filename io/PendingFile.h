#pragma once

#include <string>

namespace kelvo {

/// A file that gets its name only when it is complete. Until then it lies beside its place under a
/// name that ends in ".partial"; it is removed if Commit() is not reached.
class PendingFile {
public:
  /// Makes the empty file.
  /// @throw FileError where that is not possible, or where the name belongs to something else than
  ///        a file, such as a folder or a device
  explicit PendingFile(const std::string& name);
  ~PendingFile();
  PendingFile(const PendingFile&) = delete;
  PendingFile& operator=(const PendingFile&) = delete;

  const std::string& Name() const { return fName; }       ///< when complete
  const std::string& Partial() const { return fPartial; } ///< until then

  /// Gives the file its name, in place of an older one.
  /// @throw FileError
  void Commit();

private:
  std::string fName;
  std::string fPartial;
  bool fCommitted = false;
};

} // namespace kelvo
