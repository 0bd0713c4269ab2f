#pragma once

#include "geo/DetectorError.h"
#include "util/LengthUnit.h"
#include "util/Text.h"

#define TOML_ENABLE_FORMATTERS 0 // only read here
#include <toml++/toml.h>

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// Tables of a TOML file with checks and messages, for the readers of this folder: not installed,
// and costly to compile.

namespace geo::tomlfile {

/// What a number must be.
struct Range {
  const char* fExpected = "";
  double fLow = 0;
  double fHigh = 0;
  bool fIsLength = false; ///< in the unit of the file; the limits are in cm
};

using kelvo::Quoted;

/// Ten digits: what a user wrote, without the rounding of sums.
inline std::string ToText(double value) {
  return fmt::format(FMT_STRING("{:.10g}"), value);
}

template <typename Names>
std::string List(const Names& names) {
  return fmt::format(FMT_STRING("\"{}\""), fmt::join(names, "\", \""));
}

template <typename Entries>
std::string ListOfNames(const Entries& entries) {
  std::vector<std::string> names;
  names.reserve(entries.size());
  for (const auto& entry : entries) names.push_back(entry.fName);
  return List(names);
}

inline std::string Found(const toml::node& node) {
  if (const auto* text = node.as_string()) return kelvo::TomlText(text->get());
  if (const auto* number = node.as_integer()) return fmt::format(FMT_STRING("{}"), number->get());
  if (const auto* number = node.as_floating_point()) return ToText(number->get());
  if (const auto* flag = node.as_boolean()) return flag->get() ? "true" : "false";
  if (const auto* array = node.as_array())
    return fmt::format(FMT_STRING("an array of {} values"), array->size());
  return node.is_table() ? "a table" : "a date or time";
}

inline std::string Place(const std::string& file, const toml::source_position& at) {
  return fmt::format(FMT_STRING("{}:{}:{}: "), file, at.line, at.column);
}

/// Refuses what toml++ 3.3 cannot be given, which are no mistakes that people make: characters
/// outside of ASCII other than in comments and texts, where alone TOML allows them, and quotation
/// marks within a word (undefined behaviour), a comment for the name of a table (assertion), and
/// keys of very many parts (overflow of the stack). So that comments and texts are told apart in a
/// few lines, a text must be on one line.
class CharacterCheck {
public:
  CharacterCheck(const std::string& text, const std::string& file) : fText(text), fFile(file) {}

  void Check() {
    const bool mark = fText.compare(0, 3, "\xEF\xBB\xBF") == 0; // byte-order mark
    for (fI = mark ? 3 : 0; fI < fText.size(); fI++) {
      const char c = fText[fI];
      if ((c & 0xC0) != 0x80) fAt.column++; // not inside of a character of several bytes
      if (c == '\n')
        NextLine();
      else if (fOpen == 0)
        Outside(c);
      else if (fOpen == '"' && c == '\\')
        Escape();
      else if (fOpen == c && c != '#')
        fOpen = 0;
    }
  }

private:
  void NextLine() {
    fOpen = 0;
    fDots = 0;
    fIsHeader = false;
    fIsLineEmpty = true;
    fAt.line++;
    fAt.column = 0;
  }

  /// What follows a backslash does not end the text.
  void Escape() {
    if (fI + 1 == fText.size() || fText[fI + 1] == '\n') return;
    fI++;
    fAt.column++;
  }

  void Outside(char c) {
    if (c & 0x80)
      Fail("a character outside of ASCII may only be in a comment or between quotation marks");
    CheckNesting(c);
    if (c != '#' && c != '"' && c != '\'') return;
    if (c == '#' && fIsHeader) Fail("expected the name of a table, found a comment");
    if (c != '#' && fI > 0 && IsOfWord(fText[fI - 1]))
      Fail("a quotation mark may only be where a text or a key begins");
    fOpen = c;
    if (c != '#' && fText.compare(fI, 3, std::string(3, c)) == 0)
      Fail("expected a text on one line, found three quotation marks");
  }

  static bool IsOfWord(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' ||
           c == '-' || c == '+';
  }

  void CheckNesting(char c) {
    constexpr int kMaxParts = 32;
    if (c == '.' && ++fDots >= kMaxParts) Fail("a key has more than 32 parts");
    if (c == '[' || c == '{' || c == ']' || c == '}' || c == ',' || c == '=') fDots = 0;
    if (c == ' ' || c == '\t' || c == '\r' || c == '#') return;
    fIsHeader = c == '[' && (fIsHeader || (fIsLineEmpty && fDepth == 0));
    fIsLineEmpty = false;
    if (c == '[') fDepth++;
    if (c == ']') fDepth = std::max(0, fDepth - 1);
  }

  [[noreturn]] void Fail(const std::string& message) const {
    throw DetectorError(Place(fFile, fAt) + message);
  }

  const std::string& fText;
  const std::string& fFile;
  std::size_t fI = 0;
  toml::source_position fAt{1, 0};
  char fOpen = 0; // the quotation mark or # that is open, 0: none
  int fDots = 0;  // of the key or number at hand
  int fDepth = 0; // of square brackets
  bool fIsLineEmpty = true;
  bool fIsHeader = false; // behind the bracket before a table's name
};

/// A table of the file, and how to read its fields: each function throws a DetectorError that tells
/// the place and what was expected.
class Table {
public:
  // path: the table's name as a prefix of its fields' names, such as "plane."
  Table(const std::string& file, const toml::table& table, std::string path,
        toml::source_position at)
      : fFile(file), fTable(table), fPath(std::move(path)), fAt(at) {}

  [[noreturn]] void Fail(const toml::node* node, const std::string& field,
                         const std::string& message) const {
    const auto at = node && node->source().begin.line > 0 ? node->source().begin : fAt;
    FailAt(at, fPath + field + ": " + message);
  }

  [[noreturn]] void FailExpected(const toml::node& node, const std::string& field,
                                 const std::string& expected) const {
    Fail(&node, field, fmt::format(FMT_STRING("expected {}, found {}"), expected, Found(node)));
  }

  [[noreturn]] void FailAt(const toml::source_position& at, const std::string& message) const {
    throw DetectorError(Place(fFile, at) + message);
  }

  /// An error of the table as a whole, which is not the root.
  [[noreturn]] void Fail(const std::string& message) const {
    FailAt(fAt, fPath.substr(0, fPath.size() - 1) + ": " + message);
  }

  /// Says what the lengths of this table and of those inside it are given in.
  void SetUnit(const kelvo::LengthUnit& unit) { fUnit = unit; }

  const toml::source_position& At() const { return fAt; }

  void AllowOnly(std::initializer_list<const char*> keys) const {
    for (const auto& [key, node] : fTable) {
      const auto same = [&k = key](const char* known) { return k.str() == known; };
      if (std::any_of(keys.begin(), keys.end(), same)) continue;
      FailAt(key.source().begin, fmt::format(FMT_STRING("{}{}: unknown key; expected one of {}"),
                                             fPath, key.str(), List(keys)));
    }
  }

  const toml::node* Find(const char* key) const { return fTable.get(key); }

  std::vector<std::string> Keys() const {
    std::vector<std::string> keys;
    for (const auto& [key, node] : fTable) keys.emplace_back(key.str());
    return keys;
  }

  const toml::node& Get(const char* key, const std::string& expected) const {
    const toml::node* node = Find(key);
    if (!node)
      Fail(nullptr, key, fmt::format(FMT_STRING("expected {}, but the key is missing"), expected));
    return *node;
  }

  std::string Text(const char* key) const {
    const std::string expected = "a text that is not empty";
    const toml::node& node = Get(key, expected);
    const auto* text = node.as_string();
    if (!text || text->get().empty()) FailExpected(node, key, expected);
    if (kelvo::HasControls(text->get()))
      FailExpected(node, key, "a text without control characters");
    return text->get();
  }

  double ToNumber(const toml::node& node, const char* key, const Range& range) const {
    auto value = node.is_number() ? node.value<double>() : std::nullopt;
    if (value && range.fIsLength) value = fUnit.ToCm(*value);
    if (!value || !(*value >= range.fLow && *value <= range.fHigh))
      FailExpected(node, key, Expected(range));
    return *value;
  }

  double Number(const char* key, const Range& range) const {
    return ToNumber(Get(key, range.fExpected), key, range);
  }

  double NumberOr(const char* key, const Range& range, double absent) const {
    return Find(key) ? Number(key, range) : absent;
  }

  unsigned ToCount(const toml::node& node, const char* key, const Range& range) const {
    if (!node.is_integer()) FailExpected(node, key, range.fExpected);
    return static_cast<unsigned>(ToNumber(node, key, range));
  }

  unsigned Count(const char* key, const Range& range) const {
    return ToCount(Get(key, range.fExpected), key, range);
  }

  /// The values of an array of a given length, which the message calls "expected".
  const toml::array& Values(const char* key, std::size_t min, std::size_t max,
                            const std::string& expected) const {
    const toml::node& node = Get(key, expected);
    const toml::array* array = node.as_array();
    if (!array || array->size() < min || array->size() > max) FailExpected(node, key, expected);
    return *array;
  }

  /// x and y, and z where it is allowed and given; what is absent is left alone.
  void Vector(const char* key, const Range& range, double* values, std::size_t max = 2) const {
    const std::string expected = max == 2 ? "two numbers [x, y]" : "two or three numbers [x, y, z]";
    const toml::array& array = Values(key, 2, max, expected);
    for (std::size_t k = 0; k < array.size(); k++) values[k] = ToNumber(array[k], key, range);
  }

  Table Sub(const char* key, const std::string& expected) const {
    const toml::node& node = Get(key, expected);
    const toml::table* table = node.as_table();
    if (!table) FailExpected(node, key, expected);
    return Inner(*table, key);
  }

  /// All tables [[key]]; "min" says how many there must be.
  std::vector<Table> Tables(const char* key, std::size_t min) const {
    const std::string header = fmt::format(FMT_STRING("[[{}]]"), key);
    const toml::node* node = Find(key);
    if (!node && min > 0)
      Fail(nullptr, key, "expected at least one table " + header + ", but there is none");
    if (!node) return {};
    const std::string expected = "tables that begin with " + header;
    const toml::array* array = node->as_array();
    if (!array || array->size() < min) FailExpected(*node, key, expected);
    std::vector<Table> tables;
    for (const toml::node& entry : *array) {
      if (!entry.is_table()) FailExpected(entry, key, expected);
      tables.push_back(Inner(*entry.as_table(), key));
    }
    return tables;
  }

private:
  Table Inner(const toml::table& table, const char* key) const {
    const auto at = table.source().begin;
    Table inner(fFile, table, fPath + key + ".", at.line > 0 ? at : fAt);
    inner.SetUnit(fUnit);
    return inner;
  }

  std::string Expected(const Range& range) const {
    const bool other = range.fIsLength && fUnit.fName != std::string(kelvo::kCentimetre.fName);
    if (!other) return range.fExpected;
    return fmt::format(FMT_STRING("{} once it is converted from {}"), range.fExpected, fUnit.fName);
  }

  const std::string& fFile;
  const toml::table& fTable;
  std::string fPath;
  toml::source_position fAt; // of the table
  kelvo::LengthUnit fUnit = kelvo::kCentimetre;
};

} // namespace geo::tomlfile
