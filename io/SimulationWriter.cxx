#include "io/SimulationWriter.h"

#include "io/FileError.h"
#include "io/PendingFile.h"
#include "io/RootFile.h"
#include "util/Text.h"

#include <TDirectory.h>
#include <TTree.h>
#include <fmt/format.h>
#include <zlib.h>

#include <cerrno>
#include <cstring>

namespace kelvo {

namespace {

const std::vector<std::string> kCsvEnds{".csv.gz", ".csv"};
constexpr const char* kRootEnd = ".root";

// The unit of work of threads that read a file; fitting so many tracks takes some 0.2 s.
constexpr int kTracksPerCluster = 1000;

/// Returns a CSV file's end, empty for a ROOT file.
std::string CsvEnd(const std::string& file) {
  for (const std::string& end : kCsvEnds)
    if (EndsWith(file, end)) return end;
  if (EndsWith(file, kRootEnd)) return "";
  throw FileError(file +
                  ": the name tells the format of simulated hits and must end in .csv, "
                  ".csv.gz or .root");
}

/// A CSV file, compressed if its name ends in .gz.
class CsvFile {
public:
  CsvFile(const std::string& name, const std::string& header) : fFile(name) {
    // "T" leaves the bytes as they are.
    fOut = gzopen(fFile.Partial().c_str(), EndsWith(name, ".gz") ? "wb" : "wbT");
    if (!fOut) Fail();
    Put(header);
  }
  ~CsvFile() {
    if (fOut) gzclose(fOut);
  }
  CsvFile(const CsvFile&) = delete;
  CsvFile& operator=(const CsvFile&) = delete;

  void Put(const std::string& text) {
    errno = 0;
    if (gzwrite(fOut, text.data(), static_cast<unsigned>(text.size())) !=
        static_cast<int>(text.size()))
      Fail();
  }

  void Close() {
    errno = 0;
    const int status = gzclose(fOut);
    fOut = nullptr;
    if (status != Z_OK) Fail();
  }

  void Commit() { fFile.Commit(); }

private:
  [[noreturn]] void Fail() const {
    throw FileError(fFile.Name() + ": cannot be written: " + std::strerror(errno));
  }

  PendingFile fFile;
  gzFile fOut = nullptr;
};

// The columns of the tables beside the track's number, the same in all formats, and their values.
const std::vector<std::string> kHitNames{"u", "z", "sigu"};
const std::vector<std::string> kTruthNames{"x0", "y0", "z0", "px", "py",    "pz",
                                           "T",  "xe", "ye", "ze", "length"};
const std::vector<std::string> kHitTruthNames{"z", "x", "y", "dxdz", "dydz", "T"};

std::vector<double> HitNumbers(const SimulatedHit& hit) {
  return {hit.fU, hit.fZ, hit.fSigU};
}

std::vector<double> TruthNumbers(const SimulatedTrack& t) {
  const TVector3& x = t.fStart;
  const TVector3& p = t.fMomentum;
  const TVector3& end = t.fEnd;
  return {x.X(), x.Y(), x.Z(), p.X(), p.Y(), p.Z(), t.fT, end.X(), end.Y(), end.Z(), t.fLength};
}

std::vector<double> HitTruthNumbers(const SimulatedHit& hit) {
  return {hit.fTrue.Z(), hit.fTrue.X(), hit.fTrue.Y(), hit.fSlope.X(), hit.fSlope.Y(), hit.fT};
}

std::string Header(const std::string& first, const std::vector<std::string>& names) {
  return fmt::format(FMT_STRING("{},{}\n"), first, fmt::join(names, ","));
}

void AppendLine(std::string& text, const std::vector<double>& values) {
  for (const double value : values) {
    text += ',';
    AppendNumber(text, value);
  }
  text += '\n';
}

class CsvWriter final : public SimulationWriter {
public:
  CsvWriter(const std::vector<std::string>& names)
      : fHits(names[0], Header("track,view", kHitNames)),
        fTruth(names[1], Header("track,pdg", kTruthNames)) {
    if (names.size() > 2)
      fHitTruth = std::make_unique<CsvFile>(names[2], Header("track", kHitTruthNames));
  }

  void Write(const SimulatedTrack& track) override {
    std::string truth = fmt::format(FMT_STRING("{},{}"), track.fTrack, track.fPDG);
    AppendLine(truth, TruthNumbers(track));
    fTruth.Put(truth);
    std::string hits, hitTruth;
    for (const SimulatedHit& hit : track.fHits) {
      hits += fmt::format(FMT_STRING("{},{}"), track.fTrack, hit.fView == 0 ? 'X' : 'Y');
      AppendLine(hits, HitNumbers(hit));
      hitTruth += fmt::format(FMT_STRING("{}"), track.fTrack);
      AppendLine(hitTruth, HitTruthNumbers(hit));
    }
    fHits.Put(hits);
    if (fHitTruth) fHitTruth->Put(hitTruth);
  }

  void Commit() override {
    fHits.Close();
    fTruth.Close();
    if (fHitTruth) fHitTruth->Close();
    fTruth.Commit();
    if (fHitTruth) fHitTruth->Commit();
    fHits.Commit();
  }

private:
  CsvFile fHits;
  CsvFile fTruth;
  std::unique_ptr<CsvFile> fHitTruth;
};

class RootWriter final : public SimulationWriter {
public:
  RootWriter(const std::string& name, bool hitTruth, std::map<std::string, std::string> texts)
      : fName(name), fTexts(std::move(texts)), fOut(fName) {
    AddTree("hits", "simulated hits, one entry a track").Branch("view", &fView);
    AddTree("truth", "true start and end of each track").Branch("pdg", &fPDG, "pdg/I");
    AddVectors(*fTrees[0], kHitNames, fHitColumns);
    for (std::size_t i = 0; i < kTruthNames.size(); i++)
      fTrees[1]->Branch(kTruthNames[i].c_str(), &fTruth[i], (kTruthNames[i] + "/D").c_str());
    if (hitTruth)
      AddVectors(AddTree("hittruth", "truth of the hits, one entry a track"), kHitTruthNames,
                 fHitTruthColumns);
  }

  void Write(const SimulatedTrack& track) override {
    Fill(track);
    for (TTree* tree : fTrees) tree->Fill();
    fOut.Check();
  }

  void Commit() override {
    const TDirectory::TContext into(&fOut.File());
    for (TTree* tree : fTrees) tree->Write();
    fOut.Close(fTexts);
    fName.Commit();
  }

private:
  using Columns = std::vector<std::vector<double>>; // one vector of hits per column

  TTree& AddTree(const char* name, const char* title) {
    const TDirectory::TContext into(&fOut.File());
    fTrees.push_back(new TTree(name, title)); // the file's
    fTrees.back()->SetAutoFlush(kTracksPerCluster);
    fTrees.back()->Branch("track", &fTrack, "track/L");
    return *fTrees.back();
  }

  static void AddVectors(TTree& tree, const std::vector<std::string>& names, Columns& columns) {
    for (std::size_t i = 0; i < names.size(); i++) tree.Branch(names[i].c_str(), &columns[i]);
  }

  static void Append(const std::vector<double>& values, Columns& columns) {
    for (std::size_t i = 0; i < values.size(); i++) columns[i].push_back(values[i]);
  }

  void Fill(const SimulatedTrack& track) {
    fTrack = track.fTrack;
    fPDG = track.fPDG;
    const std::vector<double> truth = TruthNumbers(track);
    std::copy(truth.begin(), truth.end(), fTruth.begin());
    fView.clear();
    for (Columns* columns : {&fHitColumns, &fHitTruthColumns})
      for (auto& column : *columns) column.clear();
    for (const SimulatedHit& hit : track.fHits) {
      fView.push_back(hit.fView);
      Append(HitNumbers(hit), fHitColumns);
      Append(HitTruthNumbers(hit), fHitTruthColumns);
    }
  }

  PendingFile fName;
  std::map<std::string, std::string> fTexts;
  RootOutput fOut;
  std::vector<TTree*> fTrees;
  long long fTrack = 0; // what follows is the current entry, at addresses that the trees know
  int fPDG = 0;
  std::vector<int> fView;
  std::vector<double> fTruth = std::vector<double>(kTruthNames.size());
  Columns fHitColumns = Columns(kHitNames.size());
  Columns fHitTruthColumns = Columns(kHitTruthNames.size());
};

} // namespace

std::vector<std::string> SimulationFiles(const std::string& file, bool hitTruth) {
  const std::string end = CsvEnd(file);
  if (end.empty()) return {file};
  const std::string stem = file.substr(0, file.size() - end.size());
  std::vector<std::string> names{file, stem + ".truth" + end};
  if (hitTruth) names.push_back(stem + ".hittruth" + end);
  return names;
}

std::unique_ptr<SimulationWriter> MakeSimulationWriter(
    const std::string& file, bool hitTruth, const std::map<std::string, std::string>& texts) {
  if (CsvEnd(file).empty()) return std::make_unique<RootWriter>(file, hitTruth, texts);
  return std::make_unique<CsvWriter>(SimulationFiles(file, hitTruth));
}

} // namespace kelvo
