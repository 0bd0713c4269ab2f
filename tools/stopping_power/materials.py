"""The four detector materials: composition, density and mean excitation energy.

Mean excitation energies of the elements: ICRU 37 and ICRU 49. Mixtures follow
Bragg's additivity, ln I = sum(Z n_Z ln I_Z) / n_el.
"""

from dataclasses import dataclass
from math import exp, log

from constants import AVOGADRO


@dataclass(frozen=True)
class Element:
    """A chemical element: symbol, Z, molar mass A [g/mol], mean excitation energy I [eV]."""

    symbol: str
    z: int
    a: float
    excitation: float


ELEMENTS = {
    element.symbol: element
    for element in (
        Element("H", 1, 1.00794, 19.2),
        Element("C", 6, 12.0107, 81.0),
        Element("N", 7, 14.01, 82.0),
        Element("O", 8, 15.9994, 95.0),
        Element("S", 16, 32.066, 180.0),
        Element("Cl", 17, 35.4527, 174.0),
        Element("Ti", 22, 47.867, 233.0),
        Element("Fe", 26, 55.845, 286.0),
    )
}


@dataclass(frozen=True)
class Material:
    """A material: its name, density [g/cm3] and mass fractions by element symbol."""

    name: str
    density: float
    fractions: dict

    def atom_densities(self):
        """Pairs (element, atoms/cm3): n_Z = N_A rho w_Z / A_Z."""
        return [
            (ELEMENTS[symbol], AVOGADRO * self.density * fraction / ELEMENTS[symbol].a)
            for symbol, fraction in self.fractions.items()
        ]

    def atom_density(self):
        """Atoms per cm3 of all elements together."""
        return sum(n for _, n in self.atom_densities())

    def electron_density(self):
        """Electrons per cm3."""
        return sum(element.z * n for element, n in self.atom_densities())

    def mean_excitation(self):
        """Mean excitation energy I [MeV]."""
        weighted = sum(e.z * n * log(e.excitation) for e, n in self.atom_densities())
        return 1e-6 * exp(weighted / self.electron_density())


MATERIALS = (
    # a mineral-oil based liquid scintillator
    Material("Scintillator", 0.859, {"H": 0.121, "C": 0.866, "N": 0.003, "O": 0.0075, "S": 0.0025}),
    # 85 % (C2H3Cl)n and 15 % TiO2, the white pigment
    Material("PVC", 1.49, {"C": 0.3267, "H": 0.0411, "Cl": 0.4822, "Ti": 0.0899, "O": 0.0601}),
    # pure carbon stands for the glue
    Material("Glue", 1.34, {"C": 1.0}),
    Material("Steel", 7.87, {"Fe": 1.0}),
)
