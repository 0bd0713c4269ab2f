#!/usr/bin/env python3
"""Write the tables and pictures of docs/validation.md.

    cmake --build --preset release --target fit-samples
    build/release/bin/fit-samples --tracks > validation.csv
    python tools/validation/document.py validation.csv docs

Needs numpy and matplotlib.
"""

import argparse
import csv
from pathlib import Path

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402 - after the choice of the backend
import numpy as np  # noqa: E402

BEGIN = "<!-- tables: written by tools/validation/document.py -->"
END = "<!-- end of tables -->"
DETECTORS = ("fine", "range")
PARTICLES = ("mu", "pi", "p")
HITS = ("cell", "smeared")
PLACES = ("first", "middle", "last")
QUANTITIES = ("u", "slope")
STYLES = {  # told apart without colour, too
    "mu": {"color": "#0072b2", "linestyle": "-"},
    "pi": {"color": "#d55e00", "linestyle": "--"},
    "p": {"color": "#009e73", "linestyle": ":"},
}

matplotlib.rcParams.update(
    {"svg.hashsalt": "kelvo", "font.size": 10, "axes.grid": True, "grid.alpha": 0.3}
)


class Fits:
    """The tracks of fit-samples as columns."""

    def __init__(self, path):
        with open(path, encoding="utf-8") as file:
            rows = list(csv.DictReader(file))
        self.columns = {name: np.array([row[name] for row in rows]) for name in rows[0]}

    def select(self, **wanted):
        """Numbers of all columns of the tracks with these values."""
        mask = np.ones(len(self.columns["hits"]), bool)
        for name, value in wanted.items():
            mask &= self.columns[name] == value
        text = ("detector", "particle", "sample", "hits")
        return {k: v[mask].astype(float) for k, v in self.columns.items() if k not in text}

    def pulls(self, quantity, place, **wanted):
        """Pulls of both views together: of positions (u) or slopes."""
        f = self.select(**wanted)
        names = ("x", "y") if quantity == "u" else ("tx", "ty")
        return np.concatenate([f[f"pull_{name}_{place}"] for name in names])


def half_width(values):
    """Half of the interval that holds the central 68%."""
    low, high = np.quantile(values, (0.1587, 0.8413))
    return (high - low) / 2


def table(*rows):
    header, *body = rows
    lines = ["| " + " | ".join(header) + " |", "|" + "---|" * len(header)]
    lines += ["| " + " | ".join(row) + " |" for row in body]
    return "\n".join(lines) + "\n"


def samples():
    return [(d, p, h) for d in DETECTORS for p in PARTICLES for h in HITS]


def momentum_table(fits):
    rows = [("sample", "hits", "tracks", "median", "68% half width", "low third", "middle third",
             "high third", "pull: half width", "pull: beyond 3")]
    for detector, particle, hits in samples():
        f = fits.select(detector=detector, particle=particle, hits=hits)
        ratio = f["p_fit"] / f["p_true"]
        thirds = np.array_split(ratio[np.argsort(f["p_true"])], 3)
        rows.append((f"{detector} {particle}", hits, f"{len(ratio)}", f"{np.median(ratio):.4f}",
                     f"{half_width(ratio):.4f}", *(f"{np.median(t):.4f}" for t in thirds),
                     f"{half_width(f['pull_p']):.2f}",
                     f"{100 * np.mean(np.abs(f['pull_p']) > 3):.1f}%"))
    return table(*rows)


def start_table(fits):
    rows = [("sample", "hits", "x", "y", "ux", "uy", "length")]
    for detector, particle, hits in samples():
        f = fits.select(detector=detector, particle=particle, hits=hits)
        rows.append((f"{detector} {particle}", hits,
                     *(f"{half_width(f[f'pull_{q}']):.2f}" for q in ("x", "y", "ux", "uy", "length"))))
    return table(*rows)


def pull_table(fits):
    rows = [("sample", "hits", *(f"{q}, {place}" for q in ("position", "slope") for place in PLACES))]
    for detector, particle, hits in samples():
        wanted = dict(detector=detector, particle=particle, hits=hits)
        rows.append((f"{detector} {particle}", hits,
                     *(f"{half_width(fits.pulls(q, p, **wanted)):.2f}"
                       for q in QUANTITIES for p in PLACES)))
    return table(*rows)


def probability_table(fits):
    rows = [("sample", "hits", "below 0.01", "below 0.1", "below 0.5", "above 0.9")]
    for detector, particle, hits in samples():
        p = fits.select(detector=detector, particle=particle, hits=hits)["prob"]
        rows.append((f"{detector} {particle}", hits, *(f"{100 * np.mean(p < x):.1f}%"
                                                       for x in (0.01, 0.1, 0.5)),
                     f"{100 * np.mean(p > 0.9):.1f}%"))
    return table(*rows)


def hypothesis_table(fits):
    rows = [("sample", "hits", "best is mu", "best is pi", "best is p",
             "right of mu or pi against p")]
    for detector, particle, hits in samples():
        f = fits.select(detector=detector, particle=particle, hits=hits)
        fraction = [np.mean(f["best"] == h) for h in range(3)]
        right = fraction[2] if particle == "p" else fraction[0] + fraction[1]
        rows.append((f"{detector} {particle}", hits, *(f"{100 * s:.0f}%" for s in fraction),
                     f"{100 * right:.0f}%"))
    return table(*rows)


def markdown(fits):
    parts = [BEGIN, "### Momentum at the first hit, fitted over true\n", momentum_table(fits),
             "### 68% half widths of the pulls at the start of the track\n", start_table(fits),
             "### 68% half widths of the pulls at hits, both views\n", pull_table(fits),
             "### Probability of chi-square\n", probability_table(fits),
             "### The best hypothesis\n", hypothesis_table(fits), END]
    return "\n".join(parts) + "\n"


def plot_momentum(fits, path):
    figure, axes = plt.subplots(2, 2, figsize=(9, 6.5), sharex=True, layout="constrained")
    for row, detector in zip(axes, DETECTORS):
        for axis, hits in zip(row, HITS):
            for particle in PARTICLES:
                f = fits.select(detector=detector, particle=particle, hits=hits)
                axis.hist(f["p_fit"] / f["p_true"], np.linspace(0.85, 1.15, 61), density=True,
                          histtype="step", label=particle, linewidth=1.5, **STYLES[particle])
            axis.axvline(1, color="black", linewidth=0.8)
            axis.set_title(f"{detector}, {hits} hits")
            axis.set_ylabel("tracks (normalised)")
    for axis in axes[1]:
        axis.set_xlabel("fitted over true momentum")
    axes[0][0].legend()
    save(figure, path)


def plot_pulls(fits, path):
    figure, axes = plt.subplots(2, 3, figsize=(10, 6.5), layout="constrained")
    grid = np.linspace(-5, 5, 201)
    for row, quantity in zip(axes, QUANTITIES):
        for axis, place in zip(row, PLACES):
            for particle in PARTICLES:
                pulls = fits.pulls(quantity, place, detector="fine", particle=particle,
                                   hits="smeared")
                axis.hist(pulls, np.linspace(-5, 5, 51), density=True, histtype="step",
                          label=particle, linewidth=1.5, **STYLES[particle])
            axis.plot(grid, np.exp(-(grid**2) / 2) / np.sqrt(2 * np.pi), color="black",
                      linewidth=0.8, label="standard normal")
            name = "position" if quantity == "u" else "slope"
            axis.set_title(f"{name}, {place} hit")
            axis.set_xlabel("pull")
    figure.legend(*axes[0][0].get_legend_handles_labels(), loc="outside upper center", ncols=4)
    save(figure, path)


def plot_probability(fits, path):
    figure, axes = plt.subplots(1, 2, figsize=(9, 3.5), sharey=True, layout="constrained")
    for axis, detector in zip(axes, DETECTORS):
        for particle in PARTICLES:
            f = fits.select(detector=detector, particle=particle, hits="smeared")
            axis.hist(f["prob"], np.linspace(0, 1, 21), density=True, histtype="step",
                      label=particle, linewidth=1.5, **STYLES[particle])
        axis.axhline(1, color="black", linewidth=0.8)
        axis.set_title(f"{detector}, smeared hits")
        axis.set_xlabel("probability of chi-square")
    axes[0].set_ylabel("tracks (normalised)")
    axes[0].legend()
    save(figure, path)


def save(figure, path):
    """Writes a picture that is the same file each time."""
    figure.savefig(path, metadata={"Date": None})
    plt.close(figure)


def write_between_markers(path, part, begin, end):
    text = path.read_text(encoding="utf-8")
    if text.count(begin) != 1 or text.count(end) != 1:
        raise ValueError(f'{path}: expected one line "{begin}" and one line "{end}"')
    before, rest = text.split(begin)
    path.write_text(before + part + rest.split(end)[1].lstrip("\n"), encoding="utf-8")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("fits", type=Path, help="what fit-samples wrote")
    parser.add_argument("docs", type=Path, help="folder of validation.md")
    arguments = parser.parse_args()
    fits = Fits(arguments.fits)
    write_between_markers(arguments.docs / "validation.md", markdown(fits), BEGIN, END)
    pictures = arguments.docs / "img"
    pictures.mkdir(exist_ok=True)
    plot_momentum(fits, pictures / "validation-momentum.svg")
    plot_pulls(fits, pictures / "validation-pulls.svg")
    plot_probability(fits, pictures / "validation-probability.svg")


if __name__ == "__main__":
    main()
