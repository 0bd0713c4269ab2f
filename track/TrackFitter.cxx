#include "track/TrackFitter.h"

#include "track/Guarded.h"
#include "track/HitCheck.h"
#include "track/OptionCheck.h"
#include "track/TrackChain.h"
#include "util/Particles.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace kelvo {
namespace {

constexpr const char* kEndModes[] = {"auto", "stops", "leaves"}; // in the order of TrackEndMode

void CheckOptions(const TrackFitOptions& o) {
  if (o.fHypotheses.empty())
    throw std::invalid_argument("fHypotheses is empty; name one or more of " + ParticleCodes());
  for (int pdg : o.fHypotheses) {
    CheckOption(FindParticle(pdg), "a code in fHypotheses", pdg,
                ParticleCodes() + ", of either sign");
    if (std::count(o.fHypotheses.begin(), o.fHypotheses.end(), pdg) > 1)
      throw std::invalid_argument("fHypotheses names " + std::to_string(pdg) + " more than once");
  }
  CheckOption(o.fScatteringFactor > 0 && o.fScatteringFactor <= 100, "fScatteringFactor",
              o.fScatteringFactor, "above 0 and at most 100");
  CheckOption(o.fBeyondLastHit >= 0 && o.fBeyondLastHit <= 100, "fBeyondLastHit", o.fBeyondLastHit,
              "between 0 and 100");
  CheckOption(o.fBeamMomentum == 0 || (o.fBeamMomentum >= 1e-3 && o.fBeamMomentum <= 1e6),
              "fBeamMomentum", o.fBeamMomentum,
              "0 (stopping particles) or between 0.001 and 1e+06 GeV/c");
  CheckOption(o.fSigBeamMomentum >= 0 && o.fSigBeamMomentum <= 1e6, "fSigBeamMomentum",
              o.fSigBeamMomentum, "between 0 and 1e+06 GeV/c");
}

/// Clears what is not of one hypothesis.
void ClearTrack(TrackFit& out) {
  TrackFit fresh;
  fresh.fHypothesis.swap(out.fHypothesis);
  out = std::move(fresh);
}

void Refuse(const Refusal& refusal, TrackFit& out) {
  ClearTrack(out);
  for (HypothesisFit& fit : out.fHypothesis) RefuseFit(refusal, fit);
}

} // namespace

const char* EndModeName(TrackEndMode mode) {
  return kEndModes[static_cast<std::size_t>(mode)];
}

TrackEndMode EndMode(const std::string& name) {
  for (std::size_t i = 0; i < std::size(kEndModes); i++)
    if (name == kEndModes[i]) return static_cast<TrackEndMode>(i);
  throw std::invalid_argument("the end of tracks is \"" + name +
                              "\"; it must be auto, stops or leaves");
}

struct TrackFitter::Impl {
  Impl(const geo::GeometryBase& detector, const TrackFitOptions& options)
      : fDetector(detector), fOptions(options), fChain(fDetector, fOptions) {}

  const geo::GeometryBase& fDetector;
  TrackFitOptions fOptions;
  TrackChain fChain; // refers to fOptions
};

TrackFitter::TrackFitter(const geo::GeometryBase& detector, const TrackFitOptions& options) {
  CheckOptions(options);
  fImpl = std::make_unique<Impl>(detector, options);
}

TrackFitter::TrackFitter(const TrackFitter& other)
    : fImpl(std::make_unique<Impl>(other.fImpl->fDetector, other.fImpl->fOptions)) {}

TrackFitter::TrackFitter(TrackFitter&&) noexcept = default;
TrackFitter::~TrackFitter() = default;

const TrackFitOptions& TrackFitter::Options() const {
  return fImpl->fOptions;
}

TrackFit TrackFitter::Fit(const HitList3D& hits) {
  TrackFit out;
  Fit(hits, out);
  return out;
}

void TrackFitter::Fit(const HitList3D& hits, TrackFit& out) {
  const std::vector<int>& hypotheses = fImpl->fOptions.fHypotheses;
  out.fHypothesis.resize(hypotheses.size());
  ClearTrack(out);
  for (std::size_t h = 0; h < hypotheses.size(); h++) ClearFit(hypotheses[h], out.fHypothesis[h]);
  Refusal refusal = CheckHits(hits);
  if (!refusal) refusal = Guarded([&] { return fImpl->fChain.Fit(hits, out); });
  if (refusal) Refuse(refusal, out);
}

} // namespace kelvo
