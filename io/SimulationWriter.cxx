#include "io/SimulationWriter.h"

#include "io/FileError.h"
#include "io/PendingFile.h"
#include "util/Text.h"

#include <TDirectory.h>
#include <TFile.h>
#include <TObjString.h>
#include <TTree.h>
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
    Put(header + '\n');
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

void Append(std::string& line, double value) {
  AppendNumber(line, value);
  line += ',';
}
void Append(std::string& line, const TVector3& x) {
  for (int k = 0; k < 3; ++k) Append(line, x[k]);
}

class CsvWriter final : public SimulationWriter {
public:
  CsvWriter(const std::vector<std::string>& names)
      : fHits(names[0], "track,view,u,z,sigu"),
        fTruth(names[1], "track,pdg,x0,y0,z0,px,py,pz,T,xe,ye,ze,length") {
    if (names.size() > 2)
      fHitTruth = std::make_unique<CsvFile>(names[2], "track,z,x,y,dxdz,dydz,T");
  }

  void Write(const SimulatedTrack& track) override {
    WriteTruth(track);
    std::string hits, truth;
    for (const SimulatedHit& hit : track.fHits) {
      AppendNumber(hits, track.fTrack);
      hits += hit.fView == 0 ? ",X," : ",Y,";
      for (const double value : {hit.fU, hit.fZ, hit.fSigU}) Append(hits, value);
      hits.back() = '\n';
      AppendNumber(truth, track.fTrack);
      truth += ',';
      for (const double value :
           {hit.fTrue.Z(), hit.fTrue.X(), hit.fTrue.Y(), hit.fSlope.X(), hit.fSlope.Y(), hit.fT})
        Append(truth, value);
      truth.back() = '\n';
    }
    fHits.Put(hits);
    if (fHitTruth) fHitTruth->Put(truth);
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
  void WriteTruth(const SimulatedTrack& track) {
    std::string line;
    AppendNumber(line, track.fTrack);
    line += ',';
    AppendNumber(line, track.fPDG);
    line += ',';
    Append(line, track.fStart);
    Append(line, track.fMomentum);
    Append(line, track.fT);
    Append(line, track.fEnd);
    Append(line, track.fLength);
    line.back() = '\n';
    fTruth.Put(line);
  }

  CsvFile fHits;
  CsvFile fTruth;
  std::unique_ptr<CsvFile> fHitTruth;
};

class RootWriter final : public SimulationWriter {
public:
  RootWriter(const std::string& name, bool hitTruth,
             const std::map<std::string, std::string>& texts)
      : fName(name), fTexts(texts) {
    const TDirectory::TContext restore;
    fOut.reset(TFile::Open(fName.Partial().c_str(), "RECREATE"));
    if (!fOut || fOut->IsZombie()) Fail();
    // The trees belong to the file.
    fHits = new TTree("hits", "simulated hits, one entry a track");
    fTruth = new TTree("truth", "true start and end of each track");
    fHits->Branch("track", &fTrack, "track/L");
    fHits->Branch("view", &fView);
    fHits->Branch("u", &fColumns[0]);
    fHits->Branch("z", &fColumns[1]);
    fHits->Branch("sigu", &fColumns[2]);
    fTruth->Branch("track", &fTrack, "track/L");
    fTruth->Branch("pdg", &fPDG, "pdg/I");
    const char* const scalars[] = {"x0", "y0", "z0", "px", "py",    "pz",
                                   "T",  "xe", "ye", "ze", "length"};
    for (std::size_t i = 0; i < std::size(scalars); ++i)
      fTruth->Branch(scalars[i], &fScalars[i], (std::string(scalars[i]) + "/D").c_str());
    fHits->SetAutoFlush(kTracksPerCluster);
    fTruth->SetAutoFlush(kTracksPerCluster);
    if (!hitTruth) return;
    fHitTruth = new TTree("hittruth", "truth of the hits, one entry a track");
    fHitTruth->SetAutoFlush(kTracksPerCluster);
    fHitTruth->Branch("track", &fTrack, "track/L");
    const char* const vectors[] = {"z", "x", "y", "dxdz", "dydz", "T"};
    for (std::size_t i = 0; i < std::size(vectors); ++i)
      fHitTruth->Branch(vectors[i], &fTrueColumns[i]);
  }

  void Write(const SimulatedTrack& track) override {
    Fill(track);
    for (TTree* tree : {fHits, fTruth, fHitTruth})
      if (tree && tree->Fill() < 0) Fail();
  }

  void Commit() override {
    {
      const TDirectory::TContext into(fOut.get());
      for (TTree* tree : {fHits, fTruth, fHitTruth})
        if (tree && tree->Write() <= 0) Fail();
      for (const auto& [name, text] : fTexts) {
        const TObjString object(text.c_str());
        if (fOut->WriteObject(&object, name.c_str()) <= 0) Fail();
      }
      fOut->Close();
    }
    if (fOut->TestBit(TFile::kWriteError)) Fail();
    fName.Commit();
  }

private:
  void Fill(const SimulatedTrack& track) {
    fTrack = track.fTrack;
    fPDG = track.fPDG;
    const TVector3& p = track.fMomentum;
    const double scalars[] = {
        track.fStart.X(), track.fStart.Y(), track.fStart.Z(), p.X(),          p.Y(),        p.Z(),
        track.fT,         track.fEnd.X(),   track.fEnd.Y(),   track.fEnd.Z(), track.fLength};
    std::copy(std::begin(scalars), std::end(scalars), fScalars);
    fView.clear();
    for (auto& column : fColumns) column.clear();
    for (auto& column : fTrueColumns) column.clear();
    for (const SimulatedHit& hit : track.fHits) {
      fView.push_back(hit.fView);
      const double values[] = {hit.fU, hit.fZ, hit.fSigU};
      for (std::size_t i = 0; i < std::size(values); ++i) fColumns[i].push_back(values[i]);
      const double truth[] = {hit.fTrue.Z(),  hit.fTrue.X(),  hit.fTrue.Y(),
                              hit.fSlope.X(), hit.fSlope.Y(), hit.fT};
      for (std::size_t i = 0; i < std::size(truth); ++i) fTrueColumns[i].push_back(truth[i]);
    }
  }

  [[noreturn]] void Fail() const {
    throw FileError(fName.Name() + ": could not be written completely; is the disk full?");
  }

  PendingFile fName;
  std::map<std::string, std::string> fTexts;
  std::unique_ptr<TFile> fOut;
  TTree* fHits = nullptr;
  TTree* fTruth = nullptr;
  TTree* fHitTruth = nullptr;
  long long fTrack = 0; // what follows is the current entry
  int fPDG = 0;
  double fScalars[11] = {};
  std::vector<int> fView;
  std::vector<double> fColumns[3];
  std::vector<double> fTrueColumns[6];
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
