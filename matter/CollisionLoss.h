#pragma once

#include "matter/Material.h"
#include "matter/Projectile.h"

namespace matter {

/// Returns the largest energy [GeV] that a particle of kinetic energy T [GeV] and a mass [GeV] can
/// give to a free electron at rest.
double MaxTransfer(double T, double mass);

/// Returns the mean mass stopping power by collisions [MeV cm2/g] by the formula of Bethe with its
/// corrections: density effect, shells (Walske; Khandelwal), the terms of Barkas (J. C. Ashley, R.
/// H. Ritchie, W. Brandt, Phys. Rev. B 5 (1972) 2393), Bloch and Mott (S. P. Ahlen, Rev. Mod. Phys.
/// 52 (1980) 121), for leptons the radiation of knock-on electrons (S. R. Kelner, R. P. Kokoulin,
/// A. A. Petrukhin, Phys. At. Nucl. 60 (1997) 576).
/// @param T kinetic energy [GeV]; the formula holds from 1e-3 of the mass on
double CollisionLoss(const Material& material, const Projectile& particle, double T);

/// Returns the variance of the loss by collisions per mass thickness [MeV2 cm2/g]: the second
/// moment of the cross section on free electrons (P. V. Vavilov, Sov. Phys. JETP 5 (1957) 749).
/// @param T kinetic energy [GeV]
double CollisionStraggling(const Material& material, const Projectile& particle, double T);

} // namespace matter
