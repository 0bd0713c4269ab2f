#pragma once

#include "io/FitReader.h"
#include "io/FitWriter.h"

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

namespace test {

/// Returns the kinds of tables that can be written here.
inline std::vector<kelvo::TableFormat> Formats() {
#ifdef KELVO_HAS_RNTUPLE
  return {kelvo::TableFormat::kTTree, kelvo::TableFormat::kRNTuple};
#else
  return {kelvo::TableFormat::kTTree};
#endif
}

/// Writes a file of fits, in blocks of several sizes, empty ones among them; returns its name.
inline std::string WriteRows(const std::string& name, const std::vector<kelvo::FitRow>& rows,
                             const kelvo::FitWriterOptions& options = {}) {
  kelvo::PendingFile file(name);
  kelvo::FitWriter writer(file, options);
  std::size_t size = 0;
  for (std::size_t at = 0; at < rows.size();) {
    const std::size_t end = std::min(rows.size(), at + size++ % 7);
    writer.Write({rows.begin() + static_cast<long>(at), rows.begin() + static_cast<long>(end)});
    at = end;
  }
  writer.Close();
  file.Commit();
  return name;
}

/// All that a file holds, entry by entry, to the last bit.
inline std::string Content(const std::string& name) {
  kelvo::FitReader fits(name);
  std::ostringstream text;
  text << std::hexfloat;
  for (long long i = 0; i < fits.Entries(); i++) {
    const kelvo::FitRow& row = fits.Read(i, kelvo::FitPart::kAll);
    kelvo::VisitScalars([&](const char*, auto member) { text << ' ' << row.*member; });
    const auto add = [&](const char*, auto member) {
      for (const auto& value : row.*member) text << ' ' << value;
      text << ',';
    };
    kelvo::VisitVectors(add);
    kelvo::VisitPlaces(add);
    text << '\n';
  }
  return text.str();
}

} // namespace test
