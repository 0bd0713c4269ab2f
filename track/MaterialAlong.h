#pragma once

#include "track/DetectorMaterials.h"
#include "util/Lanes.h"

#include <array>
#include <cstddef>
#include <utility>
#include <vector>

namespace kelvo {

using geo::WayPoint;

/// So much of one material between two planes along z, whatever the slope: a track at an angle
/// crosses it on a way that is longer by its stretch, sqrt(1 + (dx/dz)^2 + (dy/dz)^2).
struct Layer {
  std::size_t fMaterial; ///< index in DetectorMaterials
  double fThickness;     ///< along z [cm]
};

/// A thin scatterer.
struct ThinPlane {
  double fZ;      ///< [cm]
  double fRadLen; ///< thickness along z [radiation lengths]
};

/// The material between two way points, or behind the last one.
struct Gap {
  double fBegin, fEnd;             ///< z [cm]
  std::size_t fFirst, fN;          ///< its layers
  std::array<ThinPlane, 2> fPlane; ///< what scatters like it
  std::size_t fNPlanes;            ///< 0, 1 or 2 of them
  double fRadLen;                  ///< thickness along z [radiation lengths]
  double fMipLoss;                 ///< loss of a minimum-ionising particle along z [GeV]
  double fVarMipLoss;              ///< variance of that, from where the track may be [GeV^2]
  double fXi;                      ///< Landau's xi along z for beta = 1 [GeV]
};

/// The material along a track: asked for once, used by all hypotheses.
///
/// Where walls divide a detector into cells, the way points do not tell how much of the walls a
/// track crosses: what is kept is the average over where the track may be. A detector that does not
/// know it is crossed several times, on ways that are shifted in parallel within the uncertainty of
/// the points.
///
/// A gap scatters exactly as two thin planes with the moments of its material along z, up to the
/// third one: the two points and weights of the Gaussian quadrature with its radiation lengths as
/// weight function. With the first three, the variances of a track's angle and displacement behind
/// the gap and their covariance are those of the material (for a uniform gap the planes stand at 21
/// and 79 % and share it equally). With the fourth this also holds to first order where momentum
/// falls along the gap, and both planes lie within it.
class MaterialAlong {
public:
  /// Variance of where a stopping track ends, in squares of the way to its next plane as measured
  /// by energy loss: anywhere on it, or further on where planes give no hit, as one in twenty does.
  static constexpr double kEndVariance = 1. / 12 + 0.05 / (0.95 * 0.95);

  explicit MaterialAlong(DetectorMaterials materials) : fMaterials(std::move(materials)) {}

  /// Finds the material between neighbouring points, one gap each.
  /// @param points with ascending z
  /// @throws what DetectorMaterials::Slabs throws
  void Trace(const std::vector<WayPoint>& points);

  /// Finds the material from the last point up to a next plane, and cuts it where a fraction of its
  /// energy loss is spent.
  /// @param slopes dx/dz, dy/dz
  /// @param length of the way to the next plane along z [cm]
  /// @throws what DetectorMaterials::Slabs throws
  void TraceEnd(const WayPoint& from, const std::array<double, 2>& slopes, double length,
                double fraction);

  const std::vector<Gap>& Gaps() const { return fGaps; }
  const Gap& End() const { return fEnd; }           ///< up to where the track ends
  double EndMipLoss() const { return fEndMipLoss; } ///< up to the next plane [GeV]
  /// Returns how well it is known where the track ends, along z [cm]: half of the way between the
  /// places that are a standard deviation of the loss, by kEndVariance, from half of it.
  double EndSigma() const { return fEndSigma; }
  const Layer* Layers(const Gap& gap) const { return fLayers.data() + gap.fFirst; }
  const DetectorMaterials& Materials() const { return fMaterials; }

private:
  /// What the crossings of one gap add up to.
  struct Sums {
    Lanes fMoment{};     // of radiation lengths, about the middle [cm to the power 0 to 3]
    Lanes fLoss{};       // of a minimum-ionising particle [GeV], crossing by crossing
    double fVarLoss = 0; // of that, from place to place, where crossings are averages [GeV^2]
  };
  /// A material on the way of the track.
  struct MetMaterial {
    const TGeoMaterial* fMaterial;
    std::size_t fIndex;       // in fMaterials
    double fRadLen, fMipLoss; // as in MaterialData
  };
  /// What lies in a slab.
  struct Mixture {
    std::array<std::size_t, 3> fRow; // where the thicknesses of its materials begin
    double fRadLen, fMipLoss;        // per length
    double fVarMipLoss; // of what is lost in all of it, from place to place, per length
  };
  template <class Visit>
  void FollowLines(const WayPoint& from, const WayPoint& to, Visit&& visit);
  template <class Visit>
  double Spend(double loss, double z0, Visit&& visit);
  const std::array<Lanes, 2>& NextShift();
  void Cross(const std::vector<WayPoint>& points, std::size_t first, std::size_t last);
  void AddSlabs(const std::vector<WayPoint>& points, std::size_t first, std::size_t last,
                Lanes crossings);
  void Add(std::size_t gap, double middle, double begin, double end, const geo::MeanSlab& slab,
           const Mixture& mixture, Lanes crossings);
  Mixture Mix(const geo::MeanSlab& slab);
  std::size_t Meet(const TGeoMaterial* material);
  std::size_t MeetFirst(const TGeoMaterial* material);
  Gap Summary(std::size_t i, double begin, double end);

  DetectorMaterials fMaterials;
  std::vector<Gap> fGaps;
  std::vector<Layer> fLayers;
  Gap fEnd{};
  double fEndMipLoss = 0;
  double fEndSigma = 0;
  std::vector<geo::MeanSlab> fSlabs; // of the crossing at hand
  std::vector<Sums> fSums;           // by gap, and of the end
  std::vector<MetMaterial> fMet;     // in the order in which this track meets them, so that no
                                     // result depends on other tracks
  std::vector<double> fThickness;    // by that order and gap [cm], of all crossings
  std::vector<std::array<Lanes, 2>> fShifts; // of all followed rays, in standard deviations
  double fLastShift[2] = {0, 0};             // of these, fractions of the interval
  std::size_t fRay = 0;                      // number of those of this track
};

} // namespace kelvo
