#include "run/FitTable.h"

#include "io/FitRow.h"
#include "run/FitTally.h"
#include "run/FittedBlocks.h"
#include "run/TracksToFit.h"

#include <TROOT.h>

#include <algorithm>
#include <chrono>
#include <type_traits>

namespace kelvo {

namespace {

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

template <typename T>
std::string TypeName() {
  if constexpr (std::is_same_v<T, bool>) return "bool";
  if constexpr (std::is_same_v<T, char>) return "text";
  const std::string bits = std::to_string(8 * sizeof(T));
  return (std::is_floating_point_v<T> ? "float" : "int") + bits;
}

template <typename T>
void AppendNumbers(const T* values, std::size_t n, FitColumn& column) {
  const char* begin = reinterpret_cast<const char*>(values);
  column.fData.insert(column.fData.end(), begin, begin + n * sizeof(T));
}

template <typename T>
constexpr bool kIsNumber = std::is_arithmetic_v<std::decay_t<T>>;

template <typename T>
FitColumn EmptyColumn(const char* name, const T& member) {
  FitColumn column;
  column.fName = name;
  if constexpr (kIsNumber<T>) {
    column.fType = TypeName<T>();
  } else {
    column.fType = TypeName<std::decay_t<decltype(member[0])>>();
    column.fOffsets.push_back(0);
  }
  return column;
}

template <typename T>
void AppendMember(const T& member, FitColumn& column) {
  if constexpr (kIsNumber<T>) {
    AppendNumbers(&member, 1, column);
  } else {
    AppendNumbers(member.data(), member.size(), column);
    column.fOffsets.push_back(column.fOffsets.back() + static_cast<std::int64_t>(member.size()));
  }
}

} // namespace

FitColumns::FitColumns(bool withVectors) : fWithVectors(withVectors) {
  const FitRow row;
  const auto add = [this](const char* name, const auto& member) {
    fColumns.push_back(EmptyColumn(name, member));
  };
  VisitScalars(row, add);
  if (fWithVectors) VisitVectors(row, add);
}

void FitColumns::Append(const std::vector<FitRow>& rows) {
  for (const FitRow& row : rows) {
    std::size_t c = 0;
    const auto append = [&](const char*, const auto& member) {
      AppendMember(member, fColumns[c++]);
    };
    VisitScalars(row, append);
    if (fWithVectors) VisitVectors(row, append);
  }
  fRows += rows.size();
}

FitColumns FitOneTrack(TrackFitter& fitter, const HitList3D& hits) {
  TrackHits track;
  track.fHits = hits;
  FitColumns columns(true);
  columns.Append(FitRows(track, fitter.Fit(hits), true));
  return columns;
}

struct FitTable::Impl {
  Impl(const geo::Detector& detector, HitSource& hits, const FitTableOptions& options)
      : fDetector(detector),
        fTracks(fDetector, hits, options.fLimit),
        fTally(options.fFit.fHypotheses),
        fColumns(!options.fScalarsOnly) {
    CheckMaterials(fDetector, options.fFit);
    // One thread may read a ROOT file while others use ROOT, too.
    ROOT::EnableThreadSafety();
    fBlocks =
        std::make_unique<FittedBlocks>([this](TrackHits& track) { return fTracks.Next(track); },
                                       TrackFitter(fDetector.Geometry(), options.fFit),
                                       std::max(1u, options.fThreads), !options.fScalarsOnly);
  }

  geo::Detector fDetector;
  TracksToFit fTracks;
  FitTally fTally;
  FitColumns fColumns;
  Clock::time_point fStart = Clock::now();
  double fSeconds = 0;
  std::unique_ptr<FittedBlocks> fBlocks; // null once all is fitted
};

FitTable::FitTable(const geo::Detector& detector, HitSource& hits, const FitTableOptions& options)
    : fImpl(std::make_unique<Impl>(detector, hits, options)) {}

FitTable::~FitTable() = default;

bool FitTable::Fit(double seconds) {
  const auto start = Clock::now();
  do {
    FittedBlock block;
    if (!fImpl->fBlocks || !fImpl->fBlocks->Next(block)) {
      fImpl->fBlocks.reset();
      break;
    }
    fImpl->fTally.Add(block);
    fImpl->fColumns.Append(block.fRows);
  } while (SecondsSince(start) < seconds);
  fImpl->fSeconds = SecondsSince(fImpl->fStart);
  return fImpl->fBlocks != nullptr;
}

double FitTable::Share() const {
  return fImpl->fTracks.Share();
}

const FitColumns& FitTable::Columns() const {
  return fImpl->fColumns;
}

FitSummary FitTable::Summary() const {
  return fImpl->fTally.Summary(fImpl->fSeconds);
}

} // namespace kelvo
