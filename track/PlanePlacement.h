#pragma once

#include "func/Path.h"
#include "geo/GeometryBase.h"
#include "track/TrackFit.h"
#include "track/TrackFrame.h"
#include "track/ViewSolver.h"

#include <vector>

namespace kelvo {

/// Places the scattering planes of a stopping particle by the step limits of the options. Limits
/// that give more than `most` planes are all widened by one factor, again and again; where
/// that does not help, one plane stands for the whole track.
/// @param path from the first hit to where the particle stops, in the path coordinate of s
/// @param pdg  code of a particle of Particles(), of either sign
/// @param s    path coordinates of all hits [cm], ascending
/// @param most largest number of planes, 1 or more
void PlaceByLimits(const Path& path, int pdg, const std::vector<double>& s,
                   const TrackFitOptions& options, std::size_t most, PlaneList& planes);

/// A piece of material on the track.
struct Slab {
  double fS;   ///< path coordinate of its middle, by radiation lengths [cm]
  double fDX0; ///< its thickness [radiation lengths]
};

/// Lists the material from p0 to p1 [cm], one slab per material step that scatters.
/// @param s0 path coordinate of p0 [cm]
void FindSlabs(const geo::GeometryBase& geo, const Vector& p0, const Vector& p1, double s0,
               std::vector<Slab>& slabs);

/// What PlaceInSlabs needs to know beside the slabs.
struct BeamTrack {
  double fFirst;         ///< path coordinate of the first hit [cm]
  double fLast;          ///< and of the last [cm]
  double fBeta;          ///< velocity [c]
  double fP;             ///< momentum [GeV/c]
  double fFactor;        ///< factor on the scattering widths
  double fSmallestSigma; ///< of all measurements [cm]
};

/// Places one scattering plane in each slab. Neighbours are merged, and slabs near the first or
/// last hit left out, while the shift of the track that this causes stays below a hundredth of the
/// smallest uncertainty, and further, the smallest shift first, until `most` planes remain.
void PlaceInSlabs(std::vector<Slab> slabs, const BeamTrack& track, std::size_t most,
                  PlaneList& planes);

} // namespace kelvo
