"""Rows of the tables in use and their extremes, which the calculation has to reproduce."""

# grid index: stopping powers [MeV cm2/g] of Scintillator, PVC, Glue, Steel
ROWS = {
    0: (625.37, 424.556, 436.22, 166.621),
    1: (625.141, 426.33, 442.344, 173.054),
    20: (50.3317, 40.3657, 42.5767, 29.2846),
    30: (7.77981, 6.48557, 6.67559, 5.15553),
    40: (2.27711, 1.93088, 1.93419, 1.57685),
    44: (2.05046, 1.74543, 1.74115, 1.44863),
    45: (2.0492, 1.74773, 1.74126, 1.45618),
    50: (2.17885, 1.88409, 1.86386, 1.59776),
    60: (2.556, 2.28131, 2.2218, 1.99586),
    70: (3.02861, 2.89878, 2.67287, 2.88715),
    80: (5.69461, 7.60428, 5.41056, 11.2418),
    89: (26.6083, 45.6867, 27.0978, 79.8329),
}

# grid indices of the largest and the smallest value, in the same order of materials
MAXIMA = (0, 1, 1, 3)
MINIMA = (45, 44, 44, 44)
STEEL_MAXIMUM = 177.944


def rounded(value):
    """The value with the six significant digits of the tables."""
    return float(f"{value:.6g}")
