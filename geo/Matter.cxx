#include "geo/Matter.h"

#include <cmath>
#include <map>
#include <string>
#include <vector>

namespace geo {

namespace {

using Fractions = std::vector<std::pair<std::string, double>>;

const matter::Element* ElementOf(double z) {
  constexpr double kWhole = 0.01; // an effective atomic number is no element's
  const int whole = static_cast<int>(std::lround(z));
  return std::abs(z - whole) < kWhole ? matter::FindElement(whole) : nullptr;
}

/// The elements of a mixture by mass, none of anything else. Isotopes of an element are one.
Fractions ElementsOf(const TGeoMaterial& material) {
  const auto* mixture = dynamic_cast<const TGeoMixture*>(&material);
  std::map<std::string, double> grams;
  double sum = 0;
  for (int i = 0; mixture && i < mixture->GetNelements(); i++) {
    const double weight = mixture->GetWmixt()[i];
    if (!(weight > 0)) continue;
    const matter::Element* element = ElementOf(mixture->GetZmixt()[i]);
    if (!element) return {};
    grams[element->fSymbol] += weight;
    sum += weight;
  }
  Fractions fractions;
  for (const auto& [symbol, weight] : grams) fractions.emplace_back(symbol, weight / sum);
  return fractions;
}

std::optional<matter::Material> Known(const TGeoMaterial& material) {
  const std::string name = material.GetName();
  if (matter::IsKnown(name)) return matter::Material::Named(name);
  if (material.GetDensity() <= 0) return std::nullopt;
  Fractions fractions = ElementsOf(material);
  if (fractions.empty())
    if (const matter::Element* element = ElementOf(material.GetZ()))
      fractions = {{element->fSymbol, 1}};
  if (fractions.empty()) return std::nullopt;
  return matter::Material::OfMassFractions(name, fractions, material.GetDensity());
}

} // namespace

std::optional<matter::Material> MatterOf(const TGeoMaterial& material) {
  if (const auto* known = dynamic_cast<const MaterialOfMatter*>(&material)) return known->Matter();
  std::optional<matter::Material> matter = Known(material);
  if (!matter || material.GetDensity() <= 0) return matter;
  matter->SetDensity(material.GetDensity());
  if (material.GetRadLen() > 0) matter->SetRadLength(material.GetRadLen() * material.GetDensity());
  return matter;
}

} // namespace geo
