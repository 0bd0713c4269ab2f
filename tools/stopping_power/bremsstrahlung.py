"""Energy loss of muons by bremsstrahlung on nuclei and atomic electrons.

S. R. Kelner, R. P. Kokoulin, A. A. Petrukhin, preprint MEPhI 024-95, Moscow (1995);
in the form of the Geant4 Physics Reference Manual.
"""

from math import e, sqrt

import numpy as np

from constants import ALPHA, ELECTRON_MASS, ELECTRON_RADIUS, MUON_MASS
from quadrature import GAUSS6, integrate

SQRT_E = sqrt(e)


def bremsstrahlung_loss(material, kinetic):
    """Energy loss [MeV/cm] of a muon of kinetic energy [MeV]."""
    return sum(n * atom_loss(element, kinetic) for element, n in material.atom_densities())


def atom_loss(element, kinetic):
    """Integral of eps dsigma over the photon energy eps [MeV cm2]."""
    steps = int(20 * kinetic / (kinetic + MUON_MASS)) + 5

    def integrand(eps):
        return weighted_cross_section(element, kinetic, eps)

    return integrate(integrand, 0.0, kinetic, GAUSS6, steps)


def weighted_cross_section(element, kinetic, eps):
    """eps dsigma/deps [cm2] of one atom at photon energies eps [MeV]."""
    energy = kinetic + MUON_MASS
    v = eps / energy
    scale = 16 / 3 * ALPHA * (ELECTRON_RADIUS * ELECTRON_MASS / MUON_MASS) ** 2
    nucleus = element.z * nuclear_logarithm(element, energy, eps)
    electrons = electron_logarithm(element, energy, eps)
    return scale * element.z * (nucleus + electrons) * (1 - v + 0.75 * v**2)


def momentum_transfer(energy, eps):
    """Smallest momentum transfer, m^2 v / (2 (E - eps)) [MeV]."""
    return MUON_MASS**2 * (eps / energy) / (2 * (energy - eps))


def nuclear_logarithm(element, energy, eps):
    """Phi_n, with atomic screening and the finite size of the nucleus."""
    delta = momentum_transfer(energy, eps)
    size = 1.54 * element.a**0.27
    if element.z > 1:
        size **= 1 - 1 / element.z
    screening = (202.4 if element.z == 1 else 183.0) * element.z ** (-1 / 3)
    above = screening * (MUON_MASS + delta * (size * SQRT_E - 2))
    below = size * (ELECTRON_MASS + delta * SQRT_E * screening)
    return np.maximum(np.log(above / below), 0.0)


def electron_logarithm(element, energy, eps):
    """Phi_e, zero above the largest photon energy that an electron at rest allows."""
    delta = momentum_transfer(energy, eps)
    screening = (446.0 if element.z == 1 else 1429.0) * element.z ** (-2 / 3)
    recoil = 1 + delta * MUON_MASS / (ELECTRON_MASS**2 * SQRT_E)
    phi = np.log(screening * MUON_MASS / (recoil * (ELECTRON_MASS + delta * SQRT_E * screening)))
    allowed = eps < energy / (1 + MUON_MASS**2 / (2 * ELECTRON_MASS * energy))
    return np.where(allowed, np.maximum(phi, 0.0), 0.0)
