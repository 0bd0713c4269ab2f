#include "track/TrackFitter.h"

#include "geo/PlaneDetector.h"
#include "track/ChargeLikelihood.h"
#include "track/DetectorMaterials.h"
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

constexpr const char* kOutlierModes[] = {"keep", "huber", "tukey",
                                         "cauchy"}; // in the order of OutlierMode

void CheckChargeScale(double scale) {
  CheckOption(scale == 0 || (scale >= 1e-12 && scale <= 1e12), "fChargeScale", scale,
              "0 (not known) or between 1e-12 and 1e+12");
}

void CheckFractions(const TrackFitOptions& o) {
  if (!o.fFractions.empty() && o.fFractions.size() != o.fHypotheses.size())
    throw std::invalid_argument("fFractions has " + std::to_string(o.fFractions.size()) +
                                " numbers; it must have one for each of the " +
                                std::to_string(o.fHypotheses.size()) + " hypotheses, or none");
  for (double fraction : o.fFractions)
    CheckOption(fraction > 0 && fraction <= 1e6, "a number in fFractions", fraction,
                "above 0 and at most 1e+06");
}

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
  CheckOption(o.fChargeResolution == 0 || (o.fChargeResolution >= 0.02 && o.fChargeResolution <= 2),
              "fChargeResolution", o.fChargeResolution, "0 (not used) or between 0.02 and 2");
  CheckChargeScale(o.fChargeScale);
  CheckOption(o.fReject == 0 || (o.fReject >= 2 && o.fReject <= 1e6), "fReject", o.fReject,
              "0 (no hit is taken out) or between 2 and 1e+06");
  if (o.fReject > 0 && o.fRobust != OutlierMode::kKeep)
    throw std::invalid_argument(
        "fRobust and fReject are both set; outliers either count less or are taken out");
  CheckFractions(o);
  CheckOption(o.fSigBeamMomentum >= 0 && o.fSigBeamMomentum <= 1e6, "fSigBeamMomentum",
              o.fSigBeamMomentum, "between 0 and 1e+06 GeV/c");
}

/// Clears what is not of one hypothesis.
void ClearTrack(TrackFit& out) {
  TrackFit fresh;
  fresh.fHypothesis.swap(out.fHypothesis);
  out = std::move(fresh);
}

/// Returns null where deposits are not used.
std::shared_ptr<const ChargeLikelihood> MakeCharge(const geo::GeometryBase& detector,
                                                   const TrackFitOptions& o) {
  if (o.fChargeResolution == 0 || o.fBeamMomentum > 0) return nullptr;
  const auto* planes = dynamic_cast<const geo::PlaneDetector*>(&detector);
  if (!planes)
    throw std::invalid_argument(
        "fChargeResolution is set, but the detector does not tell its planes and cells, so that no "
        "path in a cell is known; leave it 0, or describe the detector in a TOML file");
  try {
    return std::make_shared<ChargeLikelihood>(*planes, o.fHypotheses, o.fChargeResolution);
  } catch (const GeometryRefusal& refusal) {
    throw std::invalid_argument(refusal.fMessage);
  }
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

const char* OutlierModeName(OutlierMode mode) {
  return kOutlierModes[static_cast<std::size_t>(mode)];
}

OutlierMode OutlierModeOf(const std::string& name) {
  for (std::size_t i = 0; i < std::size(kOutlierModes); i++)
    if (name == kOutlierModes[i]) return static_cast<OutlierMode>(i);
  throw std::invalid_argument("the mode of outliers is \"" + name +
                              "\"; it must be keep, huber, tukey or cauchy");
}

struct TrackFitter::Impl {
  Impl(const geo::GeometryBase& detector, const TrackFitOptions& options,
       std::shared_ptr<const ChargeLikelihood> charge)
      : fDetector(detector),
        fOptions(options),
        fCharge(std::move(charge)),
        fChain(fDetector, fOptions, fCharge.get()) {}

  const geo::GeometryBase& fDetector;
  TrackFitOptions fOptions;
  std::shared_ptr<const ChargeLikelihood> fCharge; // of all copies; null: deposits are not used
  TrackChain fChain;                               // refers to the two above
};

TrackFitter::TrackFitter(const geo::GeometryBase& detector, const TrackFitOptions& options) {
  CheckOptions(options);
  fImpl = std::make_unique<Impl>(detector, options, MakeCharge(detector, options));
}

TrackFitter::TrackFitter(const TrackFitter& other)
    : fImpl(std::make_unique<Impl>(other.fImpl->fDetector, other.fImpl->fOptions,
                                   other.fImpl->fCharge)) {}

TrackFitter::TrackFitter(TrackFitter&&) noexcept = default;
TrackFitter::~TrackFitter() = default;

const TrackFitOptions& TrackFitter::Options() const {
  return fImpl->fOptions;
}

void TrackFitter::SetChargeScale(double scale) {
  CheckChargeScale(scale);
  fImpl->fOptions.fChargeScale = scale;
}

double TrackFitter::MipDeposit() const {
  return fImpl->fCharge ? fImpl->fCharge->MipDeposit() : 0;
}

TrackFit TrackFitter::Fit(const HitList3D& hits) {
  TrackFit out;
  Fit(hits, out);
  return out;
}

void TrackFitter::Fit(const HitList3D& hits, TrackFit& out) {
  Fit(hits, {}, out);
}

void TrackFitter::Fit(const HitList3D& hits, const std::vector<double>& charges, TrackFit& out) {
  const std::vector<int>& hypotheses = fImpl->fOptions.fHypotheses;
  out.fHypothesis.resize(hypotheses.size());
  ClearTrack(out);
  for (std::size_t h = 0; h < hypotheses.size(); h++) ClearFit(hypotheses[h], out.fHypothesis[h]);
  Refusal refusal = CheckHits(hits);
  if (!refusal) refusal = CheckCharges(hits.size(), charges);
  if (!refusal) refusal = Guarded([&] { return fImpl->fChain.Fit(hits, charges, out); });
  if (refusal) Refuse(refusal, out);
}

} // namespace kelvo
