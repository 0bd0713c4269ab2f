"""Mean electronic stopping power of a muon by the Bethe formula with its corrections.

Barkas term: J. C. Ashley, R. H. Ritchie, W. Brandt, Phys. Rev. B 5 (1972) 2393 and
ICRU 49. Bloch and Mott terms: S. P. Ahlen, Rev. Mod. Phys. 52 (1980) 121. Radiative
correction of the knock-on electrons: S. R. Kelner, R. P. Kokoulin, A. A. Petrukhin,
Phys. At. Nucl. 60 (1997) 576.
"""

from math import log, pi, sqrt

import numpy as np

from constants import ALPHA, BETHE_SCALE, ELECTRON_MASS, MUON_CHARGE, MUON_MASS
from density_effect import parameters_of
from kinematics import beta_gamma_squared, beta_of, max_transfer
from quadrature import GAUSS8, integrate
from shell_correction import shell_correction

RADIATIVE_THRESHOLD = 0.1  # MeV, smallest knock-on energy with a radiative correction


def bethe_terms(material, kinetic, literature):
    """Electronic stopping power [MeV/cm] by term, without radiative correction."""
    beta = beta_of(kinetic)
    braces = {
        "leading": bethe_logarithm(material, kinetic),
        "density": -density_effect(material, kinetic),
        "shells": -2 * shell_correction(material, beta, literature),
        "Barkas": 2 * barkas_term(material, beta, literature),
        "Bloch": 2 * bloch_term(beta),
        "Mott": mott_term(beta),
    }
    return {name: scale(material, kinetic) * term for name, term in braces.items()}


def radiative_bethe_terms(material, kinetic, literature):
    """The same with the radiative correction of the knock-on electrons."""
    knock_ons = scale(material, kinetic) * knock_on_correction(kinetic)
    return bethe_terms(material, kinetic, literature) | {"knock-ons": knock_ons}


def scale(material, kinetic):
    """2 pi m_e r_e^2 n_el / beta^2 [MeV/cm], the factor of the braces."""
    return BETHE_SCALE * material.electron_density() / beta_of(kinetic) ** 2


def bethe_logarithm(material, kinetic):
    """ln[2 m_e (beta gamma)^2 T_max / I^2] - 2 beta^2 and the term of a spin 1/2 projectile."""
    transfer = max_transfer(kinetic)
    argument = 2 * ELECTRON_MASS * beta_gamma_squared(kinetic) * transfer
    spin = (transfer / (2 * (kinetic + MUON_MASS))) ** 2
    return log(argument / material.mean_excitation() ** 2) - 2 * beta_of(kinetic) ** 2 + spin


def density_effect(material, kinetic):
    """delta of the material at this energy."""
    return parameters_of(material).delta(sqrt(beta_gamma_squared(kinetic)))


def barkas_term(material, beta, literature):
    """L1: odd in the charge, so it lowers the value of a negative muon."""
    b = (beta / ALPHA) ** 2
    weighted = 0.0
    for element, n in material.atom_densities():
        x = b / element.z
        w = barkas_scale(element.z) / sqrt(x)
        weighted += n * barkas_function(w, literature) / (sqrt(element.z * x) * x)
    return 1.29 * MUON_CHARGE * weighted / material.atom_density()


def barkas_scale(z):
    """Cut-off parameter b of the Barkas term by ranges of Z (ICRU 49)."""
    if z <= 10:
        return 1.8
    return 1.4 if z <= 17 or 19 <= z <= 25 else 1.35


def barkas_function(w, literature):
    """F(W): constant below the first tabulated W, falling like 1/W above the last, 10."""
    inside = min(max(w, 0.02), 10.0)
    return literature.barkas(inside) * inside / max(w, inside)


def bloch_term(beta):
    """L2 by its series, ended at the first term not above 1 % of the sum so far."""
    w = (ALPHA / beta) ** 2
    total = 1 / (1 + w)
    j = 2
    while True:
        term = 1 / (j * (j * j + w))
        total += term
        if term <= 0.01 * total:
            return -w * total
        j += 1


def mott_term(beta):
    """First correction to the Born approximation of close collisions, pi alpha beta q."""
    return pi * ALPHA * beta * MUON_CHARGE


def knock_on_correction(kinetic):
    """Radiative correction of the knock-on electrons as an addend to the braces."""
    energy = kinetic + MUON_MASS
    transfer = max_transfer(kinetic)
    beta2 = beta_of(kinetic) ** 2

    def integrand(log_eps):
        eps = np.exp(log_eps)
        a1 = np.log(1 + 2 * eps / ELECTRON_MASS)
        a3 = np.log(4 * energy * (energy - eps) / MUON_MASS**2)
        return (1 - beta2 * eps / transfer + eps**2 / (2 * energy**2)) * a1 * (a3 - a1)

    integral = integrate(integrand, log(RADIATIVE_THRESHOLD), log(transfer), GAUSS8)
    return ALPHA / (2 * pi) * integral
