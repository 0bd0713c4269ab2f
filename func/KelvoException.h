#pragma once

#include <exception>

namespace kelvo {

/// Error codes of the library. The set is closed.
constexpr unsigned int kBadKE = 1;            ///< kinetic energy out of range
constexpr unsigned int kBadRadLength = 2;     ///< material without a positive radiation length
constexpr unsigned int kBadNScat = 3;         ///< not more measurements than scattering planes
constexpr unsigned int kIndexProblem = 4;     ///< index or length out of range
constexpr unsigned int kNaN = 5;              ///< not a number where a number is needed
constexpr unsigned int kBadSigX = 6;          ///< standard deviation of a measurement not positive
constexpr unsigned int kBadSigSJ = 7;         ///< width of a scattering angle not positive
constexpr unsigned int kBadP = 8;             ///< momentum or velocity out of range
constexpr unsigned int kBadBeta = 9;          ///< printable; not thrown by the library
constexpr unsigned int kNDOFTooSmall = 10;    ///< printable; not thrown by the library
constexpr unsigned int kTooFewPlanes = 11;    ///< printable; not thrown by the library
constexpr unsigned int kTrackingFailure = 12; ///< the track has no direction where one is asked for

/// The one exception of the library: where it was thrown, what went wrong, and the offending value.
///
/// Thrown by value, caught by reference. The library never catches or prints it itself: act on
/// fCode and fValue, or call Print(). what() keeps the standard library's generic text.
class KelvoException : public std::exception {
public:
  /// Stores the four arguments as they are.
  /// @param file  source file of the throw statement; not copied, must have static lifetime
  /// @param line  source line of the throw statement
  /// @param code  one of the constants above; any other value prints as "UNKNOWN"
  /// @param value the value that failed the check, 0 where there is none
  KelvoException(const char* file, unsigned int line, unsigned int code, double value);
  ~KelvoException() override;

  /// Writes one line with message, value and place to the standard output, after a newline.
  /// A null fFile leaves std::cout in its bad state, as any null string does.
  void Print();

  const char* fFile;  ///< source file of the throw statement; not owned
  unsigned int fLine; ///< source line of the throw statement
  unsigned int fCode; ///< what went wrong
  double fValue;      ///< the offending value, 0 where there is none
};

} // namespace kelvo
