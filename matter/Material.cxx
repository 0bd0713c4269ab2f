#include "matter/Material.h"

#include "matter/Constants.h"
#include "matter/PublishedTables.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <map>
#include <numeric>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace matter {
namespace {

using Part = Material::Part;

struct Alias {
  const char* fEveryday;
  const char* fPublished;
};

// Beside the English names of the elements, which the table of elements has.
constexpr Alias kAliases[] = {
    {"Acrylic", "PLEXIGLASS"},
    {"Air", "AIR"},
    {"Alumina", "ALUMINUM_OXIDE"},
    {"Aluminum", "Al"},
    {"Bakelite", "BAKELITE"},
    {"Brass", "BRASS"},
    {"Bronze", "BRONZE"},
    {"CaesiumIodide", "CESIUM_IODIDE"},
    {"CarbonDioxide", "CARBON_DIOXIDE"},
    {"Concrete", "CONCRETE"},
    {"CsI", "CESIUM_IODIDE"},
    {"GaAs", "GALLIUM_ARSENIDE"},
    {"Glass", "GLASS_PLATE"},
    {"Graphite", "GRAPHITE"},
    {"Kapton", "KAPTON"},
    {"Kevlar", "KEVLAR"},
    {"LeadGlass", "GLASS_LEAD"},
    {"LeadTungstate", "PbWO4"},
    {"LiquidArgon", "lAr"},
    {"LiquidHydrogen", "lH2"},
    {"LiquidKrypton", "lKr"},
    {"LiquidNitrogen", "lN2"},
    {"LiquidOxygen", "lO2"},
    {"LiquidXenon", "lXe"},
    {"Lucite", "LUCITE"},
    {"Methane", "METHANE"},
    {"Mylar", "MYLAR"},
    {"NaI", "SODIUM_IODIDE"},
    {"Nylon", "NYLON-6-6"},
    {"Paraffin", "PARAFFIN"},
    {"PlasticScintillator", "PLASTIC_SC_VINYLTOLUENE"},
    {"Plexiglass", "PLEXIGLASS"},
    {"Polycarbonate", "POLYCARBONATE"},
    {"Polyethylene", "POLYETHYLENE"},
    {"Polyimide", "KAPTON"},
    {"Polypropylene", "POLYPROPYLENE"},
    {"Polystyrene", "POLYSTYRENE"},
    {"Propane", "PROPANE"},
    {"Pyrex", "Pyrex_Glass"},
    {"Quartz", "SILICON_DIOXIDE"},
    {"Rubber", "RUBBER_NATURAL"},
    {"StainlessSteel", "STAINLESS-STEEL"},
    {"Sulfur", "S"},
    {"Teflon", "TEFLON"},
    {"Vacuum", "Galactic"},
    {"Water", "WATER"},
};

// What the library's own tables of energy loss are of (docs/stopping-power.md).
struct OwnMaterial {
  const char* fName;
  double fDensity; // g/cm3
  std::vector<std::pair<std::string, double>> fFractions;
};

const std::vector<OwnMaterial>& OwnMaterials() {
  static const std::vector<OwnMaterial> materials{
      {"Scintillator",
       0.859,
       {{"H", 0.121}, {"C", 0.866}, {"N", 0.003}, {"O", 0.0075}, {"S", 0.0025}}},
      {"PVC", 1.49, {{"H", 0.0411}, {"C", 0.3267}, {"O", 0.0601}, {"Cl", 0.4822}, {"Ti", 0.0899}}},
      {"Glue", 1.34, {{"C", 1}}},
      {"Steel", 7.87, {{"Fe", 1}}}};
  return materials;
}

const OwnMaterial* FindOwn(const std::string& name) {
  for (const OwnMaterial& own : OwnMaterials())
    if (own.fName == name) return &own;
  return nullptr;
}

const PublishedMaterial* FindRow(std::string_view name) {
  for (const PublishedMaterial& row : PublishedMaterials())
    if (row.fName == name) return &row;
  return nullptr;
}

std::string Published(const std::string& name) {
  for (const Alias& alias : kAliases)
    if (alias.fEveryday == name) return alias.fPublished;
  for (const Element& element : PublishedElements())
    if (element.fName == name) return element.fSymbol;
  return name;
}

// Everyday names first: of equally near ones they are suggested.
std::vector<std::string> AllNames() {
  std::vector<std::string> names;
  for (const Element& element : PublishedElements())
    if (FindRow(element.fSymbol)) names.emplace_back(element.fName);
  for (const Alias& alias : kAliases) names.emplace_back(alias.fEveryday);
  for (const OwnMaterial& own : OwnMaterials()) names.push_back(own.fName);
  for (const PublishedMaterial& row : PublishedMaterials()) names.emplace_back(row.fName);
  return names;
}

// The number of letters to be put in, taken out or exchanged to make one text of the other, of
// which capital and small letters count as equal (V. I. Levenshtein, Sov. Phys. Dokl. 10 (1966)
// 707).
std::size_t Distance(const std::string& a, const std::string& b) {
  const auto lower = [](char c) { return std::tolower(static_cast<unsigned char>(c)); };
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < a.size(); i++) {
    std::size_t diagonal = i;
    row[0] = i + 1;
    for (std::size_t j = 0; j < b.size(); j++) {
      const std::size_t exchanged = diagonal + (lower(a[i]) == lower(b[j]) ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({exchanged, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

std::string Suggestion(const std::string& name) {
  constexpr std::size_t kCount = 3;
  constexpr std::size_t kLongest = 64; // letters, more than any name has; the time goes with them
  std::vector<std::pair<std::size_t, std::string>> names; // with their distances
  for (const std::string& known : AllNames())
    names.emplace_back(Distance(known, name.substr(0, kLongest)), known);
  std::stable_sort(names.begin(), names.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  std::string text;
  for (std::size_t i = 0; i < kCount; i++)
    text += (i == 0 ? "" : i + 1 < kCount ? ", " : " or ") + ('"' + names[i].second + '"');
  return text;
}

const Element& RequiredElement(const std::string& symbol) {
  const Element* element = FindElement(symbol);
  if (!element)
    throw std::invalid_argument(
        "expected the symbols of elements, such as \"H\" or \"Fe\", found \"" + symbol + '"');
  return *element;
}

// Mass fractions of elements of which there are so many grams each.
std::vector<Part> Normalised(const std::map<int, Part>& grams) {
  double sum = 0;
  for (const auto& [z, part] : grams) sum += part.fMassFraction;
  std::vector<Part> parts;
  parts.reserve(grams.size());
  for (const auto& [z, part] : grams) parts.push_back({part.fElement, part.fMassFraction / sum});
  return parts;
}

// Reads a chemical formula: elements and groups in parentheses, each with a number behind it or
// none for 1.
class Formula {
public:
  explicit Formula(const std::string& text) : fText(text) {}

  std::vector<Part> Parts() {
    const std::map<int, Part> grams = Group();
    if (fAt < fText.size() || grams.empty()) Fail();
    return Normalised(grams);
  }

private:
  std::map<int, Part> Group() {
    std::map<int, Part> grams;
    while (fAt < fText.size() && fText[fAt] != ')') {
      const std::map<int, Part> unit = Unit();
      const double count = Count();
      for (const auto& [z, part] : unit) {
        Part& sum = grams[z];
        sum = {part.fElement, sum.fMassFraction + count * part.fMassFraction};
      }
    }
    return grams;
  }

  std::map<int, Part> Unit() {
    if (fText[fAt] != '(') {
      const Element& element = RequiredElement(Symbol());
      return {{element.fZ, {&element, element.fA}}};
    }
    fAt++;
    if (fAt < fText.size() && fText[fAt] == ')') Fail();
    std::map<int, Part> grams = Group();
    if (fAt == fText.size()) Fail();
    fAt++;
    return grams;
  }

  std::string Symbol() {
    const std::size_t start = fAt;
    if (!IsUpper()) Fail();
    fAt++;
    while (fAt < fText.size() && fText[fAt] >= 'a' && fText[fAt] <= 'z') fAt++;
    return fText.substr(start, fAt - start);
  }

  // A whole number up to 999999: 1 where there is none.
  double Count() {
    const std::size_t start = fAt;
    while (fAt < fText.size() && fText[fAt] >= '0' && fText[fAt] <= '9') fAt++;
    if (fAt == start) return 1;
    if (fAt - start > 6 || fText[start] == '0') Fail();
    return std::stod(fText.substr(start, fAt - start));
  }

  bool IsUpper() const { return fText[fAt] >= 'A' && fText[fAt] <= 'Z'; }

  [[noreturn]] void Fail() const {
    throw std::invalid_argument(
        "expected a chemical formula such as \"SiO2\" or \"Ca(OH)2\", found \"" + fText + '"');
  }

  const std::string& fText;
  std::size_t fAt = 0;
};

void CheckSum(double sum) {
  if (sum >= 0.99 && sum <= 1.01) return;
  throw std::invalid_argument(fmt::format(
      FMT_STRING("expected mass fractions that add up to 1 within 1%, found a sum of {:g}"), sum));
}

// The radiation logarithms of elastic and inelastic atomic form factors (Tsai, table B.2 and
// equation 3.69).
struct RadiationLogarithms {
  double fElastic, fInelastic;
};

RadiationLogarithms Logarithms(int z) {
  constexpr RadiationLogarithms kLight[] = {
      {5.31, 6.144}, {4.79, 5.621}, {4.74, 5.805}, {4.71, 5.924}};
  if (z <= 4) return kLight[z - 1];
  return {std::log(184.15 / std::cbrt(z)), std::log(1194 / std::cbrt(z * z))};
}

// The Coulomb correction to the Born approximation (Tsai, equation 3.3).
double CoulombCorrection(int z) {
  const double a2 = kAlpha * z * kAlpha * z;
  return a2 * (1 / (1 + a2) + 0.20206 - 0.0369 * a2 + 0.0083 * a2 * a2 - 0.002 * a2 * a2 * a2);
}

// 1/X0 = 4 alpha r_e^2 N_A/A {Z^2 [L - f(Z)] + Z L'} [cm2/g] (Tsai, equation 3.66).
double InverseRadLength(const Element& element) {
  const RadiationLogarithms l = Logarithms(element.fZ);
  const double z = element.fZ;
  const double scale = 4 * kAlpha * kElectronRadius * kElectronRadius * kAvogadro / element.fA;
  return scale * (z * z * (l.fElastic - CoulombCorrection(element.fZ)) + z * l.fInelastic);
}

void CheckPositive(double density) {
  if (density > 0 && std::isfinite(density)) return;
  throw std::invalid_argument(
      fmt::format(FMT_STRING("expected a density above 0 g/cm3, found {:g}"), density));
}

double SumOfMoles(const std::vector<Part>& parts) {
  double sum = 0;
  for (const auto& [element, w] : parts) sum += w * element->fZ / element->fA;
  return sum;
}

} // namespace

const Element* FindElement(int z) {
  const Rows<Element> elements = PublishedElements();
  return z >= 1 && z <= elements.fEnd - elements.fBegin ? elements.fBegin + (z - 1) : nullptr;
}

const Element* FindElement(std::string_view symbol) {
  for (const Element& element : PublishedElements())
    if (element.fSymbol == symbol) return &element;
  return nullptr;
}

Material::Material(std::string name, std::vector<Part> parts, double density)
    : fName(std::move(name)),
      fParts(std::move(parts)),
      fDensity(density),
      fExcitation(BraggExcitation(fParts)),
      fRadLength(TsaiRadLength(fParts)),
      fDensityEffect(GeneralDensityEffect(fExcitation, PlasmaEnergy(), IsGas())) {
  CheckPositive(density);
  const PublishedMaterial* row =
      fParts.size() == 1 ? FindRow(fParts[0].fElement->fSymbol) : nullptr;
  if (row && row->fIsGas == IsGas())
    fDensityEffect = row->fDensityEffect.AtDensityRatio(density / row->fDensity);
}

Material Material::Named(const std::string& name) {
  if (const OwnMaterial* own = FindOwn(name))
    return OfMassFractions(name, own->fFractions, own->fDensity);
  const PublishedMaterial* row = FindRow(Published(name));
  if (!row)
    throw std::invalid_argument("expected a published material, such as " + Suggestion(name) +
                                ", found \"" + name + '"');
  std::map<int, Part> grams;
  for (const auto& [z, fraction] : row->fComposition)
    if (z > 0) grams[z] = {FindElement(z), fraction};
  Material material(name, Normalised(grams), row->fDensity);
  material.fExcitation = row->fI;
  material.fRadLength = row->fRadLength;
  material.fDensityEffect = row->fDensityEffect;
  return material;
}

Material Material::OfFormula(const std::string& name, const std::string& formula, double density) {
  return {name, Formula(formula).Parts(), density};
}

Material Material::OfMassFractions(const std::string& name,
                                   const std::vector<std::pair<std::string, double>>& fractions,
                                   double density) {
  std::map<int, Part> grams;
  double sum = 0;
  for (const auto& [symbol, fraction] : fractions) {
    const Element& element = RequiredElement(symbol);
    if (!(fraction > 0)) throw std::invalid_argument("expected mass fractions above 0");
    if (!grams.insert({element.fZ, {&element, fraction}}).second)
      throw std::invalid_argument("expected each element once, found \"" + symbol + "\" twice");
    sum += fraction;
  }
  CheckSum(sum);
  return {name, Normalised(grams), density};
}

void Material::SetDensity(double density) {
  CheckPositive(density);
  fDensityEffect = fDensityEffect.AtDensityRatio(density / fDensity);
  fDensity = density;
}

void Material::SetExcitation(double excitation) {
  fExcitation = excitation;
  fDensityEffect = GeneralDensityEffect(excitation, PlasmaEnergy(), IsGas());
}

double Material::MolesOfElectrons() const {
  return SumOfMoles(fParts);
}

// hbar omega_p = hbar c sqrt(4 pi r_e n_el), n_el electrons per cm3.
double Material::PlasmaEnergy() const {
  const double electrons = kAvogadro * fDensity * MolesOfElectrons();
  return kEvPerMeV * kHbarC * std::sqrt(4 * kPi * kElectronRadius * electrons);
}

bool Material::IsGas() const {
  return fDensity < 0.02;
}

bool IsKnown(const std::string& name) {
  return FindOwn(name) || FindRow(Published(name));
}

std::vector<std::string> MaterialNames() {
  std::vector<std::string> names;
  for (const PublishedMaterial& row : PublishedMaterials()) names.emplace_back(row.fName);
  return names;
}

std::vector<std::string> EverydayNames(const std::string& name) {
  std::vector<std::string> names;
  for (const Element& element : PublishedElements())
    if (element.fSymbol == name) names.emplace_back(element.fName);
  for (const Alias& alias : kAliases)
    if (alias.fPublished == name) names.emplace_back(alias.fEveryday);
  return names;
}

double BraggExcitation(const std::vector<Part>& parts) {
  double sum = 0;
  for (const auto& [element, w] : parts)
    sum += w * element->fZ / element->fA * std::log(element->fI);
  return std::exp(sum / SumOfMoles(parts));
}

double TsaiRadLength(const std::vector<Part>& parts) {
  double inverse = 0;
  for (const auto& [element, w] : parts) inverse += w * InverseRadLength(*element);
  return 1 / inverse;
}

} // namespace matter
