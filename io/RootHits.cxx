#include "io/RootHits.h"

#include "io/FileError.h"
#include "io/HitColumns.h"
#include "io/HitNumbers.h"
#include "io/HitTable.h"
#include "io/RootFile.h"
#include "util/Text.h"

#include <TKey.h>

#include <algorithm>
#include <array>

namespace kelvo {

namespace {

struct TableName {
  std::string fName;
  bool fIsNTuple = false;
};

TableName FindTable(TFile& file, const std::string& place, const std::string& wanted) {
  std::vector<std::string> names;
  std::vector<TableName> tables;
  for (const TObject* object : *file.GetListOfKeys()) {
    const auto& key = static_cast<const TKey&>(*object);
    const std::string type = key.GetClassName();
    const bool isNTuple = type == "ROOT::RNTuple";
    // A tree that was saved in between has several keys of one name.
    const bool again = std::find(names.begin(), names.end(), key.GetName()) != names.end();
    if ((type != "TTree" && type != "TNtuple" && !isNTuple) || again) continue;
    names.emplace_back(key.GetName());
    tables.push_back({key.GetName(), isNTuple});
  }
  if (names.empty()) throw FileError(place + ": holds no TTree and no RNTuple");
  const auto found =
      std::find(names.begin(), names.end(), wanted.empty() ? std::string("hits") : wanted);
  if (found != names.end()) return tables[static_cast<std::size_t>(found - names.begin())];
  if (wanted.empty() && names.size() == 1) return tables[0];
  throw FileError(place + ": holds " + Joined(names) +
                  (wanted.empty() ? "; tell which of them has the hits" : ", no " + wanted));
}

class RootHits : public HitSource {
public:
  RootHits(const std::string& file, const HitReaderOptions& options)
      : fFile(file), fRootFile(OpenRootFile(file)) {
    const TableName table = FindTable(*fRootFile, file, options.fTree);
    const std::string place = file + ", " + table.fName;
    fTable = table.fIsNTuple ? MakeNTupleTable(*fRootFile, table.fName, place)
                             : MakeTreeTable(*fRootFile, table.fName, place);
    fColumns = HitColumns(place, fTable->Columns(), options);
    fTable->BindNumber(fColumns.Name(kHitTrack), fTrack);
    for (std::size_t c = 0; c < kHitColumns; c++)
      if (c != kHitTrack && Has(c)) Bind(Column(c));
    fEntries = fTable->Entries();
  }

  bool Next(TrackHits& track) override {
    track = TrackHits();
    if (fEntry == fEntries) return false;
    fTable->Read(fEntry);
    track.fTrack = fTrack;
    track.fFile = fFile;
    track.fPlace = static_cast<unsigned long long>(fEntry);
    track.fPlaceWord = "entry";
    HitNumbers numbers;
    for (std::size_t c = 0; c < kHitColumns; c++)
      numbers[c] = {fValues[c].data(), fValues[c].size()};
    AddEntry(fColumns, numbers, track);
    fEntry++;
    return true;
  }

  unsigned long long Skip(unsigned long long tracks) override {
    const auto left = static_cast<unsigned long long>(fEntries - fEntry);
    const unsigned long long skipped = std::min(tracks, left);
    fEntry += static_cast<long long>(skipped);
    return skipped;
  }

  double Fraction() const override {
    return fEntries == 0 ? 0 : static_cast<double>(fEntry) / static_cast<double>(fEntries);
  }

private:
  static HitColumn Column(std::size_t c) { return static_cast<HitColumn>(c); }
  bool Has(std::size_t c) const { return fColumns.Has(Column(c)); }

  void Bind(HitColumn column) {
    if (column == kHitView)
      fTable->BindViews(fColumns.Name(column), fValues[column]);
    else
      fTable->BindNumbers(fColumns.Name(column), fValues[column]);
  }

  std::string fFile;
  std::unique_ptr<TFile> fRootFile;
  HitColumns fColumns;
  long long fTrack = 0;
  std::array<std::vector<double>, kHitColumns> fValues;
  std::unique_ptr<HitTable> fTable; // writes into the values
  long long fEntry = 0;             // the next one
  long long fEntries = 0;
};

} // namespace

std::unique_ptr<HitSource> OpenRootHits(const std::string& file, const HitReaderOptions& options) {
  return std::make_unique<RootHits>(file, options);
}

} // namespace kelvo
