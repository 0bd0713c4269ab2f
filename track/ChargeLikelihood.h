#pragma once

#include "geo/PlaneDetector.h"
#include "track/DepositTable.h"

#include <array>
#include <cstddef>
#include <limits>
#include <vector>

namespace kelvo {

/// A hit whose plane measured the energy deposited in the hit's cell, and how the track runs there.
struct ChargedHit {
  std::size_t fPoint; ///< index among the points of the track
  std::size_t fView;  ///< 0: x, 1: y
  double fZ;          ///< of the plane [cm]
  double fU;          ///< where the track goes through it, by a few hits of the view [cm]
  double fSigU;       ///< uncertainty of one of them [cm]
  double fSlope[2];   ///< dx/dz, dy/dz
  double fQ;          ///< deposit [GeV]
};

/// The likelihood of the deposits of a track under each hypothesis, from the energy that the
/// particle has at each hit and its path in what is active of the hit's cell (DepositTable).
///
/// The active part of a cell is what the detector has in its middle. The cell that a hit is in is
/// the one which the track is in at the plane's mid z, and the path in it that between its walls;
/// near a wall, where it is not known to which side the track goes on, the likelihood is averaged
/// over the places that the hits allow. The first and the last hit are left out: in these planes
/// the particle may have come to be, or to rest.
class ChargeLikelihood {
public:
  /// The hits of a track that count, with their paths: the same for all hypotheses.
  struct Path {
    static constexpr std::size_t kPlaces = 5; // across the track, over its uncertainty

    std::size_t fPoint;
    std::size_t fCell;                   // kind
    double fQ;                           // [GeV]
    std::size_t fN;                      // number of paths: 1 where all are equal
    std::array<double, kPlaces> fLength; // [cm]
  };

  /// Takes 0.15 s for three hypotheses; an object is constant once built.
  /// @param hypotheses PDG codes
  /// @param resolution standard deviation of a measured deposit, as a fraction of the deposit,
  ///                   where a minimum-ionising particle crosses a plane at right angles; its
  ///                   square falls as the inverse of the deposit
  /// @throw std::invalid_argument for a detector whose active material is not known
  ChargeLikelihood(const geo::PlaneDetector& detector, const std::vector<int>& hypotheses,
                   double resolution);

  /// Finds the paths of a track.
  /// @param hits   by increasing z
  /// @param points number of points of the track, with and without deposits
  /// @param out    is overwritten; empty where no hit counts
  void FindPaths(const std::vector<ChargedHit>& hits, std::size_t points,
                 std::vector<Path>& out) const;

  /// Returns the log-likelihood of the deposits.
  /// @param h index of the hypothesis
  /// @param T its kinetic energy at each point of the track [GeV]
  double LogLikelihood(std::size_t h, const std::vector<Path>& paths, const double* T) const;

  /// Returns the mean deposit of a minimum-ionising particle that crosses the first plane at right
  /// angles [GeV].
  double MipDeposit() const { return fKinds.front().fMip; }

private:
  /// Active layers of equal material and thickness.
  struct Kind {
    std::size_t fMaterial;
    double fThickness;                 // [cm]
    double fMip;                       // mean deposit of a minimum-ionising particle [GeV]
    std::vector<DepositTable> fTables; // by hypothesis
  };

  /// What is active of the cells that measure one coordinate in a plane.
  struct Cells {
    std::size_t fKind = 0;
    double fHalfWidth = 0;      // [cm]
    double fLow = 0, fHigh = 0; // z from the middle of the plane on [cm]
  };

  double Length(const ChargedHit& hit, const geo::CellRow& row, const Cells& cells, double u) const;

  const geo::PlaneDetector* fDetector;
  std::vector<Kind> fKinds;
  std::vector<std::array<Cells, 2>> fCells; // by plane and view
};

} // namespace kelvo
