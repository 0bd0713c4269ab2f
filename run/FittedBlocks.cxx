#include "run/FittedBlocks.h"

#include <exception>

namespace kelvo {

namespace {

constexpr std::size_t kTracksPerBlock = 64; // some 10 ms of work

TrackOutcome OutcomeOf(const TrackHits& track, const TrackFit& fit) {
  TrackOutcome outcome;
  outcome.fHits = track.fHits.size();
  outcome.fBadLines = track.fBadLines;
  outcome.fProblems = track.fProblems;
  outcome.fFitted = fit.Fitted();
  outcome.fLeaves = fit.fLeaves;
  outcome.fOutliers = outcome.fFitted ? fit.fOutliers : 0;
  if (outcome.fFitted) return outcome;
  const HypothesisFit& first = fit.fHypothesis.front();
  outcome.fStatus = first.fStatus;
  if (track.Good())
    outcome.fProblems.push_back(track.Place() + ": track " + std::to_string(track.fTrack) +
                                " is not fitted: " + first.fMessage);
  return outcome;
}

/// Gives tracks in blocks; an error comes behind the block of the tracks before it.
class TrackBlocks {
public:
  explicit TrackBlocks(std::function<bool(TrackHits&)> next) : fNext(std::move(next)) {}

  bool operator()(std::vector<TrackHits>& tracks) {
    try {
      TrackHits track;
      while (!fError && tracks.size() < kTracksPerBlock && fNext(track))
        tracks.push_back(std::move(track));
    } catch (...) {
      fError = std::current_exception();
    }
    if (tracks.empty() && fError) std::rethrow_exception(fError);
    return !tracks.empty();
  }

private:
  std::function<bool(TrackHits&)> fNext;
  std::exception_ptr fError;
};

FittedBlock Fit(std::vector<TrackHits>& tracks, RowFitter& fitter, HitPlanes& planes,
                bool withVectors) {
  const std::size_t hypotheses = fitter.Options().fHypotheses.size();
  FittedBlock block;
  block.fOutcomes.reserve(tracks.size());
  block.fRows.reserve(tracks.size() * hypotheses);
  for (TrackHits& track : tracks) {
    const TrackFit& fit = fitter.Fit(track);
    planes.Count(track.fHits, block.fHitPlanes);
    block.fEfficiencies.Count(fit);
    block.fOutcomes.push_back(OutcomeOf(track, fit));
    for (std::size_t h = 0; h < hypotheses; h++)
      FillFitRow(track, fit, h, withVectors, block.fRows.emplace_back());
  }
  return block;
}

using Work = OrderedWork<std::vector<TrackHits>, FittedBlock>;

std::vector<Work::Worker> Workers(const RowFitter& fitter, unsigned threads, bool withVectors) {
  std::vector<Work::Worker> workers;
  for (unsigned i = 0; i < threads; i++)
    workers.emplace_back([own = fitter, planes = HitPlanes(fitter.Planes()),
                          withVectors](std::vector<TrackHits>& tracks) mutable {
      return Fit(tracks, own, planes, withVectors);
    });
  return workers;
}

} // namespace

FittedBlocks::FittedBlocks(std::function<bool(TrackHits&)> next, const RowFitter& fitter,
                           unsigned threads, bool withVectors)
    : fWork(TrackBlocks(std::move(next)), Workers(fitter, threads, withVectors)) {}

} // namespace kelvo
