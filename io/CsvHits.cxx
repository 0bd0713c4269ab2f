#include "io/CsvHits.h"

#include "io/FileError.h"
#include "util/Text.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace kelvo {

namespace {

std::string_view Trimmed(std::string_view text) {
  const auto blank = [](char c) { return c == ' ' || c == '\t'; };
  while (!text.empty() && blank(text.front())) text.remove_prefix(1);
  while (!text.empty() && blank(text.back())) text.remove_suffix(1);
  if (text.size() >= 2 && text.front() == '"' && text.back() == '"')
    text = text.substr(1, text.size() - 2);
  return text;
}

void Split(std::string_view line, std::vector<std::string_view>& fields) {
  fields.clear();
  for (;;) {
    const std::size_t comma = line.find(',');
    fields.push_back(Trimmed(line.substr(0, comma)));
    if (comma == std::string_view::npos) return;
    line.remove_prefix(comma + 1);
  }
}

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

CsvHits::CsvHits(const std::string& file, const std::map<std::string, std::string>& columns)
    : fFile(file), fLines(file) {
  ReadHeader(columns);
}

void CsvHits::ReadHeader(const std::map<std::string, std::string>& columns) {
  std::string_view line;
  do {
    if (!fLines.Next(line))
      throw FileError(fFile +
                      ": is empty; the first line must name the columns, such as "
                      "track,view,u,z,sigu");
  } while (Trimmed(line).empty() || line.front() == '#');
  Split(line, fFields);
  fWidth = fFields.size();
  fColumns = HitColumns(Place(), {fFields.begin(), fFields.end()}, columns);
}

bool CsvHits::Next(TrackHits& track) {
  track = TrackHits();
  track.fFile = fFile;
  bool open = false;
  for (; fHasLine || ReadLine(); fHasLine = false) {
    if (!fLine.fTrack) {
      track.AddProblem(fLine.fProblem);
      continue;
    }
    if (open && *fLine.fTrack != track.fTrack) return true;
    if (!open) {
      open = true;
      track.fTrack = *fLine.fTrack;
      track.fPlace = fLine.fNumber;
      if (!fSeen.Add(track.fTrack))
        track.AddProblem(Place() + ", column " + fColumns.Name(kHitTrack) + ": track " +
                         std::to_string(track.fTrack) +
                         " had lines further up; the lines of a track must stand together");
    }
    if (!fLine.fProblem.empty())
      track.AddProblem(fLine.fProblem);
    else
      track.fHits.insert(track.fHits.end(), fLine.fHits, fLine.fHits + fLine.fNHits);
  }
  if (!open && track.fBadLines > 0)
    throw FileError(track.fProblems.front() + "; no line of the file has a readable track number");
  return open;
}

bool CsvHits::ReadLine() {
  std::string_view text;
  do {
    if (!fLines.Next(text)) return false;
  } while (Trimmed(text).empty() || text.front() == '#');
  fLine.fNumber = fLines.Number();
  fLine.fTrack.reset();
  fLine.fProblem.clear();
  fLine.fNHits = 0;
  ParseLine(text);
  fHasLine = true;
  return true;
}

void CsvHits::ParseLine(std::string_view text) {
  Split(text, fFields);
  const bool complete = fFields.size() == fWidth;
  const bool hasTrack = fColumns.Index(kHitTrack) < fFields.size();
  if (hasTrack && !ParseTrack()) return;
  if (!complete) {
    fLine.fProblem = Place() + ": has " + std::to_string(fFields.size()) + " fields where " +
                     std::to_string(fWidth) + " columns are named";
    return;
  }
  ParseHits();
}

bool CsvHits::ParseHits() {
  Hit3D hit;
  if (!fColumns.BothViews() && !ParseView(hit.fView)) return false;
  if (!Number(kHitZ, hit.fZ) || !Number(kHitT, hit.fT)) return false;
  if (!Uncertainty(kHitSigZ, true, hit.fSigZ) || !Uncertainty(kHitSigT, true, hit.fSigT))
    return false;
  if (!Uncertainty(kHitW, true, hit.fW)) return false;
  fLine.fHits[0] = fLine.fHits[1] = hit;
  Hit3D& first = fLine.fHits[0];
  Hit3D& second = fLine.fHits[1];
  if (fColumns.BothViews()) {
    first.fView = geo::kX;
    second.fView = geo::kY;
    fLine.fNHits = 2;
    return Number(kHitX, first.fX) && Number(kHitY, second.fY) &&
           Uncertainty(kHitSigX, false, first.fSigX) && Uncertainty(kHitSigY, false, second.fSigY);
  }
  fLine.fNHits = 1;
  const bool isX = hit.fView == geo::kX;
  return Number(kHitU, isX ? first.fX : first.fY) &&
         Uncertainty(kHitSigU, false, isX ? first.fSigX : first.fSigY);
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

bool CsvHits::ParseView(geo::_plane_proj& view) {
  const std::string_view field = Field(kHitView);
  const char c = field.size() == 1 ? field[0] : '?';
  if (c != 'X' && c != 'x' && c != '0' && c != 'Y' && c != 'y' && c != '1')
    return Fail(kHitView, Shown(field) + " is not a view, which is X or Y");
  view = c == 'X' || c == 'x' || c == '0' ? geo::kX : geo::kY;
  return true;
}

// Leaves the value as it is where the file has no such column.
bool CsvHits::Number(HitColumn column, double& value) {
  if (!fColumns.Has(column)) return true;
  const std::string_view field = Field(column);
  if (field.empty()) return Fail(column, "is empty, a number is expected");
  const char* begin = field.data();
  const char* end = begin + field.size();
  if (*begin == '+' && field.size() > 1 && begin[1] != '-') ++begin;
  const auto [stop, error] = std::from_chars(begin, end, value);
  if (error == std::errc::result_out_of_range)
    return Fail(column, Shown(field) + " is too large or too small for a number");
  if (error != std::errc() || stop != end) return Fail(column, Shown(field) + " is not a number");
  if (!std::isfinite(value)) return Fail(column, Shown(field) + " is not a finite number");
  return true;
}

bool CsvHits::Uncertainty(HitColumn column, bool mayBeZero, double& value) {
  if (!fColumns.Has(column)) return true;
  if (!Number(column, value)) return false;
  const std::string_view field = Field(column);
  if (value < 0) return Fail(column, Shown(field) + " is below 0");
  if (value == 0 && !mayBeZero) return Fail(column, Shown(field) + " is not above 0");
  return true;
}

bool CsvHits::Fail(HitColumn column, const std::string& reason) {
  fLine.fProblem = Place() + ", column " + fColumns.Name(column) + ": " + reason;
  return false;
}

std::string CsvHits::Place() const {
  return fFile + ", line " + std::to_string(fLines.Number());
}

} // namespace kelvo
