"""Physical constants (CODATA 2006) in MeV, cm and g, and the muon they are used for.

P. J. Mohr, B. N. Taylor, D. B. Newell, Rev. Mod. Phys. 80 (2008) 633. The edition
is part of the tables' definition: a later one changes their last digits.
"""

from math import pi

SPEED_OF_LIGHT = 299792458.0e2  # cm/s, exact
ELECTRON_CHARGE = 1.602176487e-19  # C
PLANCK = 6.62606896e-34  # J s
AVOGADRO = 6.02214179e23  # 1/mol
MAGNETIC_CONSTANT = 4e-7 * pi  # N/A2, exact in this edition

ELECTRON_MASS = 0.510998910  # MeV
PROTON_MASS = 938.272013  # MeV
MUON_MASS = 105.658367  # MeV
MUON_CHARGE = -1.0  # units of e: the tables hold negative muons

JOULE_PER_MEV = 1e6 * ELECTRON_CHARGE
HBAR_C = PLANCK / (2 * pi) * SPEED_OF_LIGHT / JOULE_PER_MEV  # MeV cm
# alpha = mu0 c e2 / (2 h), with c in m/s
ALPHA = MAGNETIC_CONSTANT * (SPEED_OF_LIGHT / 100) * ELECTRON_CHARGE**2 / (2 * PLANCK)
ELECTRON_RADIUS = ALPHA * HBAR_C / ELECTRON_MASS  # cm

# 2 pi m_e r_e2 [MeV cm2], the scale of every electronic stopping formula
BETHE_SCALE = 2 * pi * ELECTRON_MASS * ELECTRON_RADIUS**2
