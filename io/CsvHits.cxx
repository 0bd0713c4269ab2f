#include "io/CsvHits.h"

#include "io/FileError.h"
#include "util/Text.h"

#include <fmt/format.h>

#include <charconv>

namespace kelvo {

namespace {

// More than tables of hits have, so that a small compressed file cannot keep its reader busy.
constexpr std::size_t kMaxHits = 1'000'000; // of one track
constexpr unsigned kMaxSkipped = 1'000'000; // lines without data, one after the other
constexpr const char* kBadMarks =
    ": has a field that begins with a quotation mark and does not end with one";

} // namespace

bool SeenNumbers::Add(long long number) {
  auto next = fIntervals.upper_bound(number);
  auto previous = next == fIntervals.begin() ? fIntervals.end() : std::prev(next);
  if (previous != fIntervals.end() && previous->second >= number) return false;
  const bool joinsNext = next != fIntervals.end() && next->first - 1 == number;
  if (previous != fIntervals.end() && previous->second == number - 1)
    previous->second = number;
  else
    previous = fIntervals.emplace_hint(next, number, number);
  if (joinsNext) {
    previous->second = next->second;
    fIntervals.erase(next);
  }
  return true;
}

CsvHits::CsvHits(std::unique_ptr<InputBytes> bytes, const HitReaderOptions& options)
    : fFile(bytes->Name()), fInAnyOrder(options.fSort), fLines(std::move(bytes)) {
  ReadHeader(options);
}

void CsvHits::ReadHeader(const HitConventions& conventions) {
  std::string_view line;
  unsigned skipped = 0;
  do {
    if (skipped++ == kMaxSkipped) throw FileError(NoHits());
    if (!fLines.Next(line))
      throw FileError(fFile +
                      ": is empty; the first line must name the columns, such as "
                      "track,view,u,z,sigu");
  } while (Trimmed(line).empty() || line.front() == '#');
  fFields.FindSeparator(line);
  if (!fFields.Split(line)) throw FileError(Place() + kBadMarks);
  fWidth = fFields.Size();
  fColumns = HitColumns(Place(), fFields.Copies(), conventions);
}

bool CsvHits::Next(TrackHits& track) {
  track = TrackHits();
  track.fFile = fFile;
  bool open = false;
  for (; fHasLine || ReadLine(); fHasLine = false) {
    if (!fLine.fTrack && fInAnyOrder)
      throw FileError(fLine.fProblem +
                      "; of lines in any order each must have the number of its track");
    if (!fLine.fTrack) {
      fStrays.AddProblem(fLine.fProblem);
      continue;
    }
    if (open && *fLine.fTrack != track.fTrack) {
      if (!fStrays.Good()) fDoubt = fStrays.fProblems.front();
      TakeStrays(track);
      return true;
    }
    if (!open) Begin(track);
    open = true;
    TakeStrays(track);
    AddLine(track);
  }
  if (!open && !fStrays.Good())
    throw FileError(fStrays.fProblems.front() +
                    "; no line of the file has a readable track number");
  TakeStrays(track);
  return open;
}

void CsvHits::Begin(TrackHits& track) {
  track.fTrack = *fLine.fTrack;
  track.fPlace = fLine.fNumber;
  if (!fDoubt.empty()) {
    track.fMayLackHits = true;
    track.fProblems.push_back(fDoubt + "; the line may be one of this track");
    fDoubt.clear();
  }
  if (!fInAnyOrder && !fSeen.Add(track.fTrack))
    track.AddProblem(fmt::format(
        FMT_STRING("{}, column {}: track {} had lines further up; the lines of a track must "
                   "stand together"),
        Place(), fColumns.Name(kHitTrack), track.fTrack));
}

void CsvHits::AddLine(TrackHits& track) {
  if (!fLine.fProblem.empty()) return track.AddProblem(fLine.fProblem);
  if (track.fHits.size() >= kMaxHits)
    throw FileError(fmt::format(
        FMT_STRING("{}: track {} has more than {} hits; is column {} the number of the track?"),
        Place(), track.fTrack, kMaxHits, fColumns.Name(kHitTrack)));
  AddHit(fColumns, fLine.fValues, track);
}

void CsvHits::TakeStrays(TrackHits& track) {
  for (const std::string& problem : fStrays.fProblems) track.AddProblem(problem);
  track.fBadLines += fStrays.fBadLines - fStrays.fProblems.size();
  fStrays = TrackHits();
}

bool CsvHits::ReadLine() {
  std::string_view text;
  unsigned skipped = 0;
  do {
    if (skipped++ == kMaxSkipped) throw FileError(NoHits());
    if (!fLines.Next(text)) return false;
  } while (Trimmed(text).empty() || text.front() == '#');
  fLine.fNumber = fLines.Number();
  fLine.fTrack.reset();
  fLine.fProblem.clear();
  ParseLine(text);
  fHasLine = true;
  return true;
}

void CsvHits::ParseLine(std::string_view text) {
  const bool whole = fFields.Split(text);
  const bool hasTrack = fColumns.Index(kHitTrack) < fFields.Size();
  if (hasTrack && !ParseTrack()) return;
  if (!whole)
    fLine.fProblem = Place() + kBadMarks;
  else if (fFields.Size() != fWidth)
    fLine.fProblem = fmt::format(FMT_STRING("{}: has {} fields where {} columns are named"),
                                 Place(), fFields.Size(), fWidth);
  else
    ParseHit();
}

bool CsvHits::ParseHit() {
  for (std::size_t c = kHitTrack + 1; c < kHitColumns; c++) {
    const auto column = static_cast<HitColumn>(c);
    if (fColumns.Has(column) && !ParseValue(column, fLine.fValues[c])) return false;
  }
  return true;
}

bool CsvHits::ParseValue(HitColumn column, double& value) {
  if (column == kHitView)
    value = CharacterCode(Field(column));
  else if (column == kHitPlane)
    value = fColumns.PlaneNumber(Field(column));
  else if (!ParseNumber(column, value))
    return false;
  const char* rule = BrokenRule(fColumns, column, value);
  return !rule || Fail(column, Shown(Field(column)) + ' ' + rule);
}

bool CsvHits::ParseTrack() {
  const std::string_view field = Field(kHitTrack);
  long long track = 0;
  const char* end = field.data() + field.size();
  const auto [stop, error] = std::from_chars(field.data(), end, track);
  if (field.empty()) return Fail(kHitTrack, "is empty, a whole number is expected");
  if (error != std::errc() || stop != end)
    return Fail(kHitTrack, Shown(field) + " is not a whole number of 64 bits");
  fLine.fTrack = track;
  return true;
}

bool CsvHits::ParseNumber(HitColumn column, double& value) {
  const std::string_view field = Field(column);
  if (field.empty()) return Fail(column, "is empty, a number is expected");
  const char* begin = field.data();
  const char* end = begin + field.size();
  if (*begin == '+' && field.size() > 1 && begin[1] != '-') begin++;
  const auto [stop, error] = std::from_chars(begin, end, value);
  if (error == std::errc::result_out_of_range)
    return Fail(column, Shown(field) + " is too large or too small for a number");
  if (error != std::errc() || stop != end) return Fail(column, Shown(field) + " is not a number");
  if (!std::isfinite(value)) return Fail(column, Shown(field) + " is not a finite number");
  return true;
}

bool CsvHits::Fail(HitColumn column, const std::string& reason) {
  fLine.fProblem =
      fmt::format(FMT_STRING("{}, column {}: {}"), Place(), fColumns.Name(column), reason);
  return false;
}

std::string CsvHits::NoHits() const {
  return fmt::format(
      FMT_STRING("{}: {} lines without data one after the other; this is not a table of hits"),
      Place(), kMaxSkipped);
}

std::string CsvHits::Place() const {
  return fmt::format(FMT_STRING("{}, line {}"), fFile, fLines.Number());
}

} // namespace kelvo
