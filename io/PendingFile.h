#pragma once

#include <string>

namespace kelvo {

/// A file that gets its name only when it is complete. Until then it lies beside its place under a
/// name that ends in ".partial"; it is removed if Commit() is not reached. What processes that were
/// killed have left of a file of this name is removed, too.
///
/// A symbolic link stays one: the file that it points to is replaced. Mode and, where allowed,
/// owner are those of the earlier file.
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

  /// Gives the file its name, in place of an older one, once all of it is on the disk.
  /// @throw FileError
  void Commit();

private:
  std::string fName;
  std::string fTarget; // of the symbolic link of that name, if it is one
  std::string fPartial;
  int fDescriptor = -1; // holds the lock that tells others of a living owner
  bool fCommitted = false;
};

} // namespace kelvo
