"""Energy loss of muons by production of electron-positron pairs.

R. P. Kokoulin, A. A. Petrukhin, Proc. 11th Int. Conf. on Cosmic Rays, Budapest (1969)
and Proc. 12th Int. Conf. on Cosmic Rays, Hobart (1971); pairs on atomic electrons:
S. R. Kelner, Phys. At. Nucl. 61 (1998) 448; in the form of the Geant4 Physics
Reference Manual.
"""

from math import e, log, pi, sqrt

import numpy as np

from constants import ALPHA, ELECTRON_MASS, ELECTRON_RADIUS, MUON_MASS
from quadrature import GAUSS8, integrate

SQRT_E = sqrt(e)
MASS_RATIO = MUON_MASS / ELECTRON_MASS


def pair_loss(material, kinetic):
    """Energy loss [MeV/cm] of a muon of kinetic energy [MeV]."""
    return sum(n * atom_loss(element, kinetic) for element, n in material.atom_densities())


def atom_loss(element, kinetic):
    """Integral of eps dsigma over the pair energy eps [MeV cm2], done in ln eps."""
    low = log(4 * ELECTRON_MASS)
    high = log(kinetic + MUON_MASS * (1 - 0.75 * SQRT_E * element.z ** (1 / 3)))
    steps = min(8, max(1, int(1 + (high - low) / 6.9)))

    def integrand(log_eps):
        return np.vectorize(
            lambda x: np.exp(2 * x) * cross_section(element, kinetic + MUON_MASS, np.exp(x))
        )(log_eps)

    return integrate(integrand, low, high, GAUSS8, steps)


def cross_section(element, energy, eps):
    """dsigma/deps [cm2/MeV] of one atom: total energy and pair energy in MeV.

    The asymmetry rho of the pair is integrated as u = 1 - rho, in ln u.
    """
    root = sqrt(1 - 4 * ELECTRON_MASS / eps)
    smallest = 4 * ELECTRON_MASS / eps / (1 + root)
    smallest += 6 * MUON_MASS**2 * root / (energy * (energy - eps))
    if smallest >= 1:
        return 0.0

    def integrand(log_u):
        u = np.exp(log_u)
        return u * asymmetry_function(element, energy, eps, 1 - u)

    z = element.z
    scale = 4 / (3 * pi) * z * (z + electron_share(z, energy)) * (ALPHA * ELECTRON_RADIUS) ** 2
    integral = integrate(integrand, log(smallest), 0.0, GAUSS8)
    return scale * (energy - eps) / (energy * eps) * integral


def electron_share(z, energy):
    """zeta: the part of the atomic electrons, as an addend to the nuclear charge."""
    g1, g2 = (4.4e-5, 4.8e-5) if z == 1 else (1.95e-5, 5.3e-5)
    above = 0.073 * log(energy / (MUON_MASS + g1 * z ** (2 / 3) * energy)) - 0.26
    if above <= 0:
        return 0.0
    return above / (0.058 * log(energy / (MUON_MASS + g2 * z ** (1 / 3) * energy)) - 0.14)


def asymmetry_function(element, energy, eps, rho):
    """Phi_e + (m_e/m)^2 Phi_mu at pair asymmetries rho."""
    y = eps**2 / (energy * (energy - eps))
    rho2 = rho**2
    xi = MASS_RATIO**2 * y * (1 - rho2) / 4
    screening = (202.4 if element.z == 1 else 183.0) * element.z ** (-1 / 3)
    s = 2 * ELECTRON_MASS * SQRT_E * screening * (1 + xi) / (eps * (1 - rho2))
    phi_e = electron_factor(y, rho2, xi) * electron_logarithm(element.z, screening, s, y, rho2, xi)
    phi_mu = muon_factor(y, rho2, xi) * muon_logarithm(element.z, screening, s, y, rho2, xi)
    return np.maximum(phi_e, 0.0) + np.maximum(phi_mu, 0.0) / MASS_RATIO**2


def electron_factor(y, rho2, xi):
    """Factor of L_e; its expansion where ln(1 + 1/xi) loses digits."""
    half = y / 2
    full = (
        ((2 + rho2) * (1 + half) + xi * (3 + rho2)) * np.log(1 + 1 / xi)
        + (1 - rho2 - half) / (1 + xi)
        - (3 + rho2)
    )
    return np.where(xi > 1e3, (3 - rho2 + y * (1 + rho2)) / (2 * xi), full)


def muon_factor(y, rho2, xi):
    """Factor of L_mu; its expansion where ln(1 + xi) loses digits."""
    half = y / 2
    full = (
        ((1 + rho2) * (1 + 1.5 * half) - (1 + y) * (1 - rho2) / xi) * np.log(1 + xi)
        + xi * (1 - rho2 - half) / (1 + xi)
        + (1 + y) * (1 - rho2)
    )
    return np.where(xi < 1e-3, (5 - rho2 + half * (3 + rho2)) * xi / 2, full)


def electron_logarithm(z, screening, s, y, rho2, xi):
    """L_e, the logarithm of the diagrams in which the pair couples to the screened nucleus."""
    half = y / 2
    ye = 1 + (5 - rho2 + 4 * half * (1 + rho2)) / (
        2 * (1 + 3 * half) * np.log(3 + 1 / xi) - rho2 - y * (2 - rho2)
    )
    width = (1 + xi) * ye
    nucleus = (1.5 * z ** (1 / 3) / MASS_RATIO) ** 2
    return np.log(screening * np.sqrt(width) / (1 + s * ye)) - 0.5 * np.log(1 + nucleus * width)


def muon_logarithm(z, screening, s, y, rho2, xi):
    """L_mu, the logarithm of the diagrams in which the muon emits the pair."""
    half = y / 2
    ymu = 1 + (4 + rho2 + 3 * half * (1 + rho2)) / (
        (1 + rho2) * (1.5 + y) * np.log(3 + xi) + 1 - 1.5 * rho2
    )
    return np.log(MASS_RATIO * screening / (1.5 * z ** (1 / 3) * (1 + s * ymu)))
