#include "io/TruthReader.h"

#include "io/CsvFields.h"
#include "io/FileError.h"
#include "io/RootFile.h"
#include "io/TextLines.h"
#include "util/Text.h"

#include <TLeaf.h>
#include <TTree.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>

namespace kelvo {

namespace {

constexpr const char* kTable = "truth";
constexpr std::size_t kNumbers = 6;
constexpr std::array<const char*, 2 + kNumbers> kNames{"track", "pdg", "x0", "y0",
                                                       "z0",    "px",  "py", "pz"};

using Numbers = std::array<double, kNumbers>;

TrueTrack MakeTrack(long long pdg, const Numbers& n) {
  return {static_cast<int>(pdg), n[0], n[1], n[2], n[3], n[4], n[5]};
}

[[noreturn]] void ThrowMissing(const std::string& place, const char* name) {
  throw FileError(fmt::format(FMT_STRING("{}: has no column {}; the truth has {}, as kelvo "
                                         "simulate writes it beside the hits"),
                              place, name, fmt::join(kNames, ", ")));
}

/// Where the columns stand in the lines of a file.
std::array<std::size_t, kNames.size()> ColumnsOf(const CsvFields& header,
                                                 const std::string& place) {
  const std::vector<std::string> names = header.Copies();
  std::array<std::size_t, kNames.size()> columns{};
  for (std::size_t i = 0; i < kNames.size(); i++) {
    const auto found = std::find(names.begin(), names.end(), kNames[i]);
    if (found == names.end()) ThrowMissing(place, kNames[i]);
    columns[i] = static_cast<std::size_t>(found - names.begin());
  }
  return columns;
}

template <typename T>
T NumberIn(std::string_view field, const std::string& place, const char* name) {
  T value{};
  const auto [stop, error] = std::from_chars(field.data(), field.data() + field.size(), value);
  const bool isWhole = error == std::errc() && stop == field.data() + field.size();
  if (!isWhole || !std::isfinite(static_cast<double>(value)))
    throw FileError(fmt::format(FMT_STRING("{}, column {}: {} is not a {}number"), place, name,
                                Shown(field), std::is_integral_v<T> ? "whole " : ""));
  return value;
}

bool IsData(std::string_view line) {
  return !Trimmed(line).empty() && line.front() != '#';
}

} // namespace

TrueTracks::TrueTracks(const std::string& file) : fFile(file) {
  if (EndsWith(file, ".root"))
    ReadTree();
  else
    ReadCsv();
}

const TrueTrack* TrueTracks::Find(long long track) const {
  const auto found = fTracks.find(track);
  return found == fTracks.end() ? nullptr : &found->second;
}

void TrueTracks::Add(long long number, const TrueTrack& track, const std::string& place) {
  if (!fTracks.emplace(number, track).second)
    throw FileError(
        fmt::format(FMT_STRING("{}: track {} was there before; each has one line"), place, number));
}

void TrueTracks::ReadCsv() {
  TextLines lines(std::make_unique<InputBytes>(fFile));
  const auto place = [&] { return fmt::format(FMT_STRING("{}, line {}"), fFile, lines.Number()); };
  CsvFields fields;
  std::string_view line;
  bool any = false;
  while (!any && lines.Next(line)) any = IsData(line);
  if (!any) throw FileError(fFile + ": is empty");
  fields.Split(line);
  const auto columns = ColumnsOf(fields, place());
  const std::size_t width = fields.Size();
  while (lines.Next(line)) {
    if (!IsData(line)) continue;
    if (!fields.Split(line) || fields.Size() != width)
      throw FileError(fmt::format(FMT_STRING("{}: has {} fields where {} columns are named"),
                                  place(), fields.Size(), width));
    const auto whole = [&](std::size_t i) {
      return NumberIn<long long>(fields[columns[i]], place(), kNames[i]);
    };
    Numbers numbers;
    for (std::size_t i = 0; i < kNumbers; i++)
      numbers[i] = NumberIn<double>(fields[columns[i + 2]], place(), kNames[i + 2]);
    Add(whole(0), MakeTrack(whole(1), numbers), place());
  }
}

void TrueTracks::ReadTree() {
  const auto file = OpenRootFile(fFile);
  auto* tree = file->Get<TTree>(kTable);
  if (!tree) throw FileError(fFile + ": has no TTree \"truth\", as kelvo simulate writes it");
  std::array<TLeaf*, kNames.size()> leaves{};
  for (std::size_t i = 0; i < kNames.size(); i++) {
    leaves[i] = tree->GetLeaf(kNames[i]);
    if (!leaves[i]) ThrowMissing(fFile + ", " + kTable, kNames[i]);
  }
  for (long long entry = 0; entry < tree->GetEntries(); entry++) {
    const std::string place = fmt::format(FMT_STRING("{}, {}, entry {}"), fFile, kTable, entry);
    if (tree->GetEntry(entry) <= 0)
      throw FileError(place + ": cannot be read; is the file damaged?");
    Numbers numbers;
    for (std::size_t i = 0; i < kNumbers; i++) numbers[i] = leaves[i + 2]->GetValue();
    Add(leaves[0]->GetValueLong64(), MakeTrack(leaves[1]->GetValueLong64(), numbers), place);
  }
}

} // namespace kelvo
