"""Fits a file of hits from Python and draws what came out: in the top folder, after a build,

    PYTHONPATH=build/release/python .venv/bin/python examples/06-python.py

(or, after pip install ., python examples/06-python.py). Writes python-fits.png and prints a summary.
"""

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np
import pandas as pd

import kelvo

DATA = "examples/data"

## [fit]
detector = kelvo.PlaneDetector.FromFile("detectors/fine.toml")
hits = pd.read_csv(f"{DATA}/fine_mu_hits_smeared.csv.gz")  # one hit a row
fits = kelvo.fit_tracks(hits, detector)  # one track and hypothesis a row
muons = fits[(fits.pdg == 13) & (fits.status == 0) & ~fits.leaves]  # with a momentum from range
## [fit]

## [truth]
truth = pd.read_csv(f"{DATA}/fine_mu_truth.csv.gz").set_index("track").loc[muons.track]
true_momentum = np.sqrt(truth.px**2 + truth.py**2 + truth.pz**2).to_numpy()
ratio = muons.p.to_numpy() / true_momentum
## [truth]

summary = kelvo.summary(fits)
print(f"{summary.fitted} of {summary.tracks} tracks are fitted, with {summary.hits} hits")
print(f"momentum, fitted over true: median {np.median(ratio):.4f}, half of 16..84 %: "
      f"{np.diff(np.percentile(ratio, [16, 84]))[0] / 2:.4f}")

## [one track]
track = hits[hits.track == 141]
is_y = (track["view"] == "Y").to_numpy().astype(np.int64)
one = kelvo.HitList3D(is_y, track.u.to_numpy(), track.z.to_numpy(), track.sigu.to_numpy())
best = kelvo.TrackFitter(detector).Fit(one).best
print(f"track 141 is most like {best.pdg}, with {best.p:.3f} GeV/c")
## [one track]

figure, axes = plt.subplots(2, 2, figsize=(11, 7.5), layout="constrained")
axis = axes[0, 0]
for view, name in enumerate("xy"):
    mine = best.hit_view == view
    axis.plot(best.hit_z[mine], best.hit_u[mine], "ok", ms=3, label="hits" if view else None)
    axis.plot(best.hit_z[mine], best.fit_u[mine], color=f"C{view}", label=f"fit of {name}")
axis.set(xlabel="z [cm]", ylabel="x, y [cm]", title="Track 141, fitted in both views")
axis.legend()

axis = axes[0, 1]
axis.hist(ratio, bins=np.linspace(0.9, 1.1, 81), histtype="step")
axis.axvline(1, color="0.7", zorder=0)
axis.set(xlabel="fitted / true momentum", ylabel="tracks", title="Momentum from range, as muon")

axis = axes[1, 0]
pulls = muons.pull.list.flatten().to_numpy()
x = np.linspace(-5, 5, 101)
axis.hist(pulls, bins=x, density=True, histtype="step", label="pulls of the hits")
axis.plot(x, np.exp(-x * x / 2) / np.sqrt(2 * np.pi), label="unit Gaussian")
axis.set(xlabel="pull", ylabel="density", title="Residuals over their standard deviations")
axis.legend()

axis = axes[1, 1]
best_fits = fits[fits.best]
for pdg, name in ((13, "muon"), (211, "pion"), (2212, "proton")):
    chosen = best_fits[best_fits.pdg == pdg]
    axis.hist(chosen.p, bins=np.linspace(0, 3, 61), histtype="step", label=f"{name}: {len(chosen)}")
axis.set(xlabel="p [GeV/c]", ylabel="tracks", title="Most likely hypothesis of these muons")
axis.legend()
figure.savefig("python-fits.png", dpi=110)
