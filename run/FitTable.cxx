#include "run/FitTable.h"

#include "io/FitRow.h"
#include "run/FitRun.h"

#include <chrono>
#include <cstring>
#include <type_traits>
#include <utility>

namespace kelvo {

namespace {

template <typename T>
std::string TypeName() {
  if constexpr (std::is_same_v<T, bool>) return "bool";
  if constexpr (std::is_same_v<T, char>) return "text";
  const std::string bits = std::to_string(8 * sizeof(T));
  return (std::is_floating_point_v<T> ? "float" : "int") + bits;
}

template <typename T>
void AppendNumbers(const T* values, std::size_t n, std::vector<unsigned char>& data) {
  const std::size_t size = data.size();
  data.resize(size + n * sizeof(T));
  if (n > 0) std::memcpy(data.data() + size, values, n * sizeof(T));
}

template <typename T>
FitColumn EmptyColumn(const char* name) {
  if constexpr (std::is_arithmetic_v<T>)
    return {name, TypeName<T>(), {}, {}};
  else
    return {name, TypeName<typename T::value_type>(), {}, {0}};
}

template <typename T>
void AppendValue(const T& value, FitColumn& column) {
  if constexpr (std::is_arithmetic_v<T>) {
    AppendNumbers(&value, 1, column.fData);
  } else {
    AppendNumbers(value.data(), value.size(), column.fData);
    column.fOffsets.push_back(column.fOffsets.back() + static_cast<Long64_t>(value.size()));
  }
}

} // namespace

template <typename Visit>
void FitColumns::VisitColumns(Visit visit) const {
  VisitScalars(visit);
  if (fWithVectors) VisitVectors(visit);
  if (fWithPlaces) VisitPlaces(visit);
}

FitColumns::FitColumns(bool withVectors, bool withPlaces)
    : fWithVectors(withVectors), fWithPlaces(withPlaces) {
  const auto add = [this](const char* name, auto member) {
    using T = std::decay_t<decltype(std::declval<FitRow>().*member)>;
    fColumns.push_back(EmptyColumn<T>(name));
  };
  VisitColumns(add);
}

void FitColumns::Append(const std::vector<FitRow>& rows) {
  for (const FitRow& row : rows) {
    auto column = fColumns.begin();
    const auto append = [&](const char*, auto member) { AppendValue(row.*member, *column++); };
    VisitColumns(append);
  }
  fRows += rows.size();
}

FitColumns FitOneTrack(TrackFitter& fitter, const HitList3D& hits,
                       const std::vector<double>& charges) {
  TrackHits track;
  track.fHits = hits;
  FitColumns columns(true, !fitter.Options().fAt.empty());
  TrackFit fit;
  fitter.Fit(hits, charges, fit);
  columns.Append(FitRows(track, fit, true));
  return columns;
}

struct FitTable::Impl {
  Impl(const geo::Detector& detector, HitSource& hits, const FitRunOptions& options)
      : fDetector(detector),
        fColumns(!options.fScalarsOnly, HasPlaces(options)),
        fRun(fDetector, hits, options) {}

  geo::Detector fDetector;
  FitColumns fColumns;
  FitRun fRun;
};

FitTable::FitTable(const geo::Detector& detector, HitSource& hits, const FitRunOptions& options)
    : fImpl(std::make_unique<Impl>(detector, hits, options)) {}

FitTable::~FitTable() = default;

bool FitTable::Fit(double seconds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  const bool complete =
      fImpl->fRun.Fit([this](const FittedBlock& block) { fImpl->fColumns.Append(block.fRows); },
                      [end](const Progress&) { return std::chrono::steady_clock::now() < end; });
  return !complete;
}

double FitTable::Fraction() const {
  return fImpl->fRun.Fraction();
}

const FitColumns& FitTable::Columns() const {
  return fImpl->fColumns;
}

FitSummary FitTable::Summary() const {
  return fImpl->fRun.Summary();
}

} // namespace kelvo
