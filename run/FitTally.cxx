#include "run/FitTally.h"

namespace kelvo {

namespace {

constexpr std::size_t kProblemsKept = 10;

} // namespace

FitTally::FitTally(const std::vector<int>& hypotheses) : fChi2(hypotheses.size()) {
  for (const int pdg : hypotheses) {
    HypothesisSummary hypothesis;
    hypothesis.fPDG = pdg;
    fSummary.fHypotheses.push_back(hypothesis);
  }
}

void FitTally::Add(const FittedBlock& block) {
  for (const TrackOutcome& outcome : block.fOutcomes) AddOutcome(outcome);
  fHitPlanes.Add(block.fHitPlanes);
  fEfficiencies.Add(block.fEfficiencies);
  for (std::size_t i = 0; i < block.fRows.size(); i++)
    AddRow(block.fRows[i], i % fSummary.fHypotheses.size());
}

FitSummary FitTally::Summary(double seconds) const {
  FitSummary summary = fSummary;
  summary.fSeconds = seconds;
  summary.fDoubts = Doubts();
  for (std::size_t h = 0; h < fChi2.size(); h++)
    summary.fHypotheses[h].fMedianChi2PerNDF = fChi2[h].Median();
  return summary;
}

void FitTally::AddOutcome(const TrackOutcome& outcome) {
  fSummary.fTracks++;
  fSummary.fHits += outcome.fHits;
  fSummary.fOutliers += outcome.fOutliers;
  fSummary.fBadLines += outcome.fBadLines;
  fSummary.fProblemCount += outcome.fBadLines > 0 ? outcome.fBadLines : outcome.fProblems.size();
  ++fSummary.fByStatus[static_cast<std::size_t>(outcome.fStatus)];
  if (outcome.fFitted) fSummary.fFitted++;
  if (outcome.fFitted && outcome.fLeaves) fSummary.fLeft++;
  for (const std::string& problem : outcome.fProblems)
    if (fSummary.fProblems.size() < kProblemsKept) fSummary.fProblems.push_back(problem);
}

void FitTally::AddRow(const FitRow& row, std::size_t h) {
  if (row.fStatus != 0) return;
  HypothesisSummary& hypothesis = fSummary.fHypotheses[h];
  hypothesis.fFitted++;
  if (row.fBest) hypothesis.fBest++;
  if (row.fNDF > 0) fChi2[h].Add(row.Chi2() / row.fNDF);
}

} // namespace kelvo
