#!/usr/bin/env python3
"""Write the tables and pictures of docs/leaving.md.

    cmake --build --preset release --target fit-leaving
    build/release/bin/fit-leaving > leaving.csv
    python tools/validation/leaving.py leaving.csv docs

Needs numpy and matplotlib.
"""

import argparse
from pathlib import Path

import matplotlib.pyplot as plt
import numpy as np
from document import (
    DETECTORS,
    HITS,
    STYLES,
    Fits,
    half_width,
    save,
    table,
    write_between_markers,
)

BEGIN = "<!-- tables: written by tools/validation/leaving.py -->"
END = "<!-- end of tables -->"
LEAVING = {"fine": ("0.7", "1.5", "3", "6"), "range": ("1.5", "2.5", "4", "8")}
LONG = {"fine": 50, "range": 36}  # hits: 3 m, 1.5 m
COLOURS = {"smeared": "#0072b2", "cell": "#d55e00"}


def tracks(fits, least=0, **wanted):
    """Columns of the tracks with these values and at least so many hits."""
    columns = fits.select(**wanted)
    long = columns["n"] >= least
    return {name: values[long] for name, values in columns.items()}


def leaving(fits, detector, hits, least=0):
    """All muons of a detector that leave."""
    samples = [tracks(fits, least, detector=detector, hits=hits, sample=f"mu_leave_{p}")
               for p in LEAVING[detector]]
    return {name: np.concatenate([s[name] for s in samples]) for name in samples[0]}


def pulls(t):
    return (t["inverse"] - 1 / t["p"]) / t["sig_inverse"]


def percent(condition):
    return f"{100 * np.mean(condition):.1f}%"


def end_table(fits):
    rows = [("sample", "hits", "tracks", "leave by the distance", "stop_chi2 above 3.84")]
    for detector in DETECTORS:
        for sample in [f"mu_leave_{p}" for p in LEAVING[detector]] + ["mu_stop", "pi_stop", "p_stop"]:
            for hits in HITS:
                t = tracks(fits, detector=detector, hits=hits, sample=sample)
                rows.append((f"{detector} {sample}", hits, f"{len(t['p'])}", percent(t["leaves"]),
                             percent(t["stop_chi2"] > 3.84)))
    return table(*rows)


def momentum_row(name, hits, t):
    ratio = t["p"] * t["inverse"]
    median = np.median(ratio)
    return (name, hits, f"{len(ratio)}", f"{1 / median:.3f}" if median > 0 else "infinite",
            f"{half_width(ratio):.3f}", f"{np.median(t['bound']):.3f}",
            f"{half_width((ratio - 1) / t['bound']):.2f}",
            percent((t["low"] < t["p"]) & (t["p"] < t["high"])), percent(np.isinf(t["high"])),
            f"{half_width(pulls(t)):.2f}")


def momentum_table(fits):
    rows = [("sample", "hits", "tracks", "median of p", "half width of 1/p", "bound",
             "width over bound", "interval holds the truth", "only a lower limit", "pull of 1/p")]
    for detector in DETECTORS:
        for hits in reversed(HITS):
            for p in LEAVING[detector]:
                t = tracks(fits, LONG[detector], detector=detector, hits=hits,
                           sample=f"mu_leave_{p}")
                if len(t["p"]) > 40:
                    rows.append(momentum_row(f"{detector} {p} GeV/c", hits, t))
            rows.append(momentum_row(f"{detector}, all long", hits,
                                     leaving(fits, detector, hits, LONG[detector])))
            rows.append(momentum_row(f"{detector}, all", hits, leaving(fits, detector, hits)))
    return table(*rows)


def probability_table(fits):
    rows = [("sample", "hits", *(f"as {p}: below {x}" for p in ("mu", "p") for x in (0.05, 0.5)),
             "as itself: below 0.05", "below 0.5")]
    for detector in DETECTORS:
        for particle in ("mu", "pi", "p"):
            for hits in HITS:
                t = tracks(fits, detector=detector, hits=hits, sample=f"{particle}_stop")
                prob = {p: t[f"prob_{p}"][t["leaves"] == 0] for p in ("mu", "pi", "p")}
                rows.append((f"{detector} {particle}_stop", hits,
                             *(percent(prob[p] < x) for p in ("mu", "p", particle)
                               for x in (0.05, 0.5))))
    return table(*rows)


def markdown(fits):
    parts = [BEGIN, "### Which tracks leave\n", end_table(fits),
             "### Momentum from scattering over truth, muons that leave\n", momentum_table(fits),
             "### Probability of the scattering of tracks that stop\n", probability_table(fits), END]
    return "\n".join(parts) + "\n"


def plot_end(fits, path):
    figure, axes = plt.subplots(2, 2, figsize=(9, 6.5), layout="constrained")
    for row, detector in zip(axes, DETECTORS):
        stops = tracks(fits, detector=detector, hits="smeared", sample="mu_stop")
        leaves = leaving(fits, detector, "smeared")
        for t, name, line in ((stops, "stop", "-"), (leaves, "leave", "--")):
            row[0].hist(np.clip(t["planes"], 0, 9.99), np.linspace(0, 10, 41), density=True,
                        histtype="step", linestyle=line, label=name)
            row[1].hist(np.clip(t["stop_chi2"], 0, 39.9), np.linspace(0, 40, 41), density=True,
                        histtype="step", linestyle=line, label=name)
        row[0].axvline(1.6, color="black", linewidth=0.8)
        row[0].set_xlabel("end_planes (10: and more)")
        row[1].set_xlabel("stop_chi2 (40: and more)")
        row[1].set_yscale("log")
        for axis in row:
            axis.set_title(f"muons in {detector}, smeared hits")
    axes[0][0].set_ylabel("tracks (normalised)")
    axes[0][0].legend()
    save(figure, path)


def plot_momentum(fits, path):
    """Half widths beside the bound, by length of the track and sample."""
    figure, axes = plt.subplots(1, 2, figsize=(9, 4), layout="constrained")
    for axis, detector in zip(axes, DETECTORS):
        for hits in HITS:
            t = leaving(fits, detector, hits, 14)
            order = np.argsort(t["bound"])
            bins = np.array_split(order, 12)
            bound = [np.median(t["bound"][b]) for b in bins]
            width = [half_width((t["p"] * t["inverse"])[b]) for b in bins]
            axis.plot(bound, width, "o" if hits == "cell" else "s", color=COLOURS[hits],
                      label=f"{hits} hits")
        axis.plot([0.1, 1], [0.1, 1], color="black", linewidth=0.8, label="bound")
        axis.set_xscale("log")
        axis.set_yscale("log")
        ticks = (0.1, 0.2, 0.5, 1, 2)
        axis.set_xticks(ticks, [f"{tick}" for tick in ticks], minor=False)
        axis.set_yticks(ticks, [f"{tick}" for tick in ticks], minor=False)
        axis.minorticks_off()
        axis.set_xlim(0.1, 3)
        axis.set_ylim(0.1, 2)
        axis.set_title(f"muons that leave {detector}")
        axis.set_xlabel("Cramer-Rao bound of a track (medians of twelfths)")
    axes[0].set_ylabel("half width of p / p_scattering")
    axes[0].legend()
    save(figure, path)


def plot_pulls(fits, path):
    figure, axes = plt.subplots(1, 2, figsize=(9, 3.5), sharey=True, layout="constrained")
    grid = np.linspace(-5, 5, 201)
    for axis, detector in zip(axes, DETECTORS):
        for hits in HITS:
            t = leaving(fits, detector, hits, LONG[detector])
            axis.hist(pulls(t), np.linspace(-5, 5, 41), density=True, histtype="step",
                      color=COLOURS[hits], label=f"{hits} hits")
        axis.plot(grid, np.exp(-(grid**2) / 2) / np.sqrt(2 * np.pi), color="black", linewidth=0.8,
                  label="standard normal")
        axis.set_title(f"long tracks that leave {detector}")
        axis.set_xlabel("pull of inv_p_scattering")
    axes[0].set_ylabel("tracks (normalised)")
    axes[0].legend()
    save(figure, path)


def plot_probability(fits, path):
    figure, axes = plt.subplots(1, 2, figsize=(9, 3.5), sharey=True, layout="constrained")
    for axis, detector in zip(axes, DETECTORS):
        for particle, style in STYLES.items():
            t = tracks(fits, detector=detector, hits="smeared", sample=f"{particle}_stop")
            axis.hist(t["prob_mu"], np.linspace(0, 1, 21), density=True, histtype="step",
                      label=f"{particle}, as mu", **style)
        axis.axhline(1, color="black", linewidth=0.8)
        axis.set_title(f"tracks that stop in {detector}, smeared hits")
        axis.set_xlabel("prob_scattering")
    axes[0].set_ylabel("tracks (normalised)")
    axes[0].legend()
    save(figure, path)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n", maxsplit=1)[0])
    parser.add_argument("fits", type=Path, help="what fit-leaving wrote")
    parser.add_argument("docs", type=Path, help="folder of leaving.md")
    arguments = parser.parse_args()
    fits = Fits(arguments.fits)
    write_between_markers(arguments.docs / "leaving.md", markdown(fits), BEGIN, END)
    pictures = arguments.docs / "img"
    plot_end(fits, pictures / "leaving-end.svg")
    plot_momentum(fits, pictures / "leaving-momentum.svg")
    plot_pulls(fits, pictures / "leaving-pulls.svg")
    plot_probability(fits, pictures / "leaving-probability.svg")


if __name__ == "__main__":
    main()
