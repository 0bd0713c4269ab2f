#include "run/FitFrame.h"

#include "geo/Detector.h"
#include "io/FileError.h"
#include "io/FitRow.h"
#include "io/HitNumbers.h"
#include "io/HitTable.h"
#include "io/NumberType.h"
#include "run/FitRun.h"
#include "run/RowFitter.h"
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

/// The fit of one entry: a row per hypothesis, of which the shown one has its vectors.
struct EntryFit {
  std::vector<FitRow> fRows;
  std::size_t fShown = 0;

  const FitRow& Shown() const { return fRows[fShown]; }
};

/// Fits the entries of one slot.
class SlotFitter {
public:
  SlotFitter(const RowFitter& fitter, HitColumns columns)
      : fFitter(fitter), fColumns(std::move(columns)) {}

  EntryFit Fit(const HitNumbers& numbers) {
    TrackHits track;
    AddEntry(fColumns, numbers, track);
    const TrackFit& fit = fFitter.Fit(track);
    EntryFit entry;
    entry.fShown = fit.Fitted() ? static_cast<std::size_t>(fit.fBest) : 0;
    entry.fRows.resize(fit.fHypothesis.size());
    for (std::size_t h = 0; h < entry.fRows.size(); h++)
      FillFitRow(track, fit, h, h == entry.fShown, entry.fRows[h]);
    return entry;
  }

private:
  RowFitter fFitter;
  HitColumns fColumns;
};

/// All that fits a data frame. Slots lie apart, so that their threads do not share memory.
struct FrameFitter {
  std::shared_ptr<const geo::GeometryBase> fDetector;
  std::vector<std::unique_ptr<SlotFitter>> fSlots;
};

/// ROOT keeps columns of such names out of what users see and store.
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

/// Gives a column of any vectors the name and double precision.
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

/// The names of the columns with the values of the hits, by HitColumn without the track.
std::vector<std::string> DefineHits(RNode& frame, const HitColumns& columns,
                                    const std::string& prefix) {
  const std::string none = Hidden(prefix, "none");
  frame = frame.Define(none, [] { return Values(); });
  std::vector<std::string> names;
  for (std::size_t i = kHitTrack + 1; i < kHitColumns; i++) {
    const auto column = static_cast<HitColumn>(i);
    names.push_back(none);
    if (!columns.Has(column)) continue;
    names.back() = Hidden(prefix, HitColumnNames()[i]);
    frame = DefineNumbers(frame, columns.Name(column), names.back());
  }
  return names;
}

HitColumns FindColumns(RNode& tracks, const std::map<std::string, std::string>& mapping,
                       const geo::GeometryBase* detector) {
  HitConventions conventions;
  conventions.fColumns = mapping;
  conventions.fPlanes = dynamic_cast<const geo::PlaneDetector*>(detector);
  try {
    return HitColumns("the data frame", tracks.GetColumnNames(), conventions, false);
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
  const RowFitter fitter(TrackFitter(*detector, options), planes);
  auto all = std::make_shared<FrameFitter>();
  all->fDetector = detector;
  for (unsigned i = 0; i < slots; i++)
    all->fSlots.push_back(std::make_unique<SlotFitter>(fitter, columns));
  return all;
}

// A column of the data frame for each value of a hit, by HitColumn without the track.
constexpr std::size_t kValues = kHitColumns - 1;

/// Returns the function that fits an entry; index makes its parameters as many as there are
/// columns.
template <std::size_t... index>
auto EntryFitter(const std::shared_ptr<FrameFitter>& fitter, std::index_sequence<index...>) {
  return [fitter](unsigned slot, const std::enable_if_t<(index < kValues), Values>&... values) {
    return fitter->fSlots[slot]->Fit({Numbers(), Numbers{values.data(), values.size()}...});
  };
}

RNode DefineResults(RNode frame, const std::string& prefix, const std::string& source,
                    bool withPlaces) {
  const auto shown = [&](const std::string& name, auto member) {
    const auto get = [member](const EntryFit& fit) { return fit.Shown().*member; };
    frame = frame.Define(prefix + name, get, {source});
  };
  const auto each = [&](const std::string& name, auto member) {
    const auto get = [member](const EntryFit& fit) {
      ROOT::RVec<std::decay_t<decltype(fit.Shown().*member)>> values;
      for (const FitRow& row : fit.fRows) values.push_back(row.*member);
      return values;
    };
    frame = frame.Define(prefix + "each_" + name, get, {source});
  };
  VisitScalars([&](const std::string& name, auto member) {
    if (name == "track") return; // the frame has it
    shown(name, member);
    each(name, member);
  });
  VisitVectors(shown);
  if (withPlaces) VisitPlaces(shown);
  return frame;
}

} // namespace

ROOT::RDF::RNode DefineFit(ROOT::RDF::RNode tracks,
                           const std::shared_ptr<const geo::GeometryBase>& detector,
                           const TrackFitOptions& options,
                           const std::map<std::string, std::string>& columns,
                           const std::string& prefix) {
  const HitColumns found = FindColumns(tracks, columns, detector.get());
  const auto fitter = MakeFitter(detector, options, found, tracks.GetNSlots());
  const std::vector<std::string> hits = DefineHits(tracks, found, prefix);
  const std::string source = Hidden(prefix, "result");
  return DefineResults(
      tracks.DefineSlot(source, EntryFitter(fitter, std::make_index_sequence<kValues>()), hits),
      prefix, source, !options.fAt.empty());
}

} // namespace kelvo
