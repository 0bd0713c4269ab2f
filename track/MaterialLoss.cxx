#include "track/MaterialLoss.h"

#include "matter/CollisionLoss.h"
#include "track/Materials.h"

namespace kelvo {
namespace {

constexpr double kGeVPerMeV = 1e-3;

matter::Projectile ProjectileOf(const Particle& particle) {
  const bool muon = particle.fPDG == kMuonPDG;
  return {particle.fMass, muon ? -1 : 1, particle.fPDG != kPionPDG, muon};
}

// Whether a material is what the table of its name was made for, but for the density.
bool IsTabulated(const matter::Material& material) {
  return HasTable(material.Name()) &&
         material.Excitation() == matter::Material::Named(material.Name()).Excitation();
}

} // namespace

MaterialLoss::MaterialLoss(const matter::Material& material, const Particle& particle)
    : fMaterial(material), fParticle(ProjectileOf(particle)) {
  if (!IsTabulated(material)) {
    fCalculated.emplace(material, fParticle);
    return;
  }
  fTable.emplace(material.Name().c_str());
  fDensityRatio = material.Density() / matter::Material::Named(material.Name()).Density();
}

double MaterialLoss::operator()(double T) const {
  return fTable ? (*fTable)(T, fParticle.fMass) * fDensityRatio : (*fCalculated)(T);
}

double MaterialLoss::Straggling(double T) const {
  return matter::CollisionStraggling(fMaterial, fParticle, T) * fMaterial.Density() * kGeVPerMeV *
         kGeVPerMeV;
}

matter::RangeTable MakeRangeTable(const matter::Material& material, const Particle& particle) {
  const MaterialLoss loss(material, particle);
  return {[&loss](double T) { return loss(T); }, [&loss](double T) { return loss.Straggling(T); },
          particle.fMass};
}

} // namespace kelvo
