"""Gauss-Legendre rules on [0, 1] with a few printed digits.

Nodes and weights carry only the digits with which they are quoted: the error of
their rounding is part of the tables (below 3e-4 of an integral).
"""

import numpy as np


def _mirrored(nodes, weights):
    """Both halves of a rule symmetric about 1/2."""
    nodes, weights = np.array(nodes), np.array(weights)
    return np.concatenate((nodes, 1 - nodes)), np.concatenate((weights, weights))


GAUSS8 = _mirrored((0.0199, 0.1017, 0.2372, 0.4083), (0.0506, 0.1112, 0.1569, 0.1813))
GAUSS6 = _mirrored((0.03377, 0.16940, 0.38069), (0.08566, 0.18038, 0.23396))


def integrate(function, low, high, rule, steps=1):
    """Integral of function(array) over [low, high] in equal steps, one rule on each."""
    nodes, weights = rule
    width = (high - low) / steps
    starts = low + width * np.arange(steps)
    x = starts[:, None] + width * nodes
    return width * float(np.sum(weights * function(x)))
