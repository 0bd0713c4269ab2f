#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kelvo {

/// Returns a text without blanks and tabs at its ends.
std::string_view Trimmed(std::string_view text);

/// The fields of one line of a CSV file (RFC 4180), without the blanks around them: a field between
/// quotation marks may have separators inside, and a quotation mark as two of them. Fields are
/// separated by commas, or by semicolons or tabs where the first line has no comma.
///
///     CsvFields fields;
///     if (fields.Split(line)) ... fields[0] ...
class CsvFields {
public:
  /// Takes the separator that a line has, for it and those behind it.
  void FindSeparator(std::string_view line);

  /// Splits a line.
  /// @param line must outlive the fields
  /// @return false for a field that begins with a quotation mark and does not end with one; the
  ///         fields before it are given
  bool Split(std::string_view line);

  std::size_t Size() const { return fFields.size(); }
  std::string_view operator[](std::size_t i) const { return fFields[i]; }
  std::vector<std::string> Copies() const { return {fFields.begin(), fFields.end()}; }

private:
  bool SplitQuoted(std::string_view line);
  bool Unquote(std::string_view& line);
  bool IsBlankHere(char c) const;

  char fSeparator = ',';

  std::vector<std::string_view> fFields; // in the line, or in fUnquoted
  std::string fUnquoted;                 // what stood between quotation marks
};

} // namespace kelvo
