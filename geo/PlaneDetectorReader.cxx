#include "geo/PlaneDetectorReader.h"

#include "geo/DetectorFiles.h"
#include "geo/Matter.h"
#include "geo/TomlTable.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace geo {

namespace {

using Part = DetectorDescription::Part;
using Placed = DetectorDescription::Placed;
using tomlfile::ListOfNames;
using tomlfile::Quoted;
using tomlfile::Range;
using tomlfile::Table;
using tomlfile::ToText;

// Two faces closer than this [cm] touch: rounding of sums of lengths, not a gap.
constexpr double kTouch = 1e-9;

// Protects the memory against a slip in a number.
constexpr std::int64_t kMaxParts = 100000;

constexpr Range kLength{"a length in cm from 1e-6 to 1e6", 1e-6, 1e6, true};
constexpr Range kPosition{"a position in cm from -1e6 to 1e6", -1e6, 1e6, true};
constexpr Range kDensity{"a density in g/cm3 from 1e-30 to 1e3", 1e-30, 1e3};
constexpr Range kRadLength{"a radiation length in cm from 1e-6 to 1e30", 1e-6, 1e30};
constexpr Range kMassFraction{"a mass fraction above 0, at most 1", 1e-12, 1};
constexpr Range kExcitation{"a mean excitation energy in eV from 10 to 2000", 10, 2000};
constexpr Range kAtomicMass{"an atomic mass in g/mole from 1 to 300", 1, 300};
constexpr Range kAtomicNumber{"an atomic number from 1 to 120", 1, 120};
constexpr Range kCellCount{"a whole number from 1 to 1000000", 1, 1e6};
constexpr Range kRepeat{"a whole number from 1 to 100000", 1, kMaxParts};

/// Reads the file's tables into a description, in the order in which they refer to each other.
class Reader {
public:
  Reader(const toml::table& root, const std::string& file) : fRoot(file, root, "", {1, 1}) {}

  DetectorDescription Read() {
    fRoot.AllowOnly({"name", "unit", "world", "material", "slab", "plane", "stack"});
    fOut.fName = fRoot.Text("name");
    if (fRoot.Find("unit")) fRoot.SetUnit(Unit());
    for (const Table& t : fRoot.Tables("material", 1)) ReadMaterial(t);
    fOut.fWorld = Material(fRoot, "world");
    for (const Table& t : fRoot.Tables("slab", 0)) ReadSlab(t);
    for (const Table& t : fRoot.Tables("plane", 1)) ReadPlane(t);
    for (const Table& t : fRoot.Tables("stack", 1)) ReadStack(t);
    CheckActive();
    CheckOverlap();
    return std::move(fOut);
  }

private:
  /// A part in its place, and the [[stack]] that put it there.
  struct Entry {
    Placed fPlaced;
    toml::source_position fAt;
  };

  template <typename Entries>
  static std::optional<unsigned> IndexOf(const Entries& entries, const std::string& name) {
    for (std::size_t i = 0; i < entries.size(); i++)
      if (entries[i].fName == name) return static_cast<unsigned>(i);
    return std::nullopt;
  }

  template <typename Entries>
  static std::string NewName(const Table& table, const Entries& others) {
    std::string name = table.Text("name");
    if (IndexOf(others, name))
      table.FailExpected(*table.Find("name"), "name", "a name that is not yet taken");
    return name;
  }

  kelvo::LengthUnit Unit() const {
    const kelvo::LengthUnit* unit = kelvo::FindLengthUnit(fRoot.Text("unit"));
    if (!unit)
      fRoot.FailExpected(*fRoot.Find("unit"), "unit",
                         fmt::format(FMT_STRING("one of {}"), kelvo::kLengthUnitNames));
    return *unit;
  }

  unsigned Material(const Table& table, const char* key) const {
    const auto index = IndexOf(fOut.fMaterials, table.Text(key));
    if (!index)
      table.FailExpected(*table.Find(key), key,
                         "one of the materials " + ListOfNames(fOut.fMaterials));
    return *index;
  }

  void ReadMaterial(const Table& table) {
    table.AllowOnly(
        {"name", "like", "formula", "composition", "density", "I", "radiation_length", "A", "Z"});
    DetectorDescription::Material material;
    material.fName = NewName(table, fOut.fMaterials);
    material.fMatter = ReadMatter(table, material.fName);
    material.fDensity = table.Find("like")
                            ? table.NumberOr("density", kDensity, material.fMatter->Density())
                            : table.Number("density", kDensity);
    material.fRadLength = ReadRadLength(table, material);
    material.fA = table.NumberOr("A", kAtomicMass, 0);
    material.fZ = table.NumberOr("Z", kAtomicNumber, 0);
    Complete(table, material);
    fOut.fMaterials.push_back(material);
  }

  /// Of all materials only vacuum may do without, and those for which it can be calculated.
  static double ReadRadLength(const Table& table, const DetectorDescription::Material& material) {
    const bool given = table.Find("radiation_length");
    if (!given && material.fName == kVacuum) return 0;
    if (!given && material.fMatter) return material.fMatter->RadLength() / material.fDensity;
    return table.Number("radiation_length", kRadLength);
  }

  /// Gives the matter what the file has of its own.
  static void Complete(const Table& table, DetectorDescription::Material& material) {
    const toml::node* excitation = table.Find("I");
    if (excitation && !material.fMatter)
      table.Fail(excitation, "I", "expected \"like\", \"formula\" or \"composition\" beside it");
    if (!material.fMatter) return;
    material.fMatter->SetDensity(material.fDensity);
    if (material.fRadLength > 0)
      material.fMatter->SetRadLength(material.fRadLength * material.fDensity);
    if (excitation) material.fMatter->SetExcitation(table.Number("I", kExcitation));
  }

  /// What a material is made of: by one of three keys, else by its name if that is a known one.
  std::optional<matter::Material> ReadMatter(const Table& table, const std::string& name) const {
    const toml::node* first = nullptr;
    std::optional<matter::Material> matter;
    for (const char* key : {"like", "formula", "composition"}) {
      const toml::node* node = table.Find(key);
      if (!node) continue;
      if (first)
        table.Fail(node, key, "expected only one of \"like\", \"formula\", \"composition\"");
      first = node;
      matter = MatterOfKey(table, key, name);
    }
    if (!first && matter::IsKnown(name)) matter = matter::Material::Named(name);
    return matter;
  }

  matter::Material MatterOfKey(const Table& table, const std::string& key,
                               const std::string& name) const {
    try {
      if (key == "like") return matter::Material::Named(table.Text("like"));
      const double density = table.Number("density", kDensity);
      if (key == "formula")
        return matter::Material::OfFormula(name, table.Text("formula"), density);
      return matter::Material::OfMassFractions(name, ReadFractions(table), density);
    } catch (const std::invalid_argument& error) {
      table.Fail(table.Find(key.c_str()), key, error.what());
    }
  }

  static std::vector<std::pair<std::string, double>> ReadFractions(const Table& table) {
    const Table composition =
        table.Sub("composition", "a table of mass fractions such as { C = 0.92, H = 0.08 }");
    std::vector<std::pair<std::string, double>> fractions;
    for (const std::string& symbol : composition.Keys())
      fractions.emplace_back(symbol, composition.Number(symbol.c_str(), kMassFraction));
    return fractions;
  }

  Part NamedPart(const Table& table) const {
    Part part{};
    part.fName = NewName(table, fOut.fParts);
    if (table.Find("centre")) table.Vector("centre", kPosition, part.fCentre);
    return part;
  }

  void ReadSlab(const Table& table) {
    table.AllowOnly({"name", "material", "size", "thickness", "centre"});
    Part part = NamedPart(table);
    part.fMaterial = Material(table, "material");
    table.Vector("size", kLength, part.fSize);
    part.fSize[2] = table.Number("thickness", kLength);
    fOut.fParts.push_back(part);
  }

  void ReadPlane(const Table& table) {
    table.AllowOnly(
        {"name", "view", "count", "cell", "filling", "wall", "gap", "centre", "resolution"});
    Part part = NamedPart(table);
    const std::string view = table.Text("view");
    part.fMaterial = Material(table, "filling");
    if (view == "X" || view == "Y")
      ReadCells(table, view == "X" ? 0 : 1, part);
    else if (view == "XY")
      ReadPixels(table, part);
    else
      table.FailExpected(*table.Find("view"), "view", "\"X\", \"Y\" or \"XY\"");
    fOut.fParts.push_back(part);
  }

  /// Cells side by side along one axis.
  void ReadCells(const Table& table, int axis, Part& part) const {
    const Table cell = table.Sub("cell", "a table { width, length, depth }");
    cell.AllowOnly({"width", "length", "depth"});
    const unsigned n = part.fCount[axis] = table.Count("count", kCellCount);
    const double width = part.fWidth[axis] = cell.Number("width", kLength);
    part.fSize[1 - axis] = cell.Number("length", kLength);
    part.fSize[2] = cell.Number("depth", kLength);
    ReadWall(table, std::min({width, part.fSize[1 - axis], part.fSize[2]}), part);
    ReadGap(table, part);
    part.fSize[axis] = n * width + (n + 1) * part.fGap;
    CheckTotal(table, part.fSize[axis]);
    part.fResolution[axis] = table.NumberOr("resolution", kLength, width / std::sqrt(12.));
  }

  static void CheckTotal(const Table& table, double size) {
    if (size > kLength.fHigh)
      table.Fail(table.Find("count"), "count",
                 "expected cells that take at most 1e6 cm side by side, found " + ToText(size));
  }

  void ReadWall(const Table& table, double smallest, Part& part) const {
    if (!table.Find("wall")) return;
    const Table wall = table.Sub("wall", "a table { material, thickness }");
    wall.AllowOnly({"material", "thickness"});
    part.fWallMaterial = Material(wall, "material");
    part.fWall = wall.Number("thickness", kLength);
    if (2 * part.fWall >= smallest)
      wall.FailExpected(
          *wall.Find("thickness"), "thickness",
          "less than half of the cell's smallest side of " + ToText(smallest) + " cm");
  }

  void ReadGap(const Table& table, Part& part) const {
    if (!table.Find("gap")) return;
    const Table gap = table.Sub("gap", "a table { material, width }");
    gap.AllowOnly({"material", "width"});
    part.fGapMaterial = Material(gap, "material");
    part.fGap = gap.Number("width", kLength);
  }

  /// Cells side by side along both axes, of one material.
  static void ReadPixels(const Table& table, Part& part) {
    for (const char* key : {"wall", "gap"})
      if (table.Find(key)) table.Fail(table.Find(key), key, "not possible with view \"XY\"");
    const Table cell = table.Sub("cell", "a table { width, depth }");
    cell.AllowOnly({"width", "depth"});
    const toml::array& counts = table.Values("count", 2, 2, "two whole numbers [x, y]");
    cell.Vector("width", kLength, part.fWidth);
    part.fSize[2] = cell.Number("depth", kLength);
    for (unsigned axis = 0; axis < 2; axis++) {
      part.fCount[axis] = table.ToCount(counts[axis], "count", kCellCount);
      part.fSize[axis] = part.fCount[axis] * part.fWidth[axis];
      CheckTotal(table, part.fSize[axis]);
      part.fResolution[axis] = part.fWidth[axis] / std::sqrt(12.);
    }
    if (table.Find("resolution")) table.Vector("resolution", kLength, part.fResolution);
  }

  void ReadStack(const Table& table) {
    table.AllowOnly({"parts", "repeat", "z", "centre", "offset"});
    Placed group{};
    if (table.Find("centre")) table.Vector("centre", kPosition, group.fCentre);
    if (table.Find("offset")) table.Vector("offset", kPosition, group.fOffset, 3);
    fZ = table.NumberOr("z", kPosition, fZ);
    const unsigned repeat = table.Find("repeat") ? table.Count("repeat", kRepeat) : 1;
    const double start = fZ;
    double length = 0;
    const std::vector<Placed> parts = ReadParts(table, group, length);
    for (unsigned r = 0; r < repeat; r++)
      for (Placed placed : parts) {
        placed.fZLow += start + r * length;
        placed.fZHigh += start + r * length;
        Place(table, placed);
      }
    fZ = start + repeat * length;
  }

  /// The parts of a group, with z counted from the group's start; length is the group's.
  std::vector<Placed> ReadParts(const Table& table, const Placed& group, double& length) const {
    std::vector<Placed> placed;
    const toml::array& parts =
        table.Values("parts", 1, kMaxParts, "an array of names of parts and of distances in cm");
    for (const toml::node& node : parts) {
      if (node.is_number()) {
        length += table.ToNumber(node, "parts", kLength);
        continue;
      }
      const auto index =
          node.is_string() ? IndexOf(fOut.fParts, node.as_string()->get()) : std::nullopt;
      if (!index)
        table.FailExpected(node, "parts",
                           "one of the parts " + ListOfNames(fOut.fParts) + " or a distance in cm");
      const Part& part = fOut.fParts[*index];
      Placed next = group;
      next.fPart = *index;
      for (int k = 0; k < 2; k++) next.fCentre[k] += part.fCentre[k] + group.fOffset[k];
      next.fZLow = length + group.fOffset[2];
      length += part.fSize[2];
      next.fZHigh = length + group.fOffset[2];
      placed.push_back(next);
    }
    return placed;
  }

  void Place(const Table& table, const Placed& placed) {
    if (placed.fZLow < kPosition.fLow || placed.fZHigh > kPosition.fHigh)
      table.Fail(fmt::format(
          FMT_STRING("part {} lies at z = {} cm; expected parts within 1e6 cm of z = 0"),
          Name(placed), ToText(placed.fZLow)));
    if (fEntries.size() == kMaxParts)
      table.Fail(fmt::format(FMT_STRING("expected at most {} parts in all"), kMaxParts));
    fEntries.push_back({placed, table.At()});
  }

  std::string Name(const Placed& placed) const { return Quoted(fOut.fParts[placed.fPart].fName); }

  void CheckActive() const {
    const auto active = [this](const Entry& e) {
      const Part& part = fOut.fParts[e.fPlaced.fPart];
      return part.fCount[0] > 0 || part.fCount[1] > 0;
    };
    if (std::none_of(fEntries.begin(), fEntries.end(), active))
      fRoot.Fail(fRoot.Find("stack"), "stack", "expected at least one [[plane]] among the parts");
  }

  /// Sorts the parts by z; those that touch share the coordinate of the face.
  void CheckOverlap() {
    const auto below = [](const Entry& a, const Entry& b) {
      return a.fPlaced.fZLow < b.fPlaced.fZLow;
    };
    std::stable_sort(fEntries.begin(), fEntries.end(), below);
    for (const Entry& entry : fEntries) {
      Placed next = entry.fPlaced;
      if (!fOut.fPlaced.empty()) {
        Placed& last = fOut.fPlaced.back();
        const double gap = next.fZLow - last.fZHigh;
        if (gap < -kTouch)
          fRoot.FailAt(
              entry.fAt,
              fmt::format(FMT_STRING("stack: part {} begins at z = {} cm, inside of part {}, "
                                     "which ends at {} cm; expected parts that do not overlap"),
                          Name(next), ToText(next.fZLow), Name(last), ToText(last.fZHigh)));
        if (gap < kTouch) next.fZLow = last.fZHigh;
      }
      fOut.fPlaced.push_back(next);
    }
  }

  Table fRoot;
  DetectorDescription fOut;
  std::vector<Entry> fEntries; // in the order of the file
  double fZ = 0;               // where the next part goes [cm]
};

std::string ReadAll(const std::string& file) {
  errno = 0;
  std::ifstream in(file, std::ios::binary);
  std::ostringstream text;
  if (in) text << in.rdbuf();
  if (errno != 0)
    throw DetectorError(fmt::format(FMT_STRING("cannot read the detector file {}: {}"),
                                    Quoted(file), std::strerror(errno)));
  return text.str();
}

} // namespace

DetectorDescription ReadDetectorText(const std::string& text, const std::string& file) {
  tomlfile::CharacterCheck(text, file).Check();
  try {
    const toml::table root = toml::parse(text, file);
    DetectorDescription description = Reader(root, file).Read();
    description.fText = text;
    return description;
  } catch (const toml::parse_error& error) {
    throw DetectorError(tomlfile::Place(file, error.source().begin) +
                        "not valid TOML: " + std::string(error.description()));
  }
}

DetectorDescription ReadDetectorFile(const std::string& file) {
  const std::string found = DetectorFileOf(file);
  return ReadDetectorText(ReadAll(found), found);
}

} // namespace geo
