#include "track/MaterialLoss.h"

#include "matter/CollisionLoss.h"
#include "track/Materials.h"
#include "util/Particles.h"

namespace kelvo {
namespace {

constexpr double kGeVPerMeV = 1e-3;

// The code of a lepton is positive where its charge is negative.
matter::Projectile ProjectileOf(int pdg) {
  const Particle& particle = *FindParticle(pdg);
  const bool muon = particle.fPDG == kMuonPDG;
  return {particle.fMass, (pdg > 0) != muon ? 1 : -1, particle.fPDG != kPionPDG, muon};
}

// Whether a material is what the table of its name was made for, but for the density.
bool IsTabulated(const matter::Material& material) {
  return HasTable(material.Name()) &&
         material.Excitation() == matter::Material::Named(material.Name()).Excitation();
}

} // namespace

MaterialLoss::MaterialLoss(const matter::Material& material, int pdg)
    : fMaterial(material), fParticle(ProjectileOf(pdg)) {
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

matter::RangeTable MakeRangeTable(const matter::Material& material, int pdg) {
  const MaterialLoss loss(material, pdg);
  return {[&loss](double T) { return loss(T); }, [&loss](double T) { return loss.Straggling(T); },
          FindParticle(pdg)->fMass};
}

} // namespace kelvo
