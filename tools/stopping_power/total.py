"""The muon's total mean mass stopping power: models joined, grid and tables.

S = (ionisation + bremsstrahlung + pairs) / density, unrestricted, without
photonuclear and elastic nuclear loss.
"""

from bethe import bethe_terms, radiative_bethe_terms
from bremsstrahlung import bremsstrahlung_loss
from oscillator import oscillator_terms
from pair_production import pair_loss

OSCILLATOR_LIMIT = 0.2  # MeV, kinetic energy up to which the oscillator model is used
RADIATIVE_LIMIT = 1e3  # MeV, kinetic energy above which radiation counts
POINTS = 90


def grid():
    """Kinetic energies [GeV] of the tables: nine decades in equal logarithmic steps."""
    return [10 ** (-5 + 9 * i / (POINTS - 1)) for i in range(POINTS)]


def with_join(terms, kinetic, limit, ratio):
    """Adds a term that makes the sum continuous: ratio - 1 at the limit, falling like 1/T."""
    return terms | {"join": sum(terms.values()) * (ratio - 1) * limit / kinetic}


class StoppingPower:
    """Stopping power of one material as a function of the muon's kinetic energy."""

    def __init__(self, material, literature):
        self._material = material
        self._literature = literature
        self._slow_ratio = self._ratio(oscillator_terms, bethe_terms, OSCILLATOR_LIMIT)
        self._fast_ratio = self._ratio(bethe_terms, radiative_bethe_terms, RADIATIVE_LIMIT)

    def total(self, kinetic):
        """Mass stopping power [MeV cm2/g] at the kinetic energy [MeV]."""
        return sum(self.terms(kinetic).values())

    def terms(self, kinetic):
        """Its terms by name [MeV cm2/g]; those that do not apply are absent."""
        terms = self._ionisation(kinetic)
        if kinetic > RADIATIVE_LIMIT:
            terms["bremsstrahlung"] = bremsstrahlung_loss(self._material, kinetic)
            terms["pairs"] = pair_loss(self._material, kinetic)
        return {name: term / self._material.density for name, term in terms.items()}

    def _ionisation(self, kinetic):
        """Electronic terms [MeV/cm], their sum continuous at both limits."""
        if kinetic <= OSCILLATOR_LIMIT:
            return self._model(oscillator_terms, kinetic)
        if kinetic <= RADIATIVE_LIMIT:
            terms = self._model(bethe_terms, kinetic)
            return with_join(terms, kinetic, OSCILLATOR_LIMIT, self._slow_ratio)
        terms = self._model(radiative_bethe_terms, kinetic)
        return with_join(terms, kinetic, RADIATIVE_LIMIT, self._fast_ratio)

    def _model(self, model, kinetic):
        return model(self._material, kinetic, self._literature)

    def _ratio(self, below, above, kinetic):
        value, divisor = (sum(self._model(m, kinetic).values()) for m in (below, above))
        return value / divisor


def table(material, literature):
    """Unrounded stopping powers [MeV cm2/g] at the unrounded grid energies."""
    stopping = StoppingPower(material, literature)
    return [stopping.total(1e3 * kinetic) for kinetic in grid()]
