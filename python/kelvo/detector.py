"""Detectors made of planes, slabs and sheets, described in a TOML file."""

from __future__ import annotations

import os
from typing import Any, NamedTuple, Union

import numpy as np

from ._arrays import Floats, file_name, floats, number, text
from ._html import paragraph
from ._pictures import draw_detector, drawn_or_nothing
from ._root import call, cpp, root
from .errors import Error


class ActivePlane(NamedTuple):
    """A plane that measures x, y or both."""

    name: str  #: of the part in the file
    view: str  #: "X", "Y" or "XY"
    z_low: float  #: upstream face [cm]
    z_high: float  #: downstream face [cm]
    offset: tuple[float, float, float]  #: what to add to the coordinates of a hit [cm]


class MaterialThickness(NamedTuple):
    """How much of one material there is on a way."""

    material: str
    length: float  #: [cm]
    radlen: float  #: in radiation lengths


class PlaneDetector:
    """A detector read from a TOML file; docs/detector-file.md explains the format.

        detector = kelvo.PlaneDetector.FromFile("detectors/fine.toml")

    Objects can be pickled and copied.
    """

    def __init__(self, toml: str, file: str = "detector") -> None:
        """Reads the text of a file; its name begins the messages."""
        make = root().geo.Detector.FromText
        self._set(call(make, text("toml", toml), text("file", file)), file)

    def _set(self, detector: Any, file: object) -> None:
        self._detector: Any = detector
        self._cpp: Any = detector.Planes()
        if not self._cpp:
            raise Error(f"{file} is not made of planes; give its name in place of the detector")

    @classmethod
    def FromFile(cls, file: str | os.PathLike[str]) -> PlaneDetector:
        """Reads a file; an Error says file, line, column and field of what is wrong."""
        self = cls.__new__(cls)
        self._set(call(root().geo.Detector.FromFile, file_name("file", file)), file)
        return self

    @classmethod
    def FromText(cls, toml: str, file: str = "detector") -> PlaneDetector:
        """Reads the text of a file; its name begins the messages."""
        return cls(toml, file)

    def __reduce__(self) -> tuple[type[PlaneDetector], tuple[str]]:
        return type(self), (self.Text(),)

    def _repr_html_(self) -> str:
        planes = f"{len(self.Planes())} planes; {', '.join(self.MaterialNames())}"
        picture = drawn_or_nothing(lambda: draw_detector(self.Text()))
        return paragraph(f"{self.Name()}: {planes}") + picture

    def Name(self) -> str:
        """Returns the name given in the file."""
        return str(self._cpp.Name())

    def Text(self) -> str:
        """Returns the text of the file."""
        return str(self._cpp.Text())

    def Planes(self) -> list[ActivePlane]:
        """Returns the active planes by increasing z."""
        return [
            ActivePlane(str(p.fName), str(p.View()), p.fZLow, p.fZHigh, (o[0], o[1], o[2]))
            for p in self._cpp.Planes()
            for o in [p.fOffset]
        ]

    def NearestPlane(self, z: float) -> int:
        """Returns the index of the plane whose middle is nearest to z [cm]."""
        return int(self._cpp.NearestPlane(number("z", z)))

    def MaterialNames(self) -> list[str]:
        """Returns the names of the materials in use, the world's first."""
        return [str(name) for name in self._cpp.MaterialNames()]

    def MaterialsBetweenPoints(self, p0: Floats, p1: Floats) -> tuple[Floats, list[str]]:
        """Returns the steps on the straight way between two points of three coordinates [cm]:
        their lengths [cm], and the name of the material of each."""
        ds = root().std.vector["double"]()
        materials = root().std.vector["const TGeoMaterial*"]()
        points = floats("p0", p0, 3), floats("p1", p1, 3)
        call(self._cpp.MaterialsBetweenPoints, *points, ds, materials)
        return np.array(ds, np.float64), [str(m.GetName()) for m in materials]

    def ThicknessBetweenPoints(self, p0: Floats, p1: Floats) -> list[MaterialThickness]:
        """Returns how much of each material there is between two points [cm]."""
        points = floats("p0", p0, 3), floats("p1", p1, 3)
        found = call(root().geo.ThicknessBetweenPoints, self._cpp, *points)
        return [
            MaterialThickness(str(m.fMaterial.GetName()), m.fLength, m.fRadLengths) for m in found
        ]


#: A detector: a file, a PlaneDetector, or a geo::GeometryBase of C++ as ROOT gives it.
DetectorLike = Union[str, "os.PathLike[str]", PlaneDetector, Any]


_kept: list[Any] = []


def cpp_detector(detector: DetectorLike) -> Any:
    """Returns the geo::Detector of C++."""
    if isinstance(detector, (str, os.PathLike)):
        return call(root().geo.Detector.FromFile, file_name("detector", detector))
    if isinstance(detector, PlaneDetector):
        return detector._detector
    if isinstance(detector, root().geo.Detector):
        return detector
    if not isinstance(detector, root().geo.GeometryBase):
        raise Error(
            f"detector is a {type(detector).__name__}; kelvo takes the name of a detector's file, "
            "a kelvo.PlaneDetector, or a geo::GeometryBase of C++"
        )
    # It only refers to the geometry.
    _kept.append(detector)
    if isinstance(detector, root().geo.PlaneDetector):
        return root().geo.Detector(detector)
    return root().geo.Detector(detector, type(detector).__name__)
