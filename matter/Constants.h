#pragma once

// Constants in MeV, cm and g, for the sources of this folder: not installed. CODATA 2006 (P. J.
// Mohr, B. N. Taylor, D. B. Newell, Rev. Mod. Phys. 80 (2008) 633), as for the library's own tables
// of energy loss.

namespace matter {

constexpr double kPi = 3.14159265358979323846;
constexpr double kAvogadro = 6.02214179e23;          // 1/mole
constexpr double kElectronMass = 0.510998910;        // MeV
constexpr double kAlpha = 1 / 137.035999679;         // fine-structure constant
constexpr double kElectronRadius = 2.8179402894e-13; // cm, classical
constexpr double kHbarC = 197.3269631e-13;           // MeV cm
constexpr double kEvPerMeV = 1e6;
constexpr double kGeVPerMeV = 1e-3;

/// 2 pi m_e r_e^2 N_A [MeV cm2/mole], the factor of the braces of the Bethe formula.
constexpr double kBetheScale =
    2 * kPi * kElectronMass * kElectronRadius * kElectronRadius * kAvogadro;

} // namespace matter
