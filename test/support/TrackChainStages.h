#pragma once

#include "track/TrackChain.h"

namespace kelvo {

/// Runs the stages of a track fit one by one, for timing them.
struct TrackChainStages {
  static constexpr const char* kNames[] = {"complete", "frame", "path",
                                           "surfaces", "fit",   "range-out"};

  /// Fits a track and calls done(i) after each piece of stage i.
  template <class Done>
  static void Fit(TrackChain& chain, const HitList3D& hits, TrackFit& out, Done&& done) {
    chain.SortAndComplete(hits);
    done(0);
    chain.MakeFrame();
    chain.MakeHits();
    chain.LoadViews();
    done(1);
    chain.LayPath();
    chain.fPath->Length(); // integrates it
    done(2);
    chain.PlacePlanes(out.fHypothesis.front().fPDG);
    done(3);
    chain.Refine();
    done(4); // with one more placing of planes, which is counted here
    for (HypothesisFit& fit : out.fHypothesis) {
      chain.PlacePlanes(fit.fPDG);
      done(3);
      chain.SolveViews(fit);
      chain.FillHypothesis(fit);
      done(4);
    }
    FindBest(out);
    chain.FillKinematics(out);
    done(5);
  }
};

} // namespace kelvo
