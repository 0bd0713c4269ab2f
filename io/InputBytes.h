#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kelvo {

/// The bytes of a file, a pipe or, under the name "-", the standard input: opened once and read
/// from beginning to end.
class InputBytes {
public:
  /// Waits, where the name is that of a pipe, for somebody who writes.
  /// @throw FileError for what cannot be opened, or a folder
  explicit InputBytes(const std::string& name);
  ~InputBytes();
  InputBytes(const InputBytes&) = delete;
  InputBytes& operator=(const InputBytes&) = delete;

  /// Returns whether the input begins with a text of at most 4 bytes. Nothing is used up.
  bool BeginsWith(std::string_view text) const { return Head().substr(0, text.size()) == text; }

  /// Gives up to `size` bytes, which must not be 0.
  /// @return how many there were, 0 at the end
  /// @throw FileError where the disk fails, or after StopWaiting()
  std::size_t Read(char* buffer, std::size_t size);

  const std::string& Name() const { return fName; }
  /// Makes reads that wait for a pipe throw, in all threads, now and later. A handler of signals
  /// may call it.
  static void StopWaiting();

  bool IsFile() const { return fIsFile; } ///< which has a size and can be opened again
  /// Returns which fraction has been read, 0 to 1; 0 for pipes and empty files.
  double Fraction() const;

private:
  std::string_view Head() const { return {fHead, fHeadSize}; }
  std::size_t ReadOn(char* buffer, std::size_t size);
  void WaitForPipe() const;

  std::string fName;
  int fDescriptor = -1;
  bool fIsFile = false;
  double fSize = 0; // [bytes]
  double fRead = 0; // [bytes]
  char fHead[4] = {};
  std::size_t fHeadSize = 0;
  std::size_t fHeadUsed = 0;
};

} // namespace kelvo
