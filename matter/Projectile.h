#pragma once

namespace matter {

/// A particle of one elementary charge, heavier than an electron.
struct Projectile {
  double fMass;   ///< [GeV]
  int fCharge;    ///< 1 or -1
  bool fSpinHalf; ///< else of spin 0
  bool fIsLepton; ///< knock-on electrons and the particle radiate together: without form factor
};

/// With the masses that stopping particles are ranged out with.
constexpr Projectile kMuon{0.105658, -1, true, true};
constexpr Projectile kPion{0.13957, 1, false, false};
constexpr Projectile kProton{0.938272, 1, true, false};

} // namespace matter
