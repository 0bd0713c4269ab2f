#!/usr/bin/env python3
"""Write the tables and pictures of docs/charge.md.

    python tools/validation/charge.py build/release/bin/kelvo FOLDER docs

FOLDER has samples of stopping tracks by Geant4 with the energy deposited at each hit:
DETECTOR_PARTICLE_stop_hits_cell.csv.gz and DETECTOR_PARTICLE_stop_hittruth.csv.gz. Needs numpy,
pandas and matplotlib.
"""

import argparse
import subprocess
import tempfile
from pathlib import Path

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402 - after the choice of the backend
import numpy as np  # noqa: E402
import pandas as pd  # noqa: E402

BEGIN = "<!-- tables: written by tools/validation/charge.py -->"
END = "<!-- end of tables -->"
RESOLUTION = 0.2
MIP = {"fine": 9.9e-3, "range": 1.76e-3}  # GeV, of a plane crossed at right angles
STEP = {"fine": 6.05, "range": 4.0}  # cm, between planes
PARTICLES = {"mu": 13, "pi": 211, "p": 2212}
HITS = ("cell", "smeared")
STYLES = {  # told apart without colour, too
    "mu": {"color": "#0072b2", "linestyle": "-"},
    "pi": {"color": "#d55e00", "linestyle": "--"},
    "p": {"color": "#009e73", "linestyle": ":"},
}

matplotlib.rcParams.update(
    {"svg.hashsalt": "kelvo", "font.size": 10, "axes.grid": True, "grid.alpha": 0.3}
)


def read_hits(folder, detector, hits):
    """The hits of all particles with their truth; track numbers tell the particles apart."""
    random = np.random.default_rng(7)
    frames = []
    for number, particle in enumerate(PARTICLES):
        name = f"{detector}_{particle}_stop"
        frame = pd.read_csv(folder / f"{name}_hits_{hits}.csv.gz")
        truth = pd.read_csv(folder / f"{name}_hittruth.csv.gz")
        noise = RESOLUTION * np.sqrt(MIP[detector] * truth.edep)
        frame["q"] = truth.edep + noise * random.standard_normal(len(truth))
        frame["path"] = truth.pathcell
        frame["stretch"] = np.hypot(1, np.hypot(truth.dxdz, truth.dydz))
        way = (frame.z.groupby(frame.track).shift(-1) - frame.z) * frame.stretch
        frame["left"] = way.fillna(0)[::-1].groupby(frame.track[::-1]).cumsum()[::-1]
        frame["inner"] = (frame.groupby("track").cumcount() > 0) & way.notna()
        frame["track"] = 3 * frame.track + number
        frames.append(frame)
    return pd.concat(frames).sort_values("track", kind="stable")


def fit(kelvo, detectors, detector, hits):
    """The log-likelihoods of kinks and deposits, and the scale."""
    with tempfile.TemporaryDirectory() as folder:
        hits[["track", "view", "u", "z", "sigu", "q"]].to_csv(f"{folder}/hits.csv", index=False)
        done = subprocess.run(
            [kelvo, "fit", f"{folder}/hits.csv", "--detector", detectors / f"{detector}.toml",
             "--output", f"{folder}/fits.root", "--csv", f"{folder}/fits.csv", "--scalars",
             "--charge-resolution", str(RESOLUTION), "--end", "stops", "--hypothesis", ",".join(PARTICLES)],
            check=True, capture_output=True, text=True)
        fits = pd.read_csv(f"{folder}/fits.csv")
    scale = next(line.split()[-1] for line in done.stdout.splitlines() if "deposit per GeV" in line)
    fits = fits[fits.status == 0]
    kinks = fits.pivot(index="track", columns="pdg", values="log_likelihood")
    return kinks, fits.pivot(index="track", columns="pdg", values="log_likelihood_charge"), float(scale)


def templates(hits, detector, range_bins, charge_bins):
    """The log-likelihoods of deposits per path by Geant4's own distributions: those of the tracks
    with even numbers for the others, and the other way round."""
    hits = hits[hits.inner]
    density = hits.q / hits.path
    usual = np.median(density)
    edges = np.concatenate([[-1], np.geomspace(1, 120, range_bins) * STEP[detector]])
    charges = np.concatenate([[-1e9], np.linspace(0.4, 4, charge_bins) * usual, [1e9]])
    i = np.clip(np.digitize(hits.left, edges) - 1, 0, range_bins - 1)
    j = np.digitize(density, charges) - 1
    particle, half = hits.track % 3, hits.track // 3 % 2
    columns = {}
    for number, code in enumerate(PARTICLES.values()):
        values = np.zeros(len(hits))
        for learn in (0, 1):
            of = ((particle == number) & (half == learn)).to_numpy()
            counts = np.full((range_bins, charge_bins + 1), 0.5)
            np.add.at(counts, (i[of], j[of]), 1)
            logs = np.log(counts / counts.sum(axis=1, keepdims=True))
            other = (half != learn).to_numpy()
            values[other] = logs[i[other], j[other]]
        columns[code] = pd.Series(values).groupby(hits.track.to_numpy()).sum()
    return pd.DataFrame(columns)


def leads(likelihood, other):
    """Log-likelihood of the muon minus that of another particle: of muons, and of the others."""
    lead = likelihood[13] - likelihood[PARTICLES[other]]
    number = lead.index % 3
    return lead[number == 0].to_numpy(), lead[number == list(PARTICLES).index(other)].to_numpy()


def area(muons, others):
    ranks = pd.Series(np.concatenate([muons, others])).rank().to_numpy()[: len(muons)]
    return (ranks.sum() - len(muons) * (len(muons) + 1) / 2) / len(muons) / len(others)


def table(*rows):
    header, *body = rows
    lines = ["| " + " | ".join(header) + " |", "|" + "---|" * len(header)]
    lines += ["| " + " | ".join(row) + " |" for row in body]
    return "\n".join(lines) + "\n"


class Sample:
    def __init__(self, kelvo, folder, detectors, detector, kind):
        self.detector, self.kind = detector, kind
        self.hits = read_hits(folder, detector, kind)
        self.kinks, self.charge, self.scale = fit(kelvo, detectors, detector, self.hits)
        self.both = self.kinks + self.charge
        candidates = [templates(self.hits, detector, r, c) for r in (4, 8, 16) for c in (8, 16, 32)]
        self.templates = max(candidates, key=lambda t: area(*leads(t, "pi")))


def area_table(samples):
    rows = [("detector", "hits", "against", "kinks", "deposits", "both", "Geant4's templates")]
    for s in samples:
        for other in ("p", "pi"):
            rows.append((s.detector, s.kind, other,
                         *(f"{area(*leads(x, other)):.3f}"
                           for x in (s.kinks, s.charge, s.both, s.templates))))
    return table(*rows)


def called_table(samples):
    rows = [("detector", "hits", "particle", "best is mu", "best is pi", "best is p",
             "by kinks alone: mu", "pi", "p")]
    for s in samples:
        for number, particle in enumerate(PARTICLES):
            of = s.both.index % 3 == number
            fractions = [(x[of].idxmax(axis=1) == code).mean()
                         for x in (s.both, s.kinks) for code in PARTICLES.values()]
            rows.append((s.detector, s.kind, particle, *(f"{100 * f:.0f}%" for f in fractions)))
    return table(*rows)


def plot_curves(samples, path):
    figure, axes = plt.subplots(1, 2, figsize=(9, 4.3), layout="constrained")
    lines = {"kinks": ("#777777", "--"), "deposits": ("#0072b2", "-"),
             "Geant4's templates": ("#d55e00", ":")}
    for axis, s in zip(axes, (s for s in samples if s.kind == "cell")):
        for (name, (color, style)), x in zip(lines.items(), (s.kinks, s.charge, s.templates)):
            muons, pions = leads(x, "pi")
            cuts = np.quantile(np.concatenate([muons, pions]), np.linspace(0, 1, 201))
            axis.plot([np.mean(pions > c) for c in cuts], [np.mean(muons > c) for c in cuts],
                      color=color, linestyle=style, label=f"{name}: {area(muons, pions):.2f}")
        axis.set(title=f"{s.detector}, cells", xlabel="fraction of pions kept",
                 ylabel="fraction of muons kept", xlim=(0, 1), ylim=(0, 1), aspect="equal")
        axis.legend(loc="lower right")
    figure.savefig(path, metadata={"Date": None})


def plot_deposits(samples, path):
    figure, axes = plt.subplots(1, 2, figsize=(9, 3.8), layout="constrained")
    for axis, s in zip(axes, (s for s in samples if s.kind == "cell")):
        inner = s.hits[s.hits.inner & (s.hits.path > 0.5 * s.hits.path.median())]
        edges = np.geomspace(1, 100, 25) * STEP[s.detector]
        for number, particle in enumerate(PARTICLES):
            of = inner[inner.track % 3 == number]
            groups = (1e3 * of.q / of.path).groupby(pd.cut(of.left, edges), observed=False)
            x = np.sqrt(edges[1:] * edges[:-1])
            axis.plot(x, groups.median(), label=particle, **STYLES[particle])
            axis.fill_between(x, groups.quantile(0.16), groups.quantile(0.84), alpha=0.15,
                              color=STYLES[particle]["color"])
        axis.set(title=s.detector, xscale="log", xlabel="way to the last hit [cm]",
                 ylabel="deposit per path in the cell [MeV/cm]", ylim=(0, None))
        axis.legend()
    figure.savefig(path, metadata={"Date": None})


def plot_probability(samples, path):
    figure, axes = plt.subplots(1, 2, figsize=(9, 4.3), layout="constrained")
    for axis, s in zip(axes, (s for s in samples if s.kind == "cell")):
        muons, pions = leads(s.both, "pi")
        probability = 1 / (1 + np.exp(-np.concatenate([muons, pions])))
        weight = np.repeat([0.5 / len(muons), 0.5 / len(pions)], [len(muons), len(pions)])
        is_muon = np.arange(len(probability)) < len(muons)
        bins = np.clip((10 * probability).astype(int), 0, 9)
        for b in range(10):
            here = bins == b
            n = here.sum()
            if n < 20:
                continue
            fraction = np.average(is_muon[here], weights=weight[here])
            axis.errorbar(np.average(probability[here], weights=weight[here]), fraction,
                          np.sqrt(fraction * (1 - fraction) / n), fmt="o", color="#0072b2")
        axis.plot([0, 1], [0, 1], color="#777777", linestyle="--")
        axis.set(title=f"{s.detector}, cells", xlabel="probability of the muon",
                 ylabel="fraction of muons", xlim=(0, 1), ylim=(0, 1), aspect="equal")
    figure.savefig(path, metadata={"Date": None})


def write(samples, docs):
    page = docs / "charge.md"
    before, rest = page.read_text(encoding="utf-8").split(BEGIN)
    after = rest.split(END)[1]
    scales = ", ".join(f"{s.scale:.3f} ({s.detector}, {s.kind})" for s in samples)
    parts = [BEGIN, "### Areas under the curves of muons kept against others kept\n",
             area_table(samples), "### What each particle is called\n", called_table(samples),
             f"Scale found from the first 500 tracks, which is 1 in truth: {scales}.\n", END]
    page.write_text(before + "\n".join(parts) + after, encoding="utf-8")
    plot_curves(samples, docs / "img/charge-curves.svg")
    plot_deposits(samples, docs / "img/charge-deposits.svg")
    plot_probability(samples, docs / "img/charge-probability.svg")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("kelvo", type=Path)
    parser.add_argument("folder", type=Path)
    parser.add_argument("docs", type=Path)
    a = parser.parse_args()
    detectors = Path(__file__).parents[2] / "detectors"
    write([Sample(a.kelvo, a.folder, detectors, d, h) for d in MIP for h in HITS], a.docs)


if __name__ == "__main__":
    main()
