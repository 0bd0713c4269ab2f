"""The literature tables that the calculation interpolates, read from literature.json.

Keys of the file: oscillator_L0, oscillator_L1, oscillator_L2 (Sigmund, Haagerup;
Mikkelsen, Sigmund; Mikkelsen), oscillator_shells and oscillator_norm (ICRU 73),
bound_shells, shell_K, shell_L, shell_screening (Walske; Khandelwal), barkas_F
(Ashley, Ritchie, Brandt). Each table of the file names its own source.
"""

import json
from math import exp, sqrt
from pathlib import Path

import numpy as np

from interpolation import CubicSpline


class ShellTable:
    """Shell correction of one shell, C(theta, eta), from the tables of Khandelwal.

    Inside the table C = S ln eta + T - B at the nodes; above its last eta the
    expansion in 1/eta takes over, its last coefficient fixed by continuity.
    """

    def __init__(self, table):
        self.theta = np.array(table["theta"])
        self.eta = np.array(table["eta"])
        s, t, b = (np.array(table[key]) for key in "STB")
        self.c = s[:, None] * np.log(self.eta) + t[:, None] - b
        self.expansion = self._expansion(table)

    def _expansion(self, table):
        """Coefficients of 1/eta, 1/eta^2 (and 1/eta^3 where V is tabulated), one row per theta."""
        known = [np.array(table[key]) for key in "UV" if key in table]
        last = self.eta[-1]
        rest = self.c[:, -1] - sum(u / last**power for power, u in enumerate(known, 1))
        return np.array(known + [rest * last ** (len(known) + 1)]).T


class Literature:
    """All tables by name, in the form the formulas use."""

    def __init__(self):
        file = Path(__file__).with_name("literature.json")
        data = json.loads(file.read_text(encoding="utf-8"))
        self.oscillator_l = [np.array(data[f"oscillator_L{k}"]["rows"]).T for k in range(3)]
        self.oscillator_norm = data["oscillator_norm"]
        self._oscillator_shells = data["oscillator_shells"]
        self._bound_shells = data["bound_shells"]
        self.shell_k = ShellTable(data["shell_K"])
        self.shell_l = ShellTable(data["shell_L"])
        screening = data["shell_screening"]
        self.theta_k = CubicSpline(screening["theta_K"]["Z"], screening["theta_K"]["theta"])
        self.theta_l = CubicSpline(screening["theta_L"]["Z"], screening["theta_L"]["theta"])
        self._screening_l = screening["L_screening_constant_by_Z"]
        self._scale_m = screening["H_M_from_Z11"]
        self.barkas = CubicSpline(*np.array(data["barkas_F"]["rows"]).T)

    def occupations(self, element):
        """Electrons in each atomic shell, K outwards: 1s, 2s, 2p1/2, 2p3/2, 3s, ..."""
        return self._bound_shells[element.symbol]["n"]

    def oscillators(self, element):
        """Pairs (electrons, resonance energy [MeV]) of the harmonic-oscillator shells.

        Where ICRU 73 has no set they follow from the binding energies:
        E_s^2 = (e^0.5 E_bind)^2 + 0.66667 N_s E_plasma^2 / Z^2.
        """
        shells = self._oscillator_shells.get(element.symbol)
        if shells is None:
            bound = self._bound_shells[element.symbol]
            plasma = 0.66667 * bound["E_plasma"] ** 2 / element.z**2
            shells = [
                (n, sqrt((exp(0.5) * binding) ** 2 + plasma * n))
                for n, binding in zip(bound["n"], bound["E"], strict=True)
            ]
        return [(n, 1e-6 * energy) for n, energy in shells]

    def screening_l(self, z):
        """Screening constant of the L shell; one value from neon on."""
        return self._screening_l[min(z, 10)]

    def scale_m(self, z):
        """Factor on eta that turns the L-shell table into the M-shell correction, Z > 10."""
        return self._scale_m[z - 11]
