#include "io/HitReader.h"

#include "io/CsvHits.h"
#include "io/FileError.h"
#include "io/HitColumns.h"
#include "io/RootHits.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <numeric>

namespace kelvo {

namespace {

constexpr std::size_t kProblemsKept = 10;

bool IsRootFile(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  char magic[4] = {};
  in.read(magic, sizeof magic);
  return in && std::memcmp(magic, "root", sizeof magic) == 0;
}

double SizeOf(const std::string& file) {
  errno = 0;
  if (!std::ifstream(file).good())
    throw FileError(file + ": cannot be opened: " + std::strerror(errno ? errno : ENOENT));
  std::error_code error;
  const auto size = std::filesystem::file_size(file, error);
  return error ? 0 : static_cast<double>(size);
}

} // namespace

std::string TrackHits::Place() const {
  return fmt::format(FMT_STRING("{}, {} {}"), fFile, fPlaceWord, fPlace);
}

void TrackHits::AddProblem(const std::string& sentence) {
  fBadLines++;
  if (fProblems.size() < kProblemsKept) fProblems.push_back(sentence);
}

HitReader::HitReader(std::vector<std::string> files, HitReaderOptions options)
    : fFiles(std::move(files)), fOptions(std::move(options)) {
  CheckHitColumnNames(fOptions.fColumns);
  for (const std::string& file : fFiles) fSizes.push_back(SizeOf(file));
}

HitReader::~HitReader() = default;

bool HitReader::Next(TrackHits& track) {
  for (;;) {
    if (fSource && fSource->Next(track)) return true;
    fSource.reset();
    if (fNext == fFiles.size()) return false;
    const std::string& file = fFiles[fNext++];
    if (IsRootFile(file))
      fSource = OpenRootHits(file, fOptions);
    else
      fSource = std::make_unique<CsvHits>(file, fOptions.fColumns);
  }
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
