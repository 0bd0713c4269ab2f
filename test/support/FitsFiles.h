#pragma once

#include "io/FitWriter.h"

#include <algorithm>
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

} // namespace test
