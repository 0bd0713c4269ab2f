#pragma once

#include "track/TrackChain.h"

#include <algorithm>
#include <cmath>

namespace kelvo {

/// Runs the stages of a track fit one by one, for timing them.
struct TrackChainStages {
  static constexpr const char* kNames[] = {"hits",   "material", "energies",
                                           "widths", "views",    "results"};
  static constexpr int kCount = 6;

  /// Fits a track and calls done(i) after each piece of stage i.
  template <class Done>
  static void Fit(TrackChain& chain, const HitList3D& hits, TrackFit& out, Done&& done) {
    chain.SortHits(hits, {});
    chain.LayCourse();
    chain.FindPoints();
    done(0);
    chain.TraceMaterial();
    chain.FindEnd(out);
    chain.PlacePlanes();
    done(1);
    chain.fEnergy.Stop(chain.fMaterial, chain.fCourse.fStretch);
    done(2);
    for (std::size_t h = 0; h < out.fHypothesis.size(); h += kLanes) {
      const TrackChain::LaneFits lanes = {h, std::min(kLanes, out.fHypothesis.size() - h),
                                          &out.fHypothesis[h]};
      chain.FindWidths(lanes);
      done(3);
      chain.SolveViews();
      done(4);
      chain.Fill(lanes);
    }
    FindBest({}, out);
    done(5);
  }

  /// Returns the Cramer-Rao bound of the relative uncertainty of a momentum from scattering, for
  /// the last track and its true momentum [GeV/c].
  static double Bound(TrackChain& chain, double p) {
    return 1 / std::sqrt(chain.fScattering.At(p).fInformation);
  }
};

} // namespace kelvo
