"""Stopping of slow negative muons by the quantum oscillator model.

P. Sigmund, U. Haagerup, Phys. Rev. A 34 (1986) 892 and ICRU 73. Below about
0.2 MeV the Barkas effect halves the value of an antiparticle, so the usual fits
to proton data are wrong here by 40-65 %.
"""

from math import sqrt

from constants import (
    ALPHA,
    BETHE_SCALE,
    ELECTRON_MASS,
    MUON_CHARGE,
    MUON_MASS,
    PROTON_MASS,
)
from interpolation import linear_continued
from kinematics import beta_of

OSCILLATOR_LIMIT = 0.2  # MeV, muon kinetic energy up to which the model is used


def oscillator_terms(material, kinetic, literature):
    """Electronic stopping power [MeV/cm] of a muon of kinetic energy [MeV] by term.

    Valid from 10 keV, where the tables begin: only far below (a proton of 5 keV and
    the same velocity) does the stopping power go over to a multiple of the velocity.
    """
    densities = material.atom_densities()
    return {
        name: sum(n * atom_term(element, kinetic, order, literature) for element, n in densities)
        for order, name in enumerate(("leading", "Barkas", "Bloch"))
    }


def atom_term(element, kinetic, order, literature):
    """Stopping cross section [MeV cm2] of one atom in one order (0, 1, 2) of the charge.

    2 K2 Z F_Z / beta^2 * sum over shells of (N_s/Z) (q y)^order L_order(x), with
    x = 2 m_e beta^2 / E_s and y = alpha / sqrt(2 t / m_p) at the energy t of a proton
    of the same velocity.
    """
    proton = kinetic * PROTON_MASS / MUON_MASS
    beta2 = beta_of(proton, PROTON_MASS) ** 2
    bohr = MUON_CHARGE * ALPHA / sqrt(2 * proton / PROTON_MASS)
    table = literature.oscillator_l[order]
    number = sum(
        n / element.z * linear_continued(2 * ELECTRON_MASS * beta2 / energy, *table)
        for n, energy in literature.oscillators(element)
    )
    norm = literature.oscillator_norm[element.symbol]
    return element.z * 2 * BETHE_SCALE * norm / beta2 * bohr**order * number
