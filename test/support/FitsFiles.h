#pragma once

#include "io/FitWriter.h"

#include <functional>
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

/// Gives rows in blocks of several sizes, empty ones among them.
inline std::function<bool(std::vector<kelvo::FitRow>&)> InBlocks(
    const std::vector<kelvo::FitRow>& rows) {
  return [&rows, at = std::size_t(0),
          size = std::size_t(0)](std::vector<kelvo::FitRow>& block) mutable {
    if (at == rows.size()) return false;
    const std::size_t end = std::min(rows.size(), at + size++ % 7);
    block.assign(rows.begin() + static_cast<long>(at), rows.begin() + static_cast<long>(end));
    at = end;
    return true;
  };
}

/// Writes a file of fits and returns its name.
inline std::string WriteRows(const std::string& name, const std::vector<kelvo::FitRow>& rows,
                             const kelvo::FitWriterOptions& options = {}) {
  kelvo::PendingFile file(name);
  kelvo::WriteFits(file, InBlocks(rows), options);
  file.Commit();
  return name;
}

} // namespace test
