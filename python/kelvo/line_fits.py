"""Fits of one detector view with a straight line that bends at scattering planes."""

from __future__ import annotations

import enum
import os
from typing import Any, NamedTuple, overload

import numpy as np

from ._arrays import (
    EachFloat, FloatOrFloats, Floats, all_or_one, count, each, floats, index, number, output
)  # fmt: skip
from ._root import NotCopied, call, cpp
from .errors import Error, ErrorCode

_SAYS = {
    ErrorCode.kNaN: "a position, coordinate or uncertainty is not a number (NaN)",
    ErrorCode.kIndexProblem: "an index or a weight factor is out of range",
}


class LineFit(NamedTuple):
    """What a fit gives."""

    x0: float  #: intercept at z = 0 of the segment before all planes [cm]
    dxdz: float  #: slope of that segment
    alpha: Floats  #: kink angle at each scattering plane [rad]
    chi2: float  #: chi-square of measurements and kinks


class KinkStatus(enum.IntEnum):
    """How the last fit of a KinkSmoother ended."""

    kNotFitted = 0
    kSucceeded = 1
    kNoMeasurement = 2
    kOnePosition = 3
    kFreeKink = 4
    kNotFinite = 5


class KinkPoint(NamedTuple):
    """The fitted line at one or more positions; arrays where several were asked for."""

    x: FloatOrFloats  #: position [cm]
    slope: FloatOrFloats  #: dx/dz
    var_x: FloatOrFloats  #: variance of the position [cm^2]
    cov_x_slope: FloatOrFloats  #: covariance of both [cm]
    var_slope: FloatOrFloats  #: variance of the slope


class KinkResidual(NamedTuple):
    """All measurements beside the fit. "Unbiased": compared with the fit of all the others."""

    biased: Floats  #: measured minus fitted [cm]
    var_biased: Floats  #: its variance [cm^2]
    unbiased: Floats  #: measured minus the fit without this measurement [cm]
    var_unbiased: Floats  #: its variance [cm^2]; infinity if the others alone fix no track
    pull: Floats  #: residual over its standard deviation
    leverage: Floats  #: derivative of the fitted by the measured value, 0 to 1
    chi2: Floats  #: contribution to chi-square


# What a fit keeps of a measurement or plane, rounded up.
_BYTES_EACH = 256


def _check_memory(needed: int, instead: str = "") -> None:
    there = os.sysconf("SC_PHYS_PAGES") * os.sysconf("SC_PAGE_SIZE")
    if needed > there:
        raise Error(
            f"so many measurements and scattering planes need {needed / 1e9:.0f} GB, and this "
            f"machine has {there / 1e9:.0f}{instead}"
        )


class _LineFitClass(NotCopied):
    """What Lutz and KinkSmoother have in common. Lengths in cm, angles in rad."""

    def __init__(self, nmeas: int, nscat: int) -> None:
        """Makes an empty problem of nmeas measurements and nscat scattering planes."""
        self._check_sizes(nmeas, nscat)
        name = type(self).__name__
        self._fit: Any = call(getattr(cpp(), name), nmeas, nscat)
        self._calls: Any = cpp().LineFitCalls[f"kelvo::{name}"]

    @staticmethod
    def _check_sizes(nmeas: int, nscat: int) -> None:
        _check_memory(_BYTES_EACH * (count("nmeas", nmeas) + count("nscat", nscat)))

    def SetMeasurement(self, i: int, z: float, x: float, sigx: float) -> None:
        """Loads measurement i: position z, coordinate x and its standard deviation sigx [cm]."""
        values = number("z", z), number("x", x), number("sigx", sigx)
        call(self._fit.SetMeasurement, index("i", i, self.NMeas()), *values, says=_SAYS)

    def SetMeasurements(self, z: Floats, x: Floats, sigx: Floats) -> None:
        """Loads all measurements from arrays of nmeas numbers [cm]."""
        n = self.NMeas()
        arrays = floats("z", z, n), floats("x", x, n), floats("sigx", sigx, n)
        call(self._calls.SetMeasurements, self._fit, *arrays, says=_SAYS)

    def SetScatteringPlane(self, j: int, z: float, sigalpha: float) -> None:
        """Loads plane j: position [cm] and expected width of the scattering angle [rad]."""
        values = number("z", z), number("sigalpha", sigalpha)
        call(self._fit.SetScatteringPlane, index("j", j, self.NScat()), *values, says=_SAYS)

    def SetScatteringPlanes(self, z: Floats, sigalpha: Floats) -> None:
        """Loads all planes from arrays of nscat numbers: positions [cm], widths [rad]."""
        m = self.NScat()
        arrays = floats("z", z, m), floats("sigalpha", sigalpha, m)
        call(self._calls.SetScatteringPlanes, self._fit, *arrays, says=_SAYS)

    def Fit(self) -> LineFit:
        """Solves the loaded problem; Succeeded() tells whether it had a solution."""
        x0, dxdz, chi2 = np.zeros(1), np.zeros(1), np.zeros(1)
        alpha, written = output(self.NScat())
        call(self._fit.Fit, x0, dxdz, written, chi2)
        return LineFit(float(x0[0]), float(dxdz[0]), alpha, float(chi2[0]))

    def X(self, z: EachFloat) -> EachFloat:
        """Returns the fitted line at one position or an array of them [cm]."""
        return each("z", z, lambda *a: call(self._calls.X, self._fit, *a))

    @overload
    def Chi2XIi(self, i: int) -> float: ...

    @overload
    def Chi2XIi(self, i: None = None) -> Floats: ...

    def Chi2XIi(self, i: int | None = None) -> FloatOrFloats:
        """Returns the chi-square of measurement i; without i those of all, as an array."""
        n, fit = self.NMeas(), self._fit
        return all_or_one("i", i, n, lambda out: self._calls.Chi2XIi(fit, out), fit.Chi2XIi)

    @overload
    def Chi2BetaJ(self, j: int) -> float: ...

    @overload
    def Chi2BetaJ(self, j: None = None) -> Floats: ...

    def Chi2BetaJ(self, j: int | None = None) -> FloatOrFloats:
        """Returns the chi-square of the kink at plane j; without j those of all, as an array."""
        m, fit = self.NScat(), self._fit
        return all_or_one("j", j, m, lambda out: self._calls.Chi2BetaJ(fit, out), fit.Chi2BetaJ)

    def Chi2XI(self) -> float:
        """Returns the chi-square of all measurements."""
        return float(self._fit.Chi2XI())

    def Chi2Beta(self) -> float:
        """Returns the chi-square of all kinks."""
        return float(self._fit.Chi2Beta())

    def NullResult(self) -> None:
        """Sets every fitted quantity to 0; inputs stay."""
        self._fit.NullResult()

    def Succeeded(self) -> bool:
        """Returns whether the last Fit solved its problem; False before the first."""
        return bool(self._fit.Succeeded())

    def NMeas(self) -> int:
        """Returns the number of measurements."""
        return int(self._fit.NMeas())

    def NScat(self) -> int:
        """Returns the number of scattering planes."""
        return int(self._fit.NScat())

    def NDOF(self) -> int:
        """Returns the number of degrees of freedom of the loaded problem."""
        return int(self._fit.NDOF())

    def Covariance(self) -> Floats:
        """Returns the covariance matrix, (m + 2) x (m + 2), in the order x0 [cm], slope, kinks
        [rad]; NaN without a successful last fit."""
        matrix = call(self._fit.Covariance)
        n = matrix.GetNrows()
        view = np.frombuffer(matrix.GetMatrixArray(), np.float64, count=n * n)
        return np.array(view.reshape(n, n))


class Lutz(_LineFitClass):
    """Least-squares fit of one view with a kink at each scattering plane (G. Lutz, Nucl. Instr.
    Meth. A 273 (1988) 349), by one dense matrix: time grows as n m^2 + m^3.

        fit = kelvo.Lutz(nmeas=4, nscat=1)
        fit.SetMeasurements(z, x, sigx)
        fit.SetScatteringPlanes(np.array([15.0]), np.array([0.01]))
        result = fit.Fit()
    """

    @staticmethod
    def _check_sizes(nmeas: int, nscat: int) -> None:
        if count("nmeas", nmeas) > count("nscat", nscat):
            matrix = (nscat + 2) ** 2 * np.dtype(np.float64).itemsize
            instead = "; KinkSmoother solves the same problem without a matrix"
            return _check_memory(matrix + _BYTES_EACH * (nmeas + nscat), instead)
        raise Error(
            f"there are {nmeas} measurements and {nscat} scattering planes; this fit needs more "
            "measurements than planes",
            ErrorCode.kBadNScat,
            0.0,
        )

    def VarX(self, z: EachFloat) -> EachFloat:
        """Returns the variance of X(z) [cm^2] at one position or an array of them [cm]."""
        return each("z", z, lambda *a: call(cpp().ArrayCalls.VarX, self._fit, *a))


class KinkSmoother(_LineFitClass):
    """The fit of Lutz in time and memory linear in n + m, with uncertainties everywhere."""

    def Reset(self, nmeas: int, nscat: int) -> None:
        """Makes the object as new, for a problem of this size."""
        self._check_sizes(nmeas, nscat)
        call(self._fit.Reset, nmeas, nscat)

    def SetWeightFactor(self, i: int, factor: float) -> None:
        """Multiplies the loaded weight of measurement i for the next Fit; from 0 to 1."""
        i = index("i", i, self.NMeas())
        if not 0 <= number("factor", factor) <= 1:
            raise Error(
                f"factor is {factor}; it must be from 0 to 1", ErrorCode.kIndexProblem, 0.0
            )
        call(self._fit.SetWeightFactor, i, float(factor))

    def WeightFactor(self, i: int) -> float:
        """Returns the factor that measurement i has now."""
        return float(self._fit.WeightFactor(index("i", i, self.NMeas())))

    def Status(self) -> KinkStatus:
        """Returns how the last Fit ended."""
        return KinkStatus(int(self._fit.Status()))

    def Slope(self, z: EachFloat) -> EachFloat:
        """Returns the fitted slope at one position or an array of them [cm]."""
        return each("z", z, lambda *a: call(cpp().ArrayCalls.Slope, self._fit, *a))

    def At(self, z: FloatOrFloats) -> KinkPoint:
        """Returns position, slope and their covariance at one z or an array of them [cm]."""
        given = np.array([number("z", z)]) if np.isscalar(z) else z
        checked = floats("z", given, None)
        out, written = output(len(given), len(KinkPoint._fields))  # type: ignore[arg-type]
        call(cpp().ArrayCalls.At, self._fit, len(out), checked, written)
        return KinkPoint(*(out[0].tolist() if np.isscalar(z) else out.T.copy()))

    def AtStart(self) -> KinkPoint:
        """Returns the segment before all planes and its covariance, at z = 0."""
        p = self._fit.AtStart()
        return KinkPoint(p.fX, p.fSlope, p.fVarX, p.fCovXSlope, p.fVarSlope)

    @overload
    def XFit(self, i: int) -> float: ...

    @overload
    def XFit(self, i: None = None) -> Floats: ...

    def XFit(self, i: int | None = None) -> FloatOrFloats:
        """Returns the fitted coordinate at measurement i [cm]; without i those of all."""
        n, fit = self.NMeas(), self._fit
        return all_or_one("i", i, n, lambda out: cpp().ArrayCalls.XFit(fit, out), fit.XFit)

    @overload
    def Kink(self, j: int) -> float: ...

    @overload
    def Kink(self, j: None = None) -> Floats: ...

    def Kink(self, j: int | None = None) -> FloatOrFloats:
        """Returns the kink at plane j [rad]; without j those of all."""
        m, fit = self.NScat(), self._fit
        return all_or_one("j", j, m, lambda out: cpp().ArrayCalls.Kink(fit, out), fit.Kink)

    @overload
    def VarKink(self, j: int) -> float: ...

    @overload
    def VarKink(self, j: None = None) -> Floats: ...

    def VarKink(self, j: int | None = None) -> FloatOrFloats:
        """Returns the variance of the kink at plane j [rad^2]; without j those of all."""
        m, fit = self.NScat(), self._fit
        return all_or_one("j", j, m, lambda out: cpp().ArrayCalls.VarKink(fit, out), fit.VarKink)

    def Residual(self) -> KinkResidual:
        """Returns residuals, leverages and chi-square contributions of all measurements."""
        out, written = output(self.NMeas(), len(KinkResidual._fields))
        call(cpp().ArrayCalls.Residual, self._fit, written)
        return KinkResidual(*out.T.copy())

    def LogLikelihood(self) -> float:
        """Returns the logarithm of the likelihood of the measurements, kinks integrated out; NaN
        without a successful last fit."""
        return float(self._fit.LogLikelihood())
