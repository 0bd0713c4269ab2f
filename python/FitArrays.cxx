#include "python/FitArrays.h"

#include "io/FitWriter.h"
#include "io/PendingFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <type_traits>
#include <vector>

namespace kelvo {

namespace {

// Rows that are made at once, so that memory does not grow with their number.
constexpr std::size_t kBlock = 1000;

template <typename T>
void Copy(const unsigned char* values, std::size_t first, std::size_t n, T* to) {
  if (n > 0) std::memcpy(to, values + first * sizeof(T), n * sizeof(T));
}

} // namespace

void FitArrays::SetColumn(const std::string& name, const unsigned char* values,
                          const std::int64_t* offsets) {
  fColumns[name] = {values, offsets};
}

const FitArrays::Column& FitArrays::Find(const char* name) const {
  const auto found = fColumns.find(name);
  if (found == fColumns.end())
    throw std::invalid_argument(fmt::format(FMT_STRING("fits: there is no column \"{}\""), name));
  return found->second;
}

void FitArrays::Write(const std::string& file,
                      const std::map<std::string, std::string>& texts) const {
  FitWriterOptions options;
  options.fWithVectors = fColumns.count("residual") > 0;
  options.fWithPlaces = fColumns.count("at_z") > 0;
  options.fTexts = texts;
  PendingFile pending(file);
  FitWriter writer(pending, options);
  std::vector<FitRow> rows;
  for (std::size_t first = 0; first < fRows; first += rows.size()) {
    rows.assign(std::min(kBlock, fRows - first), FitRow());
    const auto fill = [&](const char* name, auto member) {
      const Column& column = Find(name);
      for (std::size_t i = 0; i < rows.size(); i++) {
        auto& value = rows[i].*member;
        using T = std::decay_t<decltype(value)>;
        if constexpr (std::is_arithmetic_v<T>) {
          Copy(column.fValues, first + i, 1, &value);
        } else {
          const std::int64_t* offsets = column.fOffsets + first + i;
          value.resize(static_cast<std::size_t>(offsets[1] - offsets[0]));
          Copy(column.fValues, static_cast<std::size_t>(offsets[0]), value.size(), value.data());
        }
      }
    };
    VisitScalars(fill);
    if (options.fWithVectors) VisitVectors(fill);
    if (options.fWithPlaces) VisitPlaces(fill);
    writer.Write(rows);
  }
  writer.Close();
  pending.Commit();
}

} // namespace kelvo
