#include "run/FittedBlocks.h"

#include <algorithm>

namespace kelvo {

namespace {

constexpr std::size_t kTracksPerBlock = 64;    // some 10 ms of work
constexpr unsigned long long kBlocksAhead = 4; // per thread

TrackOutcome OutcomeOf(const TrackHits& track, const TrackFit& fit) {
  TrackOutcome outcome;
  outcome.fHits = track.fHits.size();
  outcome.fBadLines = track.fBadLines;
  outcome.fProblems = track.fProblems;
  if (fit.Fitted()) {
    outcome.fBestPDG = fit.fHypothesis[static_cast<std::size_t>(fit.fBest)].fPDG;
    return outcome;
  }
  const HypothesisFit& first = fit.fHypothesis.front();
  outcome.fStatus = first.fStatus;
  if (track.Good())
    outcome.fProblems.push_back(track.Place() + ": track " + std::to_string(track.fTrack) +
                                " is not fitted: " + first.fMessage);
  return outcome;
}

} // namespace

FittedBlocks::FittedBlocks(std::function<bool(TrackHits&)> next, const TrackFitter& fitter,
                           unsigned threads, bool withVectors)
    : fNext(std::move(next)),
      fFitter(fitter),
      fWithVectors(withVectors),
      fMostAhead(kBlocksAhead * threads) {
  for (unsigned i = 1; i < threads; ++i)
    fThreads.emplace_back([this, own = TrackFitter(fitter)]() mutable { Work(own); });
}

FittedBlocks::~FittedBlocks() {
  {
    const std::lock_guard lock(fMutex);
    fStop = true;
  }
  fChanged.notify_all();
  for (std::thread& thread : fThreads) thread.join();
}

bool FittedBlocks::Next(FittedBlock& block) {
  for (;;) {
    {
      std::unique_lock lock(fMutex);
      const auto nothingToFit = [this] { return fAtEnd || fRead - fGiven >= fMostAhead; };
      if (nothingToFit())
        fChanged.wait(lock, [this] { return fReady.count(fGiven) || fGiven == fRead; });
      if (const auto ready = fReady.find(fGiven); ready != fReady.end()) {
        block = std::move(ready->second);
        fReady.erase(ready);
        ++fGiven;
        lock.unlock();
        fChanged.notify_all();
        return true;
      }
      if (fAtEnd && fGiven == fRead) {
        if (fError) std::rethrow_exception(fError);
        return false;
      }
    }
    FitOne(fFitter);
  }
}

void FittedBlocks::Work(TrackFitter& fitter) {
  for (;;) {
    {
      std::unique_lock lock(fMutex);
      fChanged.wait(lock, [this] { return fStop || fAtEnd || fRead - fGiven < fMostAhead; });
      if (fStop || fAtEnd) return;
    }
    if (!FitOne(fitter)) return;
  }
}

// Reads a block, fits it and puts it where Next() looks. Returns false if there is nothing to read.
bool FittedBlocks::FitOne(TrackFitter& fitter) {
  unsigned long long index = 0;
  const std::vector<TrackHits> tracks = Read(index);
  if (tracks.empty()) return false;
  FittedBlock block = Fit(tracks, fitter);
  {
    const std::lock_guard lock(fMutex);
    fReady.emplace(index, std::move(block));
  }
  fChanged.notify_all();
  return true;
}

std::vector<TrackHits> FittedBlocks::Read(unsigned long long& index) {
  const std::lock_guard reading(fReading);
  std::vector<TrackHits> tracks;
  std::exception_ptr error;
  {
    const std::lock_guard lock(fMutex);
    if (fAtEnd) return tracks;
  }
  try {
    TrackHits track;
    while (tracks.size() < kTracksPerBlock && fNext(track)) tracks.push_back(std::move(track));
  } catch (...) {
    error = std::current_exception();
  }
  const std::lock_guard lock(fMutex);
  fAtEnd = tracks.size() < kTracksPerBlock;
  fError = error;
  if (!tracks.empty()) index = fRead++;
  if (fAtEnd) fChanged.notify_all();
  return tracks;
}

FittedBlock FittedBlocks::Fit(const std::vector<TrackHits>& tracks, TrackFitter& fitter) const {
  const std::vector<int>& hypotheses = fitter.Options().fHypotheses;
  FittedBlock block;
  block.fOutcomes.reserve(tracks.size());
  block.fRows.reserve(tracks.size() * hypotheses.size());
  TrackFit fit;
  for (const TrackHits& track : tracks) {
    if (track.Good())
      fitter.Fit(track.fHits, fit);
    else
      fit = UnusableTrack(track, hypotheses);
    block.fOutcomes.push_back(OutcomeOf(track, fit));
    for (std::size_t h = 0; h < hypotheses.size(); ++h)
      FillFitRow(track, fit, h, fWithVectors, block.fRows.emplace_back());
  }
  return block;
}

} // namespace kelvo
