#include "run/FitMerge.h"

#include "io/FileError.h"
#include "io/FileNames.h"
#include "io/FitReader.h"
#include "io/PendingFile.h"
#include "util/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <map>
#include <stdexcept>

namespace kelvo {

namespace {

constexpr std::size_t kBlock = 1000; // rows that are read before they are written

using Options = std::map<std::string, std::string>; // by their names

Options OptionsOf(const std::string& text) {
  Options options;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    const std::string line = text.substr(begin, end - begin);
    const std::size_t equals = line.find(" = ");
    if (equals != std::string::npos) options[line.substr(0, equals)] = line.substr(equals + 3);
    begin = end + 1;
  }
  return options;
}

unsigned long long NumberOf(const Options& options, const std::string& name) {
  unsigned long long number = 0;
  const auto found = options.find(name);
  if (found != options.end())
    std::from_chars(found->second.data(), found->second.data() + found->second.size(), number);
  return number;
}

/// What a part says of itself.
struct Part {
  std::string fFile;
  Options fOptions;
  std::string fDetector, fVersion;
  bool fHasVectors, fHasPlaces;
  unsigned long long fFirst, fLimit, fTracks, fEntries;

  unsigned long long End() const { return fFirst + fTracks; }
};

Part Describe(const std::string& file) {
  const FitReader reader(file);
  Part part{file,
            OptionsOf(reader.Text("options")),
            reader.Text("detector"),
            reader.Text("version"),
            reader.HasVectors(),
            reader.HasPlaces(),
            0,
            0,
            0,
            static_cast<unsigned long long>(reader.Entries())};
  const auto hypotheses = part.fOptions.find("hypotheses");
  if (hypotheses == part.fOptions.end())
    throw FileError(file + ": does not say how its fits were made; fit its tracks again");
  const auto commas = std::count(hypotheses->second.begin(), hypotheses->second.end(), ',');
  part.fTracks = part.fEntries / static_cast<unsigned long long>(commas + 1);
  part.fFirst = NumberOf(part.fOptions, "first");
  part.fLimit = NumberOf(part.fOptions, "limit");
  part.fOptions.erase("first");
  part.fOptions.erase("limit");
  return part;
}

std::string ValueOf(const Options& options, const std::string& name) {
  const auto found = options.find(name);
  return found == options.end() ? "nothing" : found->second;
}

/// Throws unless two parts were made alike.
void Compare(const Part& a, const Part& b) {
  const std::string both = b.fFile + " and " + a.fFile + ": ";
  if (a.fVersion != b.fVersion)
    throw FileError(both + "were made by kelvo " + b.fVersion + " and " + a.fVersion +
                    "; fit all parts with one version");
  if (a.fDetector != b.fDetector)
    throw FileError(both + "were made with different detector files; fit all parts with one");
  if (a.fHasVectors != b.fHasVectors)
    throw FileError(both + "one of them was made with --scalars; fit all parts alike");
  Options all = a.fOptions;
  all.insert(b.fOptions.begin(), b.fOptions.end());
  for (const auto& [name, value] : all) {
    const std::string ofA = ValueOf(a.fOptions, name), ofB = ValueOf(b.fOptions, name);
    if (ofA == ofB) continue;
    const char* cure = name == "charge_scale" ? "; give the scale with --charge-scale"
                                              : "; fit all parts with the same options";
    throw FileError(both + name + " is " + ofB + " in the one and " + ofA + " in the other" + cure);
  }
}

/// Returns the parts in the order of their tracks, which follow each other without a gap.
std::vector<Part> InOrder(const std::vector<std::string>& files) {
  std::vector<Part> parts;
  for (const std::string& file : files) parts.push_back(Describe(file));
  for (const Part& part : parts) Compare(parts.front(), part);
  std::stable_sort(parts.begin(), parts.end(),
                   [](const Part& a, const Part& b) { return a.fFirst < b.fFirst; });
  unsigned long long end = 0;
  const std::string* before = nullptr;
  for (const Part& part : parts) {
    if (part.fTracks == 0) continue; // it begins behind the last track
    if (part.fFirst > end)
      throw FileError(fmt::format(
          FMT_STRING("{}: begins with track {} of the input, and no part has those from {} on; fit "
                     "them with --first {} --limit {}"),
          part.fFile, part.fFirst, end, end, part.fFirst - end));
    if (part.fFirst < end)
      throw FileError(fmt::format(FMT_STRING("{}: begins with track {} of the input, which {} has, "
                                             "too; give each part once"),
                                  part.fFile, part.fFirst, *before));
    end = part.End();
    before = &part.fFile;
  }
  return parts;
}

FitMergeSummary SummaryOf(const std::vector<Part>& parts) {
  FitMergeSummary summary;
  for (const Part& part : parts) {
    summary.fTracks += part.fTracks;
    // A part without tracks says that there are none behind those before it.
    summary.fMayLackTracks = part.fTracks > 0 && part.fTracks == part.fLimit;
  }
  return summary;
}

FitWriterOptions WriterOptions(const FitMergeOptions& options, const Part& part,
                               const FitMergeSummary& summary) {
  const FitReader reader(part.fFile);
  const unsigned long long limit = summary.fMayLackTracks ? summary.fTracks : 0;
  const std::string& ofPart = reader.Text("options");
  FitWriterOptions writing;
  writing.fFormat = options.fFormat;
  writing.fWithVectors = part.fHasVectors;
  writing.fWithPlaces = part.fHasPlaces;
  writing.fTexts = {{"options", ofPart.substr(0, ofPart.find("\nfirst = ")) +
                                    "\nfirst = 0\nlimit = " + std::to_string(limit) + "\n"},
                    {"detector", part.fDetector},
                    {"version", part.fVersion}};
  if (!options.fCommand.empty()) writing.fTexts["command"] = options.fCommand;
  return writing;
}

/// Copies all entries; told(written) after each block.
void Copy(const std::vector<Part>& parts, FitWriter& writer,
          const std::function<void(unsigned long long)>& told) {
  std::vector<FitRow> rows;
  unsigned long long written = 0;
  const auto write = [&] {
    writer.Write(rows);
    written += rows.size();
    rows.clear();
    told(written);
  };
  for (const Part& part : parts) {
    FitReader reader(part.fFile);
    const FitPart columns = part.fHasVectors ? FitPart::kAll : FitPart::kScalars;
    for (long long i = 0; i < reader.Entries(); i++) {
      rows.push_back(reader.Read(i, columns));
      if (rows.size() == kBlock) write();
    }
  }
  write();
}

} // namespace

FitMergeSummary MergeFits(const FitMergeOptions& options, const GoOn& progress) {
  if (options.fParts.empty()) throw std::invalid_argument("there is no file of fits");
  CheckApart(options.fParts, {options.fOutput});
  const auto start = std::chrono::steady_clock::now();
  const std::vector<Part> parts = InOrder(options.fParts);
  const FitMergeSummary summary = SummaryOf(parts);
  unsigned long long entries = 0;
  for (const Part& part : parts) entries += part.fEntries;

  PendingFile output(options.fOutput);
  FitWriter writer(output, WriterOptions(options, parts.front(), summary));
  Copy(parts, writer, [&](unsigned long long written) {
    if (!progress || entries == 0) return;
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    const unsigned long long tracks = summary.fTracks * written / entries;
    const double fraction = static_cast<double>(written) / static_cast<double>(entries);
    if (!progress({tracks, fraction, time.count()})) throw RunStopped();
  });
  writer.Close();
  output.Commit();
  return summary;
}

} // namespace kelvo
