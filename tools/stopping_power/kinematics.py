"""Kinematics of a heavy particle, the muon unless told otherwise. Energies in MeV."""

from math import sqrt

from constants import ELECTRON_MASS, MUON_MASS


def beta_gamma_squared(kinetic, mass=MUON_MASS):
    """(beta gamma)^2 = tau (tau + 2), tau = T/m."""
    tau = kinetic / mass
    return tau * (tau + 2)


def beta_of(kinetic, mass=MUON_MASS):
    """Velocity in units of c."""
    return sqrt(beta_gamma_squared(kinetic, mass)) / (kinetic / mass + 1)


def max_transfer(kinetic):
    """Largest energy a muon can give to one free electron [MeV]."""
    gamma = kinetic / MUON_MASS + 1
    ratio = ELECTRON_MASS / MUON_MASS
    return 2 * ELECTRON_MASS * beta_gamma_squared(kinetic) / (1 + 2 * gamma * ratio + ratio**2)
