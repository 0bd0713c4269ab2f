"""Pictures of the tables for docs/stopping-power.md. Needs matplotlib."""

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402 - after the choice of the backend
import numpy as np

from reference_rows import ROWS
from total import OSCILLATOR_LIMIT, RADIATIVE_LIMIT, StoppingPower, grid, table

matplotlib.rcParams.update(
    {
        "svg.hashsalt": "kelvo",  # the same picture gives the same file
        "font.size": 10,
        "axes.grid": True,
        "grid.alpha": 0.3,
    }
)

ENERGY_LABEL = "muon kinetic energy [GeV]"
RADIATION = ("bremsstrahlung", "pairs")
CORRECTIONS = ("density", "shells", "Barkas", "Bloch", "Mott", "knock-ons", "join")
COLOURS = {
    "density": "tab:blue",
    "shells": "tab:orange",
    "Barkas": "tab:red",
    "Bloch": "tab:purple",
    "Mott": "tab:brown",
    "knock-ons": "tab:pink",
    "join": "black",
    "bremsstrahlung": "tab:olive",
    "pairs": "tab:green",
}


def save(figure, path):
    """Writes one picture; the format follows the ending of the name."""
    metadata = {"Date": None} if path.suffix == ".svg" else None
    figure.savefig(path, metadata=metadata, dpi=90)
    plt.close(figure)


def mark_limits(axes):
    """Lines where one model hands over to the next."""
    for limit in (OSCILLATOR_LIMIT, RADIATIVE_LIMIT):
        axes.axvline(limit / 1e3, color="grey", linewidth=0.8, linestyle=":")


def plot_material(index, material, literature, path):
    """Stopping power with ionisation, bremsstrahlung and pairs; the rows in use marked."""
    figure, axes = plt.subplots(figsize=(7, 4.6), layout="constrained")
    energies = np.array(grid())
    axes.loglog(energies, table(material, literature), color="black", label="total")
    for name, values in processes(material, literature).items():
        axes.loglog(energies, values, linestyle="--", linewidth=1.2, label=name)
    points = [values[index] for values in ROWS.values()]
    axes.loglog(energies[list(ROWS)], points, "o", color="tab:red", label="rows in use")
    mark_limits(axes)
    axes.set_ylim(1e-2, 1.5e3)
    axes.set_xlabel(ENERGY_LABEL)
    axes.set_ylabel("mass stopping power [MeV cm$^2$/g]")
    axes.set_title(f"Negative muons in {material.name}, {material.density:g} g/cm$^3$")
    axes.legend(loc="lower left")
    save(figure, path)


def processes(material, literature):
    """Values on the grid of ionisation, bremsstrahlung and pairs; nan where one is left out."""
    stopping = StoppingPower(material, literature)
    points = [stopping.terms(1e3 * energy) for energy in grid()]
    ionisation = [sum(v for k, v in terms.items() if k not in RADIATION) for terms in points]
    parts = {"ionisation": ionisation}
    for name in RADIATION:
        parts[name] = [terms.get(name, np.nan) for terms in points]
    return parts


def plot_terms(materials, literature, path):
    """Terms relative to the total, one panel per material."""
    figure, panels = plt.subplots(2, 2, figsize=(9, 6.8), sharex=True, layout="constrained")
    for axes, material in zip(panels.flat, materials, strict=True):
        draw_terms(axes, material, literature)
    for axes in panels[1]:
        axes.set_xlabel(ENERGY_LABEL)
    for axes in panels[:, 0]:
        axes.set_ylabel("share of the total [%]")
    handles, labels = panels[0, 0].get_legend_handles_labels()
    figure.legend(handles, labels, loc="outside lower center", ncols=5)
    save(figure, path)


def draw_terms(axes, material, literature):
    """One panel: each model on its own stretch of energies, so that its limits show."""
    stopping = StoppingPower(material, literature)
    stretches = ((0.01, OSCILLATOR_LIMIT), (0.2001, RADIATIVE_LIMIT), (1000.1, 1e7))
    labelled = set()
    for low, high in stretches:
        energies = np.geomspace(low, high, 45)
        points = [stopping.terms(energy) for energy in energies]
        for name in [n for n in COLOURS if n in points[0]]:
            shares = [100 * terms[name] / sum(terms.values()) for terms in points]
            label = None if name in labelled else name
            axes.plot(energies / 1e3, shares, color=COLOURS[name], linewidth=1.3, label=label)
            labelled.add(name)
    mark_limits(axes)
    axes.set_xscale("log")
    axes.set_yscale("symlog", linthresh=1, linscale=0.7)
    axes.set_ylim(-150, 100)
    axes.set_yticks((-100, -10, -1, 0, 1, 10, 100))
    axes.yaxis.set_major_formatter("{x:g}")
    axes.set_title(material.name)
