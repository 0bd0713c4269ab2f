// Any names of columns, and any mapping of them, give columns within the file or a sentence.
#include "io/FileError.h"
#include "io/HitColumns.h"
#include "test/fuzz/FuzzInput.h"

#include <stdexcept>

namespace {

std::vector<std::string> Words(const std::string& text) {
  std::vector<std::string> words(1);
  for (const char c : text)
    if (c == '\n')
      words.emplace_back();
    else
      words.back() += c;
  return words;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Values values(data, size);
  kelvo::HitConventions conventions;
  const unsigned mapped = values.Count(3);
  const bool numbered = values.Byte() % 2;
  std::vector<std::string> names = Words(values.Rest());
  for (unsigned i = 0; i < mapped && names.size() >= 2; i++) {
    const std::string other = names.back();
    names.pop_back();
    conventions.fColumns[names.back()] = other;
    names.pop_back();
  }
  try {
    const kelvo::HitColumns columns("file", names, conventions, numbered);
    for (int i = 0; i < kelvo::kHitColumns; i++) {
      const auto column = static_cast<kelvo::HitColumn>(i);
      if (!columns.Has(column)) continue;
      fuzz::Expect(columns.Index(column) < names.size(), "a column of the file");
      fuzz::Expect(names[columns.Index(column)] == columns.Name(column), "its name");
    }
  } catch (const kelvo::FileError&) {
  } catch (const std::invalid_argument&) {
  }
  return 0;
}
