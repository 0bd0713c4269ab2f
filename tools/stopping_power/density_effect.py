"""Density effect of the Bethe formula.

Elements: R. M. Sternheimer, M. J. Berger, S. M. Seltzer, At. Data Nucl. Data
Tables 30 (1984) 261. Mixtures: R. M. Sternheimer, R. F. Peierls, Phys. Rev. B 3
(1971) 3681, condensed media.
"""

from dataclasses import dataclass
from math import log, log10, pi, sqrt

from constants import ELECTRON_RADIUS, HBAR_C


@dataclass(frozen=True)
class DensityParameters:
    """Parameters of Sternheimer's form; X = log10(beta gamma)."""

    c: float
    x0: float
    x1: float
    a: float
    k: float
    d0: float

    def delta(self, beta_gamma):
        """delta(X), to be taken from the braces of the Bethe formula."""
        x = log10(beta_gamma)
        if x < self.x0:
            return self.d0 * 10 ** (2 * (x - self.x0))
        delta = 2 * log(10) * x - self.c
        if x < self.x1:
            delta += self.a * (self.x1 - x) ** self.k
        return delta


# not rescaled to the density in use
ELEMENT_PARAMETERS = {
    "C": DensityParameters(c=2.9925, x0=-0.0351, x1=2.486, a=0.2024, k=3.0036, d0=0.10),
    "Fe": DensityParameters(c=4.2911, x0=-0.0012, x1=3.1531, a=0.146, k=2.9632, d0=0.12),
}


def parameters_of(material):
    """Tabulated for a pure element, else from electron density and mean excitation energy."""
    if len(material.fractions) == 1:
        return ELEMENT_PARAMETERS[next(iter(material.fractions))]
    return mixture_parameters(material.mean_excitation(), material.electron_density())


def mixture_parameters(excitation, electron_density):
    """General rule for condensed media; I [MeV], electrons per cm3."""
    c = 1 + 2 * log(excitation / plasma_energy(electron_density))
    if excitation < 100e-6:
        x1 = 2.0
        x0 = 0.2 if c < 3.681 else 0.326 * c - 1
    else:
        x1 = 3.0
        x0 = 0.2 if c < 5.215 else 0.326 * c - 1.5
    a = (c - 2 * log(10) * x0) / (x1 - x0) ** 3
    return DensityParameters(c=c, x0=x0, x1=x1, a=a, k=3.0, d0=0.0)


def plasma_energy(electron_density):
    """Plasma energy [MeV] of electrons per cm3."""
    return HBAR_C * sqrt(4 * pi * ELECTRON_RADIUS * electron_density)
