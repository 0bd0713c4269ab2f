#pragma once

#include "matter/Material.h"
#include "matter/Projectile.h"

namespace matter {

/// Returns the mean mass stopping power [MeV cm2/g] by bremsstrahlung and by electron-positron
/// pairs, without photonuclear loss and without the form factors of hadrons.
///
/// Bremsstrahlung: S. R. Kelner, R. P. Kokoulin, A. A. Petrukhin, preprint MEPhI 024-95 (1995).
/// Pairs: R. P. Kokoulin, A. A. Petrukhin, 11th and 12th Int. Conf. on Cosmic Rays (1969, 1971); on
/// atomic electrons S. R. Kelner, Phys. At. Nucl. 61 (1998) 448. Both in the form of the Geant4
/// Physics Reference Manual.
/// @param T kinetic energy [GeV]
double RadiationLoss(const Material& material, const Projectile& particle, double T);

} // namespace matter
