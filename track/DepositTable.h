#pragma once

#include "matter/RangeTable.h"

#include <cstddef>
#include <vector>

namespace kelvo {

/// How likely a measured deposit is, of one kind of particle in one material, by its energy and its
/// path. Calculated once, interpolated from then on.
///
/// The energy lost on a path follows Vavilov's distribution (P. V. Vavilov, Sov. Phys. JETP 5
/// (1957) 749; A. Rotondi, P. Montagna, Nucl. Instr. Meth. B 47 (1990) 215), with kappa below 0.01
/// Landau's, above 12 a Gaussian one. Its mean is the difference of the energies that belong to the
/// ranges at both ends. It is measured with a Gaussian error whose variance is in proportion to the
/// energy, as where quanta are counted.
class DepositTable {
public:
  /// @param range     of the particle in the material
  /// @param mass      of the particle [GeV]
  /// @param xi        Landau's xi per length for beta = 1 [GeV/cm]
  /// @param thickness a usual path [cm]; the table goes from a tenth of it to six of it
  /// @param noise     variance of the measurement per energy [GeV]
  DepositTable(const matter::RangeTable& range, double mass, double xi, double thickness,
               double noise);

  /// Returns the logarithm of the probability density of a deposit [1/GeV]. Outside of the table it
  /// is that at its edge, so that a deposit far off counts against all particles by much the same.
  /// @param T    kinetic energy in the middle of the path [GeV]
  /// @param path [cm]
  /// @param q    measured deposit [GeV]
  double LogDensity(double T, double path, double q) const;

private:
  /// The distribution for one energy and path; its logarithms follow those of the node before.
  struct Node {
    double fCentre, fWidth; // in units of the path [GeV/cm]
  };

  void Tabulate(double mean, double xi, double maxTransfer, double beta2, double path,
                double noise);

  double fLowT, fLowPath;
  std::vector<Node> fNodes;       // by path, then by energy
  std::vector<float> fLogDensity; // kBins of each node, at equal steps of (q - centre) / width
};

} // namespace kelvo
