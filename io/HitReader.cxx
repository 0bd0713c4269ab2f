#include "io/HitReader.h"

#include "io/CsvHits.h"
#include "io/FileError.h"
#include "io/InputBytes.h"
#include "io/RootHits.h"

#include <fmt/format.h>

#include <filesystem>
#include <numeric>
#include <unordered_map>

namespace kelvo {

namespace {

constexpr std::size_t kProblemsKept = 10;

/// Size of a file [bytes]; 0 for a pipe, which is not touched: it can be opened only once.
double SizeOf(const std::string& file) {
  std::error_code error;
  const auto type = std::filesystem::status(file, error).type();
  const bool isPipe = file == "-" || type == std::filesystem::file_type::fifo ||
                      type == std::filesystem::file_type::character;
  if (isPipe) return 0;
  if (type == std::filesystem::file_type::regular) InputBytes check(file);
  const auto size = std::filesystem::file_size(file, error);
  return error ? 0 : static_cast<double>(size);
}

/// The pieces of tracks that a source gives, put together.
class SortedHits : public HitSource {
public:
  explicit SortedHits(std::unique_ptr<HitSource> pieces) : fPieces(std::move(pieces)) {}

  bool Next(TrackHits& track) override {
    if (fPieces) Sort();
    if (fNext == fTracks.size()) return false;
    track = std::move(fTracks[fNext++]);
    return true;
  }

  double Fraction() const override { return fPieces ? fPieces->Fraction() : 1; }

private:
  void Sort() {
    std::unordered_map<long long, std::size_t> places;
    for (TrackHits piece; fPieces->Next(piece);) {
      const auto [place, isNew] = places.emplace(piece.fTrack, fTracks.size());
      if (isNew)
        fTracks.push_back(std::move(piece));
      else
        Append(piece, fTracks[place->second]);
    }
    fPieces.reset();
  }

  static void Append(const TrackHits& piece, TrackHits& track) {
    track.fHits.insert(track.fHits.end(), piece.fHits.begin(), piece.fHits.end());
    track.fCharges.insert(track.fCharges.end(), piece.fCharges.begin(), piece.fCharges.end());
    for (const std::string& problem : piece.fProblems) track.AddProblem(problem);
    track.fBadLines += piece.fBadLines - piece.fProblems.size();
  }

  std::unique_ptr<HitSource> fPieces; // null once all are sorted
  std::vector<TrackHits> fTracks;
  std::size_t fNext = 0;
};

std::unique_ptr<HitSource> Open(const std::string& file, const HitReaderOptions& options) {
  auto bytes = std::make_unique<InputBytes>(file);
  if (bytes->BeginsWith("PAR1"))
    throw FileError(file +
                    ": this is a Parquet file; kelvo.fit_tracks of the Python package reads it, "
                    "or write its hits as CSV");
  if (!bytes->BeginsWith("root")) {
    auto lines = std::make_unique<CsvHits>(std::move(bytes), options);
    if (!options.fSort) return lines;
    return std::make_unique<SortedHits>(std::move(lines));
  }
  if (!bytes->IsFile())
    throw FileError(file + ": is a ROOT file, which cannot be read from a pipe; give its name");
  return OpenRootHits(file, options);
}

} // namespace

std::string TrackHits::Place() const {
  return fmt::format(FMT_STRING("{}, {} {}"), fFile, fPlaceWord, fPlace);
}

void TrackHits::AddProblem(const std::string& sentence) {
  fBadLines++;
  if (fProblems.size() < kProblemsKept) fProblems.push_back(sentence);
}

unsigned long long HitSource::Skip(unsigned long long tracks) {
  TrackHits track;
  unsigned long long skipped = 0;
  while (skipped < tracks && Next(track)) skipped++;
  return skipped;
}

HitReaderOptions::HitReaderOptions() = default;

HitReader::HitReader(std::vector<std::string> files, HitReaderOptions options)
    : fFiles(std::move(files)), fOptions(std::move(options)) {
  CheckHitConventions(fOptions);
  for (const std::string& file : fFiles) fSizes.push_back(SizeOf(file));
}

HitReader::~HitReader() = default;

bool HitReader::Next(TrackHits& track) {
  do {
    if (fSource && fSource->Next(track)) return true;
  } while (OpenNext());
  return false;
}

unsigned long long HitReader::Skip(unsigned long long tracks) {
  unsigned long long skipped = 0;
  do {
    if (fSource) skipped += fSource->Skip(tracks - skipped);
  } while (skipped < tracks && OpenNext());
  return skipped;
}

bool HitReader::OpenNext() {
  fSource.reset();
  if (fNext == fFiles.size()) return false;
  fSource = Open(fFiles[fNext++], fOptions);
  return true;
}

double HitReader::Fraction() const {
  const double all = std::accumulate(fSizes.begin(), fSizes.end(), 0.0);
  if (all == 0) return 0;
  const std::size_t opened = fNext;
  double read = std::accumulate(fSizes.begin(), fSizes.begin() + static_cast<long>(opened), 0.0);
  if (fSource) read -= fSizes[opened - 1] * (1 - fSource->Fraction());
  return read / all;
}

} // namespace kelvo
