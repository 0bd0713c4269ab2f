"""Shell correction of the Bethe formula.

K and L shells: M. C. Walske, Phys. Rev. 88 (1952) 1283 and 101 (1956) 940;
G. S. Khandelwal, Nucl. Phys. A 116 (1968) 97. Outer shells by scaling the L shell
(H. Bichsel).
"""

from constants import ALPHA
from interpolation import averaged_bilinear, interval


def shell_correction(material, beta, literature):
    """C, to be taken twice from the braces of the Bethe formula."""
    b = (beta / ALPHA) ** 2
    weighted = sum(
        n / element.z * atom_correction(element, b, literature)
        for element, n in material.atom_densities()
    )
    return weighted / material.atom_density()


def atom_correction(element, b, literature):
    """C_Z of one atom, b = (beta/alpha)^2: K, L and all outer shells."""
    correction = correction_k(element, b, literature)
    if element.z > 2:
        correction += correction_lm(element, b, literature)
    return correction


def correction_k(element, b, literature):
    """K shell; hydrogen has half of it and no screening."""
    charge2, fraction = (1.0, 0.5) if element.z == 1 else ((element.z - 0.3) ** 2, 1.0)
    theta = charge2 * (1 + charge2 * ALPHA**2 / 4)
    if element.z > 11:
        theta = literature.theta_k(element.z)
    return fraction * shell_function(literature.shell_k, theta, b / charge2)


def correction_lm(element, b, literature):
    """L shell by subshells 2s, 2p1/2, 2p3/2 and, where there are more, the outer shells."""
    charge2 = (element.z - literature.screening_l(element.z)) ** 2
    eta = b / charge2
    shells = literature.occupations(element)
    occupied = list(zip(shells[1:4], theta_l(element, charge2, literature)))
    correction = sum(
        n / 8 * shell_function(literature.shell_l, theta, eta) for n, theta in occupied
    )
    if len(shells) > 4:
        mean = sum(n * theta for n, theta in occupied) / sum(n for n, _ in occupied)
        scaled = literature.scale_m(element.z) * eta
        correction += (element.z - 10) / 8 * shell_function(literature.shell_l, mean, scaled)
    return correction


def theta_l(element, charge2, literature):
    """Screening parameters theta of 2s, 2p1/2 and 2p3/2."""
    if element.z > 15:
        return [literature.theta_l(element.z)] * 3
    inner = charge2 / 4 * (1 + 5 * charge2 * ALPHA**2 / 16)
    outer = charge2 / 4 * (1 + charge2 * ALPHA**2 / 16)
    return [inner, inner, outer]


def shell_function(table, theta, eta):
    """C(theta, eta); theta is held inside the table, eta above its first value."""
    theta = min(max(theta, table.theta[0]), table.theta[-1])
    i = interval(theta, table.theta)
    f = (theta - table.theta[i]) / (table.theta[i + 1] - table.theta[i])
    if eta > table.eta[-1]:
        row = (1 - f) * table.expansion[i] + f * table.expansion[i + 1]
        return sum(u / eta**power for power, u in enumerate(row, 1))
    eta = max(eta, table.eta[0])
    j = interval(eta, table.eta)
    g = (eta - table.eta[j]) / (table.eta[j + 1] - table.eta[j])
    c = table.c
    return averaged_bilinear(c[i, j], c[i, j + 1], c[i + 1, j], c[i + 1, j + 1], f, g)
