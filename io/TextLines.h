#pragma once

#include "io/InputBytes.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kelvo {

/// The lines of a text file, plain or compressed by gzip, one after the other, in constant memory.
/// Pipes and, under the name "-", the standard input are read as well.
///
///     TextLines lines("hits.csv.gz");
///     for (std::string_view line; lines.Next(line);) ...
///
/// Whether it is compressed is read from its first bytes, not from its name.
class TextLines {
public:
  /// @param bytes from the beginning; not null
  explicit TextLines(std::unique_ptr<InputBytes> bytes);
  TextLines(TextLines&&) noexcept;
  ~TextLines();

  /// Gives the next line without its end ("\n" or "\r\n"); the last line may lack one. A byte-order
  /// mark at the start of the file is skipped.
  /// @param line valid until the next call
  /// @return false at the end of the file
  /// @throw FileError for damaged compressed data, a failing disk, or a line of more than 1 MiB,
  ///        which no table of hits has
  bool Next(std::string_view& line);

  unsigned long long Number() const { return fNumber; } ///< of the last line given, from 1

  /// Returns which fraction of the file has been read, 0 to 1. Pipes and empty files give 0.
  double Fraction() const;

private:
  class Input;

  bool Fill();

  std::string fFile;
  std::unique_ptr<Input> fInput;
  std::vector<char> fBuffer;
  std::size_t fBegin = 0; // of what is in the buffer and not given yet
  std::size_t fEnd = 0;   // behind the last byte in the buffer
  bool fAtEnd = false;
  unsigned long long fNumber = 0;
};

} // namespace kelvo
