#include "run/FitFrame.h"

#include "geo/Detector.h"
#include "io/FileError.h"
#include "io/FitRow.h"
#include "io/HitNumbers.h"
#include "io/HitTable.h"
#include "io/NumberType.h"
#include "run/TracksToFit.h"
#include "track/PlaneOffsets.h"
#include "track/TrackFitter.h"

#include <TClassEdit.h>
#include <TROOT.h>
#include <ROOT/RVec.hxx>

#include <stdexcept>
#include <utility>

namespace kelvo {

namespace {

using ROOT::RDF::RNode;
using Values = ROOT::RVec<double>;

// The fit of one entry: a row per hypothesis, of which the shown one has its vectors.
struct EntryFit {
  std::vector<FitRow> fRows;
  std::size_t fShown = 0;
};

// Fits the entries of one slot.
class SlotFitter {
public:
  SlotFitter(const TrackFitter& fitter, const geo::PlaneDetector* planes, HitColumns columns)
      : fFitter(fitter), fPlanes(planes), fColumns(std::move(columns)) {}

  EntryFit Fit(const HitNumbers& numbers) {
    const std::vector<int>& hypotheses = fFitter.Options().fHypotheses;
    SetHits(numbers);
    if (fPlanes) AddPlaneOffsets(*fPlanes, fTrack.fHits);
    if (fTrack.Good())
      fFitter.Fit(fTrack.fHits, fFit);
    else
      fFit = UnusableTrack(fTrack, hypotheses);
    EntryFit entry;
    entry.fShown = fFit.Fitted() ? static_cast<std::size_t>(fFit.fBest) : 0;
    entry.fRows.resize(hypotheses.size());
    for (std::size_t h = 0; h < hypotheses.size(); ++h)
      FillFitRow(fTrack, fFit, h, h == entry.fShown, entry.fRows[h]);
    return entry;
  }

private:
  void SetHits(const HitNumbers& numbers) {
    fTrack.fHits.clear();
    fTrack.fBadLines = 0;
    fTrack.fProblems.clear();
    AddEntry(fColumns, numbers, fTrack);
  }

  TrackFitter fFitter;
  const geo::PlaneDetector* fPlanes;
  HitColumns fColumns;
  TrackHits fTrack; // the current entry, as the fit
  TrackFit fFit;
};

// All that fits a data frame. Slots lie apart, so that their threads do not share memory.
struct FrameFitter {
  std::shared_ptr<const geo::GeometryBase> fDetector;
  std::vector<std::unique_ptr<SlotFitter>> fSlots;
};

// ROOT keeps columns of such names out of what users see and store.
std::string Hidden(const std::string& prefix, const std::string& name) {
  return "rdf_" + prefix + name + "_";
}

std::string ElementOf(const std::string& type, const std::string& begin) {
  const bool fits = type.size() > begin.size() + 1 && type.back() == '>' &&
                    type.compare(0, begin.size(), begin) == 0;
  return fits ? type.substr(begin.size(), type.size() - begin.size() - 1) : "";
}

double Number(const std::string& text) {
  return CharacterCode(text);
}
template <typename T>
double Number(T value) {
  return static_cast<double>(value);
}

template <typename Vector>
RNode DefineNumbers(RNode frame, const std::string& column, const std::string& name) {
  const auto convert = [](const Vector& values) {
    Values numbers;
    numbers.reserve(values.size());
    for (const auto& value : values) numbers.push_back(Number(value));
    return numbers;
  };
  return frame.Define(name, convert, {column});
}

template <typename T>
RNode DefineNumbers(RNode frame, const std::string& column, bool isStd, const std::string& name) {
  if (isStd) return DefineNumbers<std::vector<T>>(frame, column, name);
  return DefineNumbers<ROOT::RVec<T>>(frame, column, name);
}

// Gives a column of any vectors the name and double precision.
RNode DefineNumbers(RNode frame, const std::string& column, const std::string& name) {
  const std::string type = frame.GetColumnType(column);
  std::string element;
  bool isStd = false;
  for (const char* begin : {"ROOT::VecOps::RVec<", "ROOT::RVec<"})
    if (element.empty()) element = ElementOf(type, begin);
  for (const char* begin : {"std::vector<", "vector<"}) {
    if (!element.empty()) break;
    element = ElementOf(type, begin);
    isStd = !element.empty();
  }
  if (element == "string" || element == "std::string")
    return DefineNumbers<std::string>(frame, column, isStd, name);
  const TDataType* number = gROOT->GetType(TClassEdit::ResolveTypedef(element.c_str()).c_str());
  const bool known = number && WithType(static_cast<EDataType>(number->GetType()), [&](auto zero) {
                       frame = DefineNumbers<decltype(zero)>(frame, column, isStd, name);
                     });
  if (!known)
    throw std::invalid_argument("the data frame, column " + column + ": is of the type " + type +
                                ", which is no vector of numbers");
  return frame;
}

// The names of the columns with the values of the hits, by HitColumn without the track.
std::vector<std::string> DefineHits(RNode& frame, const HitColumns& columns,
                                    const std::string& prefix) {
  const std::string none = Hidden(prefix, "none");
  frame = frame.Define(none, [] { return Values(); });
  std::vector<std::string> names;
  for (std::size_t i = kHitTrack + 1; i < kHitColumns; ++i) {
    const auto column = static_cast<HitColumn>(i);
    names.push_back(none);
    if (!columns.Has(column)) continue;
    names.back() = Hidden(prefix, HitColumnNames()[i]);
    frame = DefineNumbers(frame, columns.Name(column), names.back());
  }
  return names;
}

HitColumns FindColumns(RNode& tracks, const std::map<std::string, std::string>& mapping) {
  CheckHitColumnNames(mapping);
  try {
    return HitColumns("the data frame", tracks.GetColumnNames(), mapping, false);
  } catch (const FileError& e) {
    throw std::invalid_argument(e.what());
  }
}

std::shared_ptr<FrameFitter> MakeFitter(const std::shared_ptr<const geo::GeometryBase>& detector,
                                        const TrackFitOptions& options, const HitColumns& columns,
                                        unsigned slots) {
  if (!detector) throw std::invalid_argument("there is no detector: its pointer is null");
  const auto* planes = dynamic_cast<const geo::PlaneDetector*>(detector.get());
  if (planes) CheckMaterials(*planes, options);
  const TrackFitter fitter(*detector, options);
  auto all = std::make_shared<FrameFitter>();
  all->fDetector = detector;
  for (unsigned i = 0; i < slots; ++i)
    all->fSlots.push_back(std::make_unique<SlotFitter>(fitter, planes, columns));
  return all;
}

// Returns the member of type T that Visit comes to after index others.
template <typename T, typename Visit>
const T& Member(const FitRow& row, std::size_t index, Visit visitAll) {
  const T* found = nullptr;
  visitAll(row, [&found, &index](const char*, const auto& member) {
    if constexpr (std::is_same_v<std::decay_t<decltype(member)>, T>)
      if (index == 0) found = &member;
    --index;
  });
  return *found;
}

const auto kScalars = [](const FitRow& row, auto visit) { VisitScalars(row, visit); };
const auto kVectors = [](const FitRow& row, auto visit) { VisitVectors(row, visit); };

template <typename T, typename Visit>
RNode DefineShown(RNode frame, const std::string& name, const std::string& source,
                  std::size_t index, Visit visitAll) {
  const auto get = [=](const EntryFit& fit) {
    return Member<T>(fit.fRows[fit.fShown], index, visitAll);
  };
  return frame.Define(name, get, {source});
}

template <typename T>
RNode DefineEach(RNode frame, const std::string& name, const std::string& source,
                 std::size_t index) {
  const auto get = [=](const EntryFit& fit) {
    ROOT::RVec<T> values;
    for (const FitRow& row : fit.fRows) values.push_back(Member<T>(row, index, kScalars));
    return values;
  };
  return frame.Define(name, get, {source});
}

RNode DefineResults(RNode frame, const std::string& prefix, const std::string& source) {
  const FitRow model;
  std::size_t index = 0;
  VisitScalars(model, [&](const std::string& name, const auto& member) {
    using T = std::decay_t<decltype(member)>;
    if constexpr (!std::is_same_v<T, decltype(FitRow::fTrack)>) {
      frame = DefineShown<T>(frame, prefix + name, source, index, kScalars);
      frame = DefineEach<T>(frame, prefix + "each_" + name, source, index);
    }
    ++index;
  });
  index = 0;
  VisitVectors(model, [&](const std::string& name, const auto& member) {
    using T = std::decay_t<decltype(member)>;
    frame = DefineShown<T>(frame, prefix + name, source, index++, kVectors);
  });
  return frame;
}

} // namespace

ROOT::RDF::RNode DefineFit(ROOT::RDF::RNode tracks,
                           std::shared_ptr<const geo::GeometryBase> detector,
                           const TrackFitOptions& options,
                           const std::map<std::string, std::string>& columns,
                           const std::string& prefix) {
  const HitColumns found = FindColumns(tracks, columns);
  const auto fitter = MakeFitter(detector, options, found, tracks.GetNSlots());
  const std::vector<std::string> hits = DefineHits(tracks, found, prefix);
  const auto fit = [fitter](unsigned slot, const Values& view, const Values& u, const Values& sigu,
                            const Values& x, const Values& y, const Values& sigx,
                            const Values& sigy, const Values& z, const Values& sigz,
                            const Values& t, const Values& sigt, const Values& w) {
    const auto values = [](const Values& v) { return Numbers{v.data(), v.size()}; };
    return fitter->fSlots[slot]->Fit({Numbers(), values(view), values(u), values(sigu), values(x),
                                      values(y), values(sigx), values(sigy), values(z),
                                      values(sigz), values(t), values(sigt), values(w)});
  };
  const std::string source = Hidden(prefix, "result");
  return DefineResults(tracks.DefineSlot(source, fit, hits), prefix, source);
}

} // namespace kelvo
