"""What the command writes, of fits in memory or in files: reports, pictures, simulated tracks."""

from __future__ import annotations

import contextlib
import json
import os
import pathlib
import tempfile
from typing import Any, Iterator, Literal, NamedTuple, Union

import numpy as np

from ._arrays import count, file_name, text
from ._columns import arrays_of, arrays_of_rows, needed
from ._command import run, words_of
from ._particles import pdg_code, pdg_codes
from ._pictures import Picture
from ._root import call, cpp, root
from .detector import PlaneDetector
from .errors import Error

FileName = Union[str, "os.PathLike[str]"]
Range = Union[float, tuple[float, float]]


# What tells a table of awkward, one of pandas and a single track.
_TABLES = ("fields", "columns", "hypotheses")


class SimulatedTracks(NamedTuple):
    """Simulated tracks as two pandas frames; lengths in cm, energies in GeV."""

    hits: Any  #: one hit a row: track, view, u, z, sigu
    truth: Any  #: one track a row: pdg, place and momentum at the first hit, end, ...


def write_fits(fits: Any, file: FileName) -> None:
    """Writes fits into a ROOT file, as "kelvo fit" does: for "kelvo report", uproot, RDataFrame.

    fits: a table that fit_tracks has made, or rows of one with all columns; or a TrackFit, whose
        track has the number 0
    """
    _check_table(fits)
    written = file_name("file", file)
    about = _texts(fits.attrs)
    types = _columns_of_a_file(bool(fits.attrs["options"].get("at")))
    hypotheses = getattr(fits, "hypotheses", None)
    columns = arrays_of_rows(hypotheses, types) if hypotheses else arrays_of(fits, types)
    made = cpp().FitArrays(len(hypotheses or fits))
    for name, (values, offsets) in columns.items():
        # An empty array has no address for C++.
        data = values.view(np.uint8) if values.size else np.zeros(8, np.uint8)
        made.SetColumn(name, data, offsets if offsets is not None else root().nullptr)
    texts = root().std.map["std::string", "std::string"]()
    pair = root().std.pair["std::string", "std::string"]
    for name, kept in about.items():
        texts.insert(pair(name, kept.encode()))
    call(made.Write, written, texts)


def _columns_of_a_file(with_places: bool) -> dict[str, tuple[str, bool]]:
    """Returns the type of each column by name, and whether it has vectors or texts.

    with_places: whether the track was asked for at other places than the hits
    """
    columns = cpp().FitColumns(True, with_places)
    listed = [columns.Column(i) for i in range(columns.Size())]
    return {str(c.fName): (str(c.fType), not c.fOffsets.empty()) for c in listed}


def _texts(attrs: dict[str, Any]) -> dict[str, str]:
    if "detector" not in attrs:
        raise Error(
            "fits does not tell its detector; kelvo.fit_tracks keeps it in fits.attrs, which some "
            "functions of pandas drop"
        )
    options = "".join(f"{name} = {json.dumps(value)}\n" for name, value in attrs["options"].items())
    return {"detector": attrs["detector"], "version": attrs["version"], "options": options}


def report(fits: Any, output: FileName, *, truth: Any = None, worst: int = 10) -> None:
    """Writes a page (HTML) on fits: what is suspicious; plots and tables of residuals, pulls,
    momenta, hypotheses; the worst tracks.

    fits: the name of a file of fits, or a table that fit_tracks has made
    truth: the true tracks of simulated hits, to compare with: the frame that kelvo.simulate returns,
        or the name of a file of "kelvo simulate"
    worst: how many of the worst tracks are listed and displayed
    """
    words: list[str | bytes] = ["--worst", str(count("worst", worst, 0, 1000))]
    with _file_of(fits) as (file, folder), tempfile.TemporaryDirectory() as other:
        if truth is not None:
            words += ["--truth", _file_of_truth(truth, other)]
        written = os.path.abspath(os.fsdecode(file_name("output", output)))
        run("report", file, *words, "-o", written, cwd=folder)


def _file_of_truth(truth: Any, folder: str) -> str:
    if not hasattr(truth, "to_csv"):
        return os.path.abspath(os.fsdecode(file_name("truth", truth)))
    file = os.path.join(folder, "truth.csv")
    truth.to_csv(file, index=False)
    return file


def display(
    fits: Any,
    track: int = 0,
    *,
    hypothesis: Literal["mu", "pi", "p"] | None = None,
    output: FileName | None = None,
) -> Picture:
    """Draws a fitted track; a notebook shows what is returned.

    fits: the name of a file of fits, a table that fit_tracks has made, or a TrackFit
    hypothesis: the one to draw; None: the one that fits best
    output: file to be written besides: .svg, .png or .pdf
    """
    number = count("track", track, -(2**63), 2**63 - 1)
    if not isinstance(fits, (str, os.PathLike)) and not hasattr(fits, "hypotheses"):
        fits = _rows_of(fits, number)
    drawn_as = None if hypothesis is None else _particle(hypothesis)
    words: list[str | bytes] = ["--track", str(number), *words_of({"hypothesis": drawn_as})]
    with _file_of(fits) as (file, folder), tempfile.TemporaryDirectory() as drawn:
        picture = os.path.join(drawn, "track.svg")
        run("display", file, *words, "-o", picture, cwd=folder)
        if output is not None:
            written = os.path.abspath(os.fsdecode(file_name("output", output)))
            run("display", file, *words, "-o", written, cwd=folder)
        return Picture(pathlib.Path(picture).read_text(encoding="utf-8"))


def _rows_of(fits: Any, track: int) -> Any:
    _check_table(fits)
    rows = fits[np.asarray(fits["track"]) == track]
    if not len(rows):
        raise Error(f"fits has no track {track}")
    return rows


def _check_table(fits: Any) -> None:
    if not hasattr(fits, "attrs") or not any(hasattr(fits, name) for name in _TABLES):
        raise Error(
            f"fits is a {type(fits).__name__}; it must be the name of a file of fits, or a table "
            "that kelvo.fit_tracks has made"
        )


@contextlib.contextmanager
def _file_of(fits: Any) -> Iterator[tuple[str, str | None]]:
    """Gives a file of fits, and the folder where its name is right."""
    if isinstance(fits, (str, os.PathLike)):
        yield os.path.abspath(os.fsdecode(file_name("fits", fits))), None
        return
    with tempfile.TemporaryDirectory() as folder:
        write_fits(fits, os.path.join(folder, "fits.root"))
        yield "fits.root", folder


def simulate(
    detector: FileName | PlaneDetector,
    *,
    tracks: int,
    seed: int,
    particle: Literal["mu", "pi", "p"] = "mu",
    kinetic_energy: Range | None = None,
    beam_momentum: float | None = None,
    sig_beam_momentum: float | None = None,
    model: Literal["full", "fit"] | None = None,
    hits: Literal["cells", "gauss"] | None = None,
    sigma: float | None = None,
    efficiency: float | None = None,
    step: float | None = None,
    scattering_factor: float | None = None,
    fluctuate_loss: bool = False,
    leaving: bool = False,
    start_x: Range | None = None,
    start_y: Range | None = None,
    start_z: Range | None = None,
    spot: float | None = None,
    slope: float | None = None,
    threads: int | None = None,
) -> SimulatedTracks:
    """Simulates tracks whose truth is known, as "kelvo simulate" does.

        hits, truth = kelvo.simulate("fine", tracks=1000, seed=1, kinetic_energy=(0.3, 1.6))
        fits = kelvo.fit_tracks(hits, "fine")

    Give either kinetic_energy, of particles that stop [GeV], or beam_momentum, of a beam [GeV/c]. The
    options are those of the command, whose defaults None stands for; intervals are (MIN, MAX).
    """
    options = {**locals()}
    pandas = needed("pandas", "kelvo.simulate")
    del options["detector"]
    options["particle"] = _particle(particle)
    with tempfile.TemporaryDirectory() as folder:
        file = os.path.join(folder, "hits.csv")
        with _file_of_detector(detector, folder) as described:
            run("simulate", "--detector", described, *words_of(options), "-o", file)
        truth = os.path.join(folder, "hits.truth.csv")
        return SimulatedTracks(pandas.read_csv(file), pandas.read_csv(truth))


def _particle(particle: Any) -> str:
    code = abs(pdg_code("particle", particle))
    return next(name for name, pdg in pdg_codes().items() if pdg == code)


@contextlib.contextmanager
def _file_of_detector(detector: Any, folder: str) -> Iterator[bytes]:
    if not isinstance(detector, PlaneDetector):
        yield file_name("detector", detector)
        return
    file = pathlib.Path(folder, "detector.toml")
    file.write_text(detector.Text(), encoding="utf-8")
    yield os.fsencode(file)


def dedx(material: str, particle: Literal["mu", "pi", "p"] = "mu") -> Any:
    """Returns mean energy loss and range of a particle in a material, against its energy, as a
    pandas frame: T [GeV], p [GeV/c], beta_gamma, dedx [MeV/cm], range [cm], and min, which is true
    at the point of minimum loss.

    material: a name that kelvo.materials() has
    """
    pandas = needed("pandas", "kelvo.dedx")
    name = text("material", material)
    with tempfile.TemporaryDirectory() as folder:
        file = os.path.join(folder, "loss.csv")
        run("dedx", *words_of({"particle": _particle(particle)}), "-o", file, "--", name)
        losses = pandas.read_csv(file).drop(columns=["material", "particle"])
        return losses.assign(min=losses["min"] == 1)


def materials() -> Any:
    """Returns all materials as a pandas frame by name: everyday names, density [g/cm3], radiation
    length [g/cm2] and [cm], and mean excitation energy [eV]."""
    pandas = needed("pandas", "kelvo.materials")
    names = [str(name) for name in cpp().ArrayCalls.MaterialNames()]
    numbers = np.zeros((len(names), 3))
    for name, row in zip(names, numbers):
        call(cpp().ArrayCalls.MaterialNumbers, name, row)
    index = pandas.Index(names, name="material")
    frame = pandas.DataFrame(numbers, index, ["density", "radlen", "excitation"])
    frame.insert(2, "radlen_cm", frame.radlen / frame.density)
    frame.insert(0, "also", [str(cpp().ArrayCalls.OtherNames(name)) for name in names])
    return frame
