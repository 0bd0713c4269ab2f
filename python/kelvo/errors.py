"""What kelvo raises and warns of."""

from __future__ import annotations

import enum
import reprlib


class ErrorCode(enum.IntEnum):
    """The errors of the fit library, named as in C++."""

    kBadKE = 1  #: kinetic energy out of range
    kBadRadLength = 2  #: material without a positive radiation length
    kBadNScat = 3  #: not more measurements than scattering planes
    kIndexProblem = 4  #: index or length out of range
    kNaN = 5  #: not a number where a number is needed
    kBadSigX = 6  #: standard deviation of a measurement not positive
    kBadSigSJ = 7  #: width of a scattering angle not positive
    kBadP = 8  #: momentum or velocity out of range
    kBadBeta = 9
    kNDOFTooSmall = 10
    kTooFewPlanes = 11
    kTrackingFailure = 12  #: the track has no direction where one is asked for


class Error(Exception):
    """What kelvo cannot do, in one sentence that also says what to do about it.

    Errors of the fit library carry its code and the offending value; others have None there.
    """

    def __init__(
        self, sentence: str, code: ErrorCode | None = None, value: float | None = None
    ) -> None:
        super().__init__(sentence, code, value)
        self.sentence = sentence
        self.code = code
        self.value = value

    def __str__(self) -> str:
        return self.sentence


def shown(value: object) -> str:
    """Returns a value for a sentence: in one line, and not longer than is read."""
    return " ".join(reprlib.repr(value).split())


class FitWarning(UserWarning):
    """Some of the hits could not be used; the fits of the others are there."""
