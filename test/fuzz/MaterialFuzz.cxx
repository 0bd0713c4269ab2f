// Any formula or name gives a material whose parts add up, with positive numbers, or is refused.
#include "matter/EnergyLoss.h"
#include "matter/Material.h"
#include "test/fuzz/FuzzInput.h"

#include <stdexcept>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Values values(data, size);
  const bool isFormula = values.Byte() % 2;
  const double density = values.Number();
  const std::string text = values.Rest();
  try {
    const matter::Material material = isFormula ? matter::Material::OfFormula("fuzz", text, density)
                                                : matter::Material::Named(text);
    double sum = 0;
    for (const matter::Material::Part& part : material.Parts()) sum += part.fMassFraction;
    fuzz::Expect(std::abs(sum - 1) < 1e-9, "the sum of the fractions");
    fuzz::Expect(material.Density() > 0, "the density");
    fuzz::Expect(material.Excitation() > 0 && std::isfinite(material.Excitation()), "I");
    fuzz::Expect(material.RadLength() > 0 && std::isfinite(material.RadLength()), "X0");
  } catch (const std::invalid_argument&) {
  }
  return 0;
}
