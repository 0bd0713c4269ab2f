#include "draw/Report.h"

#include "draw/PageParts.h"
#include "draw/Plot.h"
#include "draw/ReportPlots.h"
#include "draw/ReportVerdicts.h"
#include "draw/SvgText.h"
#include "draw/TrackDisplay.h"
#include "geo/Detector.h"
#include "io/FileError.h"
#include "io/PendingFile.h"
#include "util/Particles.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace kelvo {

namespace {

std::string Number(double value, const char* unit = "") {
  return std::isfinite(value) ? fmt::format(FMT_STRING("{:.4g}{}"), value, unit) : "–";
}

std::string Probability(double value) {
  return std::isfinite(value) ? fmt::format(FMT_STRING("{:.2g}"), value) : "–";
}

// One line of the options, which are "name = value" each.
std::string Option(const std::string& options, const std::string& name) {
  const std::size_t at = ('\n' + options).find('\n' + name + " = ");
  if (at == std::string::npos) return "";
  const std::size_t begin = at + name.size() + 3;
  return options.substr(begin, options.find('\n', begin) - begin);
}

// A list of names without what encloses them there.
std::string Listed(std::string list) {
  list.erase(std::remove(list.begin(), list.end(), '"'), list.end());
  const bool isEnclosed = list.size() > 1 && list.front() == '[' && list.back() == ']';
  return isEnclosed ? list.substr(1, list.size() - 2) : list;
}

// A table of the page; cells are HTML.
class Table {
public:
  explicit Table(const std::vector<std::string>& heads) {
    fHtml = "<div class=\"wide\"><table>\n<tr>";
    for (const std::string& head : heads) fHtml += "<th>" + head + "</th>";
    fHtml += "</tr>\n";
  }

  void Add(const std::vector<std::string>& cells) {
    fHtml += "<tr>";
    for (const std::string& cell : cells) fHtml += "<td>" + cell + "</td>";
    fHtml += "</tr>\n";
  }

  std::string Html() const { return fHtml + "</table></div>\n"; }

private:
  std::string fHtml;
};

std::string Marked(const std::string& html, bool isSuspicious) {
  return isSuspicious ? "<span class=\"bad\">" + html + "</span>" : html;
}

std::string Count(unsigned long long count) {
  return fmt::format(FMT_STRING("{}"), count);
}

constexpr double kManyFailed = 0.05; // of the tracks

class Page {
public:
  Page(FitReader& fits, const geo::PlaneDetector* detector, const ReportData& report)
      : fFits(fits), fDetector(detector), fReport(report) {
    ReadDisplayed();
  }

  std::string Html() {
    AddRun();
    AddSummary();
    if (fReport.fTruth) AddTruth(*fReport.fTruth);
    AddPlots();
    AddPlanes();
    AddWorst();
    AddDisplays();
    AddFailures();
    return Head() + Suspicions() + fHtml + PageEnd();
  }

private:
  // Once each and in their order, since to go to and fro in the file takes long.
  void ReadDisplayed() {
    for (const auto* entries :
         {&fReport.fWorstTracks, &fReport.fTypicalTracks, &fReport.fBestTracks})
      for (const long long entry : *entries) fRows[entry];
    for (auto& [entry, row] : fRows) row = fFits.Read(entry, FitPart::kAll);
  }

  // Something that does not look as it should, and where it stands on the page.
  struct Suspicion {
    std::string fPlace;
    std::string fTitle;
    std::string fText;
  };

  std::string Head() const {
    const std::string name = fDetector ? fDetector->Name() : fFits.Text("detector");
    std::string html = PageHead("Fit report: " + name, fFits.File());
    html += "<h1>Fit report: " + Safe(name) + "</h1>\n";
    html += fmt::format(FMT_STRING("<p class=\"soft\">{} track{}, {} fitted</p>\n"),
                        fReport.fTracks, fReport.fTracks == 1 ? "" : "s", fReport.fFitted);
    html +=
        "<nav><a href=\"#suspicious\">What is suspicious</a> <a href=\"#run\">What was run</a> "
        "<a href=\"#summary\">Summary</a> ";
    if (fReport.fTruth) html += "<a href=\"#truth\">Truth</a> ";
    return html +
           "<a href=\"#plots\">Plots</a> <a href=\"#planes\">Planes</a> "
           "<a href=\"#worst\">Worst tracks</a> <a href=\"#displays\">Tracks</a> "
           "<a href=\"#failures\">Failed tracks</a></nav>\n";
  }

  std::string Suspicions() const {
    std::string html = "<h2 id=\"suspicious\">What is suspicious</h2>\n";
    if (fReport.fFitted == 0) return html + "<p class=\"bad\">No track was fitted.</p>\n";
    if (fSuspicions.empty())
      return html + fmt::format(FMT_STRING("<p class=\"good\">Nothing: {} plots were judged by "
                                           "their entries.</p>\n"),
                                fJudged);
    html += "<ul>\n";
    for (const Suspicion& suspicion : fSuspicions)
      html += "<li><a href=\"#" + suspicion.fPlace + "\">" + Safe(suspicion.fTitle) +
              "</a>: " + Safe(suspicion.fText) + "</li>\n";
    return html + "</ul>\n";
  }

  std::string Particles() const {
    const std::string& options = fFits.Text("options");
    if (IsBeam()) return "a beam of " + Safe(Option(options, "beam_momentum")) + " GeV/c";
    const std::string end = Listed(Option(options, "end"));
    if (end == "leaves") return "leave the detector";
    return end == "auto" ? "stop in the detector or leave it" : "stop in the detector";
  }

  bool IsBeam() const {
    const std::string beam = Option(fFits.Text("options"), "beam_momentum");
    return !beam.empty() && beam != "0";
  }

  void Section(const char* id, const char* title) {
    fHtml += fmt::format(FMT_STRING("<h2 id=\"{}\">{}</h2>\n"), id, title);
  }

  void AddItem(const char* name, const std::string& html) {
    if (!html.empty()) fHtml += fmt::format(FMT_STRING("<dt>{}</dt><dd>"), name) + html + "</dd>\n";
  }

  void AddRun() {
    Section("run", "What was run");
    const std::string& options = fFits.Text("options");
    const std::string& command = fFits.Text("command");
    const std::string& run = fFits.Text("run");
    fHtml += "<dl>\n";
    if (!command.empty()) AddItem("command", "<code>" + Safe(command) + "</code>");
    AddItem("hits from", Safe(Listed(Option(options, "hits"))));
    AddItem("fits in", Safe(fFits.File()));
    if (!run.empty())
      AddItem("run", Safe(Option(run, "date")) + " on " + Safe(Listed(Option(run, "host"))) + ", " +
                         Safe(Option(run, "seconds")) + " s");
    AddItem("version", "kelvo " + Safe(fFits.Text("version")));
    if (fDetector)
      AddItem("detector", Safe(fDetector->Name()) +
                              fmt::format(FMT_STRING(", {} planes"), fDetector->Planes().size()));
    else
      AddItem("detector", Safe(fFits.Text("detector")));
    AddItem("particles", Particles());
    fHtml += "</dl>\n";
    AddDetails("All options", options);
    if (fDetector) AddDetails("The detector's description", fDetector->Text());
  }

  void AddDetails(const char* title, const std::string& text) {
    fHtml += fmt::format(FMT_STRING("<details><summary>{}</summary>\n<pre>"), title) +
             Escaped(PrintableLines(text)) + "</pre></details>\n";
  }

  void AddSummary() {
    Section("summary", "Summary");
    Table tracks({"tracks", "number", "fraction"});
    AddCount(tracks, "read", fReport.fTracks);
    AddCount(tracks, "fitted", fReport.fFitted);
    if (fReport.fLeft > 0) AddCount(tracks, "of these, leave the detector", fReport.fLeft);
    if (fReport.fWithoutBest > 0)
      AddCount(tracks, "of these, without a best hypothesis", fReport.fWithoutBest);
    for (const auto& [status, failure] : fReport.fFailures)
      AddCount(tracks, std::string("not fitted: ") + StatusWords(status), failure.fCount);
    fHtml += tracks.Html();
    const unsigned long long failed = fReport.fTracks - fReport.fFitted;
    if (fReport.fFitted > 0 &&
        static_cast<double>(failed) > kManyFailed * static_cast<double>(fReport.fTracks))
      fSuspicions.push_back({"failures", "Failed tracks",
                             fmt::format(FMT_STRING("{} of {} tracks could not be fitted."), failed,
                                         fReport.fTracks)});
    fHtml +=
        "<p>The fits, by hypothesis. Chi-square is that of hits and kinks in both "
        "views, prob. the probability of a larger one; the last three columns are medians.</p>\n";
    Table fits({"as", "fitted", "best", "χ²/ndf", "prob.", "p [GeV/c]"});
    for (const HypothesisReport& hypothesis : fReport.fHypotheses)
      fits.Add({ParticleWord(hypothesis.fPDG), Count(hypothesis.fFitted), Count(hypothesis.fBest),
                Number(hypothesis.fChi2PerNDF.Median()), Probability(hypothesis.fProb.Median()),
                Number(hypothesis.fMomentum.Median())});
    fHtml += fits.Html() +
             "<p>Median length of the fitted tracks: " + Number(fReport.fLength.Median(), " cm") +
             "</p>\n";
    if (!fFits.HasVectors())
      fHtml +=
          "<p>The file has no hits and planes (it was written with <code>--scalars</code>), so "
          "pulls, kinks, residuals and tracks are not shown.</p>\n";
    else if (!fDetector)
      fHtml +=
          "<p>The detector is a geometry that knows no planes, so residuals by plane and cells "
          "are not shown.</p>\n";
  }

  void AddCount(Table& table, const std::string& what, unsigned long long count) const {
    const double all = static_cast<double>(std::max(fReport.fTracks, 1ull));
    table.Add({what, Count(count),
               fmt::format(FMT_STRING("{:.4g} %"), 100 * static_cast<double>(count) / all)});
  }

  // A plot with a verdict on its entries and what a good one looks like.
  void AddPlot(const char* id, const std::string& title, const Picture& picture,
               const Verdict& verdict, const std::string& good) {
    fJudged++;
    if (verdict.fIsSuspicious) fSuspicions.push_back({id, title, verdict.fText});
    fHtml += fmt::format(FMT_STRING("<figure id=\"{}\">\n"), id) + picture.Svg() +
             "\n<figcaption><p" + (verdict.fIsSuspicious ? " class=\"bad\">" : ">") +
             Safe(verdict.fText) + "</p><p class=\"soft\">Good: " + good +
             "</p></figcaption>\n</figure>\n";
  }

  void AddTruth(const TruthComparison& truth) {
    Section("truth", "Compared with the truth");
    fHtml += fmt::format(FMT_STRING("<p class=\"soft\">{} of {} true tracks in {} are compared "
                                    "with their fit under the hypothesis of the true particle, "
                                    "{} of these without a momentum from range. Resolutions are "
                                    "half of the central 68 %, biases medians."),
                         truth.Compared(), truth.TrueCount(), Safe(truth.File()),
                         truth.WithoutMomentum());
    if (truth.WithoutTruth() > 0)
      fHtml +=
          fmt::format(FMT_STRING(" {} fitted tracks are not in the truth."), truth.WithoutTruth());
    fHtml += "</p>\n";
    if (truth.Compared() == 0) return;
    AddTruthTable(truth);
    AddConfusion(truth);
    fHtml += "<div class=\"grid\">\n";
    AddTruthPlots(truth);
    fHtml += "</div>\n";
  }

  // How a quantity is shown.
  struct TrueQuantity {
    TruthComparison::Quantity fQuantity;
    const char* fName;
    ShownUnit fUnit;
  };

  static std::vector<TrueQuantity> TrueQuantities(const TruthComparison& truth) {
    const auto width = [&truth](TruthComparison::Quantity q) {
      return SpreadOf(truth.Of(q).fValues).fWidth;
    };
    const ShownUnit length =
        LengthUnitFor(std::max(width(TruthComparison::kX), width(TruthComparison::kY)));
    const ShownUnit angle =
        AngleUnitFor(std::max(width(TruthComparison::kUX), width(TruthComparison::kUY)));
    return {{TruthComparison::kMomentum, "momentum", {"%", 100}},
            {TruthComparison::kX, "x", length},
            {TruthComparison::kY, "y", length},
            {TruthComparison::kUX, "direction ux", angle},
            {TruthComparison::kUY, "direction uy", angle}};
  }

  void AddTruthTable(const TruthComparison& truth) {
    Table table(
        {"fitted minus true", "tracks", "resolution", "bias", "unit", "pull width", "pull median"});
    for (const TrueQuantity& quantity : TrueQuantities(truth)) {
      const Deviations& deviations = truth.Of(quantity.fQuantity);
      const Spread values = SpreadOf(deviations.fValues);
      if (values.fN == 0) continue;
      const Spread pulls = SpreadOf(deviations.fPulls);
      const double factor = quantity.fUnit.fPerUnit;
      const bool hasPulls = pulls.fN > 0;
      table.Add({quantity.fName, Count(values.fN),
                 WithError(values.fWidth, values.fWidthError, factor),
                 WithError(values.fMedian, values.fMedianError, factor), quantity.fUnit.fName,
                 hasPulls ? WithError(pulls.fWidth, pulls.fWidthError, 1) : "–",
                 hasPulls ? WithError(pulls.fMedian, pulls.fMedianError, 1) : "–"});
    }
    fHtml += table.Html();
  }

  void AddConfusion(const TruthComparison& truth) {
    std::set<int> particles;
    std::set<int> answers;
    for (const auto& [pair, count] : truth.Confusion()) {
      particles.insert(pair.first);
      answers.insert(pair.second);
    }
    fHtml += "<p>What true particles fit best as, with the fraction of each line:</p>\n";
    std::vector<std::string> heads{"true particle", "fitted"};
    for (const int answer : answers)
      heads.push_back(answer == 0 ? "none is best" : ParticleWord(answer));
    Table table(heads);
    for (const int particle : particles) {
      const auto count = [&](int answer) {
        const auto found = truth.Confusion().find({particle, answer});
        return found == truth.Confusion().end() ? 0ull : found->second;
      };
      unsigned long long all = 0;
      for (const int answer : answers) all += count(answer);
      std::vector<std::string> cells{ParticleWord(particle), Count(all)};
      for (const int answer : answers)
        cells.push_back(
            fmt::format(FMT_STRING("{} ({:.1f} %)"), count(answer),
                        100 * static_cast<double>(count(answer)) / static_cast<double>(all)));
      table.Add(cells);
    }
    fHtml += table.Html();
  }

  // Four widths to each side of the middle, in the shown unit.
  static Histogram ValuesOf(const Deviations& deviations, const Spread& spread, double factor) {
    const double middle = spread.fMedian * factor;
    const double half = std::max(5 * spread.fWidth * factor, 1e-9);
    Histogram histogram(middle - half, middle + half, 80);
    for (std::size_t i = 0; i < deviations.fValues.size(); i++)
      histogram.Add(deviations.fValues[i] * factor, deviations.fTracks[i]);
    return histogram;
  }

  static Histogram PullsOf(const Deviations& deviations) {
    Histogram histogram(-5, 5, 80);
    for (std::size_t i = 0; i < deviations.fPulls.size(); i++)
      histogram.Add(deviations.fPulls[i], deviations.fPullTracks[i]);
    return histogram;
  }

  void AddTruthPlots(const TruthComparison& truth) {
    const std::vector<TrueQuantity> quantities = TrueQuantities(truth);
    const Deviations& momenta = truth.Of(TruthComparison::kMomentum);
    if (!momenta.fValues.empty()) {
      const Histogram histogram = ValuesOf(momenta, SpreadOf(momenta.fValues), 100);
      AddPlot("true-momentum", "Momentum",
              DrawHistogram(histogram, FitGaussian(histogram), "Momentum",
                            "fitted over true momentum, minus 1 [%]"),
              JudgeTruth(momenta, "Momentum", 100, "%"),
              "a bell around 0; a tail to one side is the skewed loss of energy.");
      AddPlot("true-resolution", "Momentum resolution", DrawMomentumResolution(truth),
              {false, "Parts of equally many tracks."},
              "a bias within the errors of 0 everywhere.");
      const Histogram pulls = PullsOf(momenta);
      AddPlot("true-momentum-pull", "Pull of the momentum",
              DrawHistogram(pulls, FitGaussian(pulls), "Pull of the momentum",
                            "deviation / its uncertainty"),
              JudgePull(pulls, ""), "a bell around 0 of width 1.");
    }
    AddTruePair(truth, quantities[1], quantities[2], "position", "Position at the first hit");
    AddTruePair(truth, quantities[3], quantities[4], "direction", "Direction at the first hit");
  }

  void AddTruePair(const TruthComparison& truth, const TrueQuantity& x, const TrueQuantity& y,
                   const std::string& id, const std::string& title) {
    const Deviations& dx = truth.Of(x.fQuantity);
    const Deviations& dy = truth.Of(y.fQuantity);
    const double factor = x.fUnit.fPerUnit;
    Spread both = SpreadOf(dx.fValues);
    both.fWidth = std::max(both.fWidth, SpreadOf(dy.fValues).fWidth);
    both.fMedian = 0;
    const std::array<Histogram, 2> views{ValuesOf(dx, both, factor), ValuesOf(dy, both, factor)};
    Verdict verdict = JudgeTruth(dx, x.fName, factor, x.fUnit.fName);
    const Verdict second = JudgeTruth(dy, y.fName, factor, y.fUnit.fName);
    verdict.fIsSuspicious = verdict.fIsSuspicious || second.fIsSuspicious;
    verdict.fText += ' ' + second.fText;
    AddPlot(("true-" + id).c_str(), title,
            DrawViews(views, {FitGaussian(views[0]), FitGaussian(views[1])}, title,
                      std::string("fitted minus true [") + x.fUnit.fName + "]"),
            verdict, "bells around 0.");
    if (dx.fPulls.empty()) return;
    const std::array<Histogram, 2> pulls{PullsOf(dx), PullsOf(dy)};
    AddPlot(("true-" + id + "-pull").c_str(), "Pulls of the " + id,
            DrawViews(pulls, {FitGaussian(pulls[0]), FitGaussian(pulls[1])}, "Pulls of the " + id,
                      "deviation / its uncertainty"),
            JudgePulls(pulls), "bells around 0 of width 1.");
  }

  void AddPlots() {
    Section("plots", "Plots");
    if (fReport.fFitted == 0) return AddNothing();
    fHtml +=
        "<p class=\"soft\">Where nothing else is said, each track counts under its best "
        "hypothesis";
    if (fReport.fWithoutBest > 0)
      fHtml +=
          fmt::format(FMT_STRING(", and the {} that have none, as in a beam and for tracks that "
                                 "leave, under the first that was fitted"),
                      fReport.fWithoutBest);
    fHtml +=
        ". Point at a bin for its numbers; a click shows its first tracks. What is beyond an end "
        "of a "
        "plot of tracks counts in the bin next to it.</p>\n<div class=\"grid\">\n";
    AddFitQuality();
    AddParticles();
    AddResiduals();
    fHtml += "</div>\n";
  }

  void AddNothing() { fHtml += "<p>No track was fitted.</p>\n"; }

  void AddFitQuality() {
    if (fFits.HasVectors())
      AddPlot(
          "pulls", "Pulls of the hits",
          DrawViews(fReport.fPull, {FitGaussian(fReport.fPull[0]), FitGaussian(fReport.fPull[1])},
                    "Pulls of the hits", "residual / its uncertainty"),
          JudgePulls(fReport.fPull),
          "two bells around 0 of width 1; hits at the centres of cells, whose errors are not "
          "Gaussian, make the tops flatter.");
    AddPlot("probability", "Probability of chi-square", DrawProbability(fReport.fProb),
            JudgeProbability(fReport.fProb), "flat, along the dashed line.");
    if (fReport.HasKinks())
      AddPlot(
          "kinks", "Kinks over their expected width",
          DrawViews(fReport.fKink, {FitGaussian(fReport.fKink[0]), FitGaussian(fReport.fKink[1])},
                    "Kinks over their expected width", "kink / expected width"),
          JudgeKinks(fReport.fKink),
          "around 0 and the same on both sides, narrower than 1, since the hits leave part of "
          "each kink undetermined and the fit then takes the smallest one.");
  }

  void AddParticles() {
    AddPlot("chi2", "Chi-square per degree of freedom",
            DrawByHypothesis(fReport, Chi2Of, "Chi-square per degree of freedom",
                             "chi-square / degrees of freedom"),
            JudgeChi2(fReport.fChi2PerNDF),
            "around 1 for the true particle, wider or shifted for the others.");
    if (!IsBeam()) AddRanges();
    if (fReport.fHypotheses.size() > 1 && fReport.fWithoutBest < fReport.fFitted) AddComparison();
  }

  // The histograms that are there.
  std::vector<const Histogram*> All(HistogramOf of) const {
    std::vector<const Histogram*> all;
    for (const HypothesisReport& hypothesis : fReport.fHypotheses)
      if (of(hypothesis)) all.push_back(&*of(hypothesis));
    return all;
  }

  // Both follow from where the particles stop.
  void AddRanges() {
    Verdict momenta = JudgeSpikes(All(MomentumOf), "GeV/c");
    if (fReport.fLeft > 0)
      momenta.fText +=
          fmt::format(FMT_STRING(" {} tracks leave the detector and have a lower limit "
                                 "instead (p_min)."),
                      fReport.fLeft);
    AddPlot("momentum", "Momentum at the first hit",
            DrawByHypothesis(fReport, MomentumOf, "Momentum at the first hit", "momentum [GeV/c]"),
            momenta, "what the source of the particles gives, without spikes.");
    AddPlot(
        "range", "Range",
        DrawByHypothesis(fReport, LengthOf, "Range", "length from the first hit to the end [cm]"),
        JudgeSpikes(All(LengthOf), "cm"),
        "smooth up to the size of the detector; a spike there means particles that left it "
        "instead of stopping.");
  }

  void AddComparison() {
    AddPlot("best", "How often each hypothesis fits best", DrawBestFractions(fReport),
            {false, fmt::format(FMT_STRING("Of {} tracks with a best hypothesis."),
                                fReport.fFitted - fReport.fWithoutBest)},
            "as many of each as there are in the source; muon and pion are so close in mass that "
            "they are often taken for each other.");
    AddPlot("lead", "Lead of the best hypothesis",
            DrawByHypothesis(fReport, LeadOf, "Lead of the best hypothesis",
                             "log-likelihood: best minus second best"),
            JudgeLead(fReport), "far from 0, where the choice is clear.");
  }

  static const std::optional<Histogram>& MomentumOf(const HypothesisReport& h) {
    return h.fMomentumPlot;
  }
  static const std::optional<Histogram>& LengthOf(const HypothesisReport& h) {
    return h.fLengthPlot;
  }
  static const std::optional<Histogram>& Chi2Of(const HypothesisReport& h) { return h.fChi2Plot; }
  static const std::optional<Histogram>& LeadOf(const HypothesisReport& h) { return h.fLeadPlot; }

  void AddResiduals() {
    if (!fFits.HasVectors() || !fDetector) return;
    const char* const ids[][2] = {{"residuals-x", "residuals-y"}, {"map-x", "map-y"}};
    const char* const views[] = {", x view", ", y view"};
    for (std::size_t view = 0; view < 2; view++)
      AddPlot(ids[0][view], std::string("Residuals by plane") + views[view],
              DrawResidualsByPlane(fReport, *fDetector, view), JudgeMeans(fReport, view),
              "all means at 0 within their errors, and a band of even width.");
    for (std::size_t view = 0; view < 2; view++)
      AddPlot(ids[1][view], std::string("Residuals across each plane") + views[view],
              DrawResidualMap(fReport, *fDetector, view), JudgeSlopes(fReport, view),
              "pale nearly everywhere, since a mean is compared with its error.");
  }

  void AddPlanes() {
    if (!fFits.HasVectors() || !fDetector || fReport.fFitted == 0) return;
    constexpr std::size_t kOpen = 20; // planes of a table that is shown at once
    Section("planes", "Planes");
    double width = 0;
    double slope = 0;
    for (std::size_t view = 0; view < 2; view++)
      for (const PlaneResiduals& plane : fReport.fResiduals[view]) {
        width = std::max(width, plane.fAll.Width());
        slope = std::max({slope, std::abs(plane.fAlong.Slope()), std::abs(plane.fAcross.Slope())});
      }
    const ShownUnit length = LengthUnitFor(width);
    const ShownUnit angle = AngleUnitFor(slope);
    const std::string inLength = std::string(" [") + length.fName + "]";
    const std::string inAngle = std::string(" [") + angle.fName + "]";
    Table table({"plane", "name", "z [cm]", "view", "hits", "wild", "mean residual" + inLength,
                 "width" + inLength, "pull mean", "pull width", "slope against own" + inAngle,
                 "against the other" + inAngle});
    for (std::size_t i = 0; i < fDetector->Planes().size(); i++)
      for (std::size_t view = 0; view < 2; view++) AddPlane(table, i, view, length, angle);
    const bool isOpen = fDetector->Planes().size() <= kOpen;
    fHtml += std::string("<details") + (isOpen ? " open" : "") +
             "><summary>Residuals and pulls of every plane</summary>\n"
             "<p class=\"soft\">Slopes are those of the residuals against the coordinate that the "
             "plane measures, and against the other one, where a plane that is turned around z "
             "shows; both with errors from the spread of the residuals. The fit follows its hits, "
             "so that a plane is displaced or turned by more than its residuals tell. Wild hits, "
             "with pulls above " +
             fmt::format(FMT_STRING("{:.3g} in x and {:.3g} in y"), fReport.fWildPull[0],
                         fReport.fWildPull[1]) +
             ", are left out here and in the plots of residuals.</p>\n" + table.Html() +
             "</details>\n";
  }

  void AddPlane(Table& table, std::size_t i, std::size_t view, const ShownUnit& length,
                const ShownUnit& angle) const {
    const geo::ActivePlane& plane = fDetector->Planes()[i];
    const PlaneResiduals& residuals = fReport.fResiduals[view][i];
    const ResidualSum& all = residuals.fAll;
    if (!plane.Measures(static_cast<unsigned>(view)) && all.fN == 0) return;
    const auto slope = [&](const SlopeSum& sum) {
      return Marked(WithError(sum.Slope(), sum.Error(), angle.fPerUnit), IsSloped(sum, residuals));
    };
    const double pullWidth = residuals.fPulls.Width();
    const bool isOddPull = residuals.fPulls.fN >= 50 && (pullWidth > 1.5 || pullWidth < 0.67);
    table.Add({fmt::format(FMT_STRING("{}"), i), Safe(plane.fName), Number(plane.ZMid()),
               view == 0 ? "x" : "y", Count(all.fN), Count(residuals.fWild),
               Marked(WithError(all.Mean(), all.Error(), length.fPerUnit), IsDisplaced(residuals)),
               fmt::format(FMT_STRING("{:.4g}"), all.Width() * length.fPerUnit),
               WithError(residuals.fPulls.Mean(), residuals.fPulls.Error(), 1),
               Marked(fmt::format(FMT_STRING("{:.2f}"), pullWidth), isOddPull),
               slope(residuals.fAlong), slope(residuals.fAcross)});
  }

  void AddWorst() {
    if (fReport.fWorstTracks.empty()) return;
    Section("worst", "Worst tracks");
    fHtml +=
        "<p class=\"soft\">Those with the smallest probability of chi-square; "
        "<code>kelvo report --worst N</code> lists more.</p>\n";
    Table table({"track", "as", "hits", "χ²/ndf", "prob.", "p [GeV/c]", "largest pull"});
    for (const long long entry : fReport.fWorstTracks) {
      const FitRow& row = fRows.at(entry);
      std::string track = fmt::format(FMT_STRING("{}"), row.fTrack);
      if (fFits.HasVectors()) track = "<a href=\"#track-" + track + "\">" + track + "</a>";
      table.Add({track, ParticleWord(row.fPDG), fmt::format(FMT_STRING("{}"), row.fNX + row.fNY),
                 fmt::format(FMT_STRING("{:.4g}/{}"), row.Chi2(), row.fNDF), Probability(row.fProb),
                 Number(row.fP), LargestPull(row)});
    }
    fHtml += table.Html();
  }

  std::string LargestPull(const FitRow& row) const {
    if (!fFits.HasVectors() || row.fPull.empty()) return "–";
    std::size_t largest = 0;
    for (std::size_t i = 0; i < row.fPull.size(); i++)
      if (std::abs(row.fPull[i]) > std::abs(row.fPull[largest])) largest = i;
    return fmt::format(FMT_STRING("{}{:.1f} in {} at z = {:.5g} cm"),
                       row.fPull[largest] < 0 ? "−" : "+",
                       std::abs(static_cast<double>(row.fPull[largest])),
                       row.fHitView[largest] == 0 ? "x" : "y", row.fHitZ[largest]);
  }

  void AddDisplays() {
    if (!fFits.HasVectors()) return;
    Section("displays", "Tracks");
    if (fReport.fFitted == 0) return AddNothing();
    fHtml +=
        "<p class=\"soft\">Tracks with the worst, a typical and the best probability of "
        "chi-square.</p>\n<div class=\"grid tracks\">\n";
    for (const long long entry : fReport.fWorstTracks)
      AddDisplay(entry,
                 "One of the worst: look for a hit of another particle, a decay or a scatter "
                 "that the model does not know.");
    for (const long long entry : fReport.fTypicalTracks)
      AddDisplay(entry,
                 "A typical one: good are hits on both sides of the track and pulls mostly "
                 "within the grey band of 1.");
    for (const long long entry : fReport.fBestTracks)
      AddDisplay(entry,
                 "One of the best: if hits and track agree far better than the error bars "
                 "say, the bars are too long.");
    fHtml += "</div>\n";
  }

  void AddDisplay(long long entry, const char* what) {
    const FitRow& row = fRows.at(entry);
    // Numbers may come again, from another file of hits.
    const std::string id = fmt::format(FMT_STRING("track-{}"), row.fTrack);
    const bool isFirst = fDisplayed.insert(row.fTrack).second;
    fHtml +=
        (isFirst ? "<figure class=\"zoom\" id=\"" + id + "\">\n" : "<figure class=\"zoom\">\n") +
        ZoomButtons() + DrawTrack(fDetector, row).Svg() + "\n<figcaption><p>Largest pull " +
        LargestPull(row) + ".</p><p class=\"soft\">" + what + "</p></figcaption>\n</figure>\n";
  }

  void AddFailures() {
    Section("failures", "Failed tracks");
    if (fReport.fFailures.empty()) {
      fHtml += "<p>None: every track was fitted.</p>\n";
      return;
    }
    fHtml +=
        "<div class=\"wide\"><table>\n<tr><th>reason</th><th>tracks</th><th class=\"text\">"
        "the first of them</th></tr>\n";
    for (const auto& [status, failure] : fReport.fFailures) {
      fHtml += std::string("<tr><td>") + StatusWords(status) +
               fmt::format(FMT_STRING("</td><td>{}</td><td class=\"text\">"), failure.fCount);
      for (const auto& example : failure.fExamples)
        fHtml += fmt::format(FMT_STRING("track {}: "), example.fTrack) +
                 Safe(Cut(example.fMessage)) + "<br>";
      fHtml += "</td></tr>\n";
    }
    fHtml += "</table></div>\n";
  }

  static std::string Cut(const std::string& text) {
    constexpr std::size_t kMax = 300;
    return text.size() <= kMax ? text : text.substr(0, kMax) + " …";
  }

  FitReader& fFits;
  const geo::PlaneDetector* fDetector; // null: not made of planes
  const ReportData& fReport;
  std::map<long long, FitRow> fRows; // of the tracks that are listed or displayed, by entry
  std::string fHtml;                 // what follows the suspicions
  std::vector<Suspicion> fSuspicions;
  unsigned fJudged = 0;           // plots
  std::set<long long> fDisplayed; // tracks
};

} // namespace

void WriteReport(FitReader& fits, const std::string& file, const ReportOptions& options) {
  { const PendingFile isPossible(file); }
  const bool hasSeveral = Option(fits.Text("options"), "hits").find("\", \"") != std::string::npos;
  if (!options.fTruth.empty() && hasSeveral)
    throw FileError(options.fTruth + ": is the truth of one file of hits, but the fits in " +
                    fits.File() + " are of several");
  const auto detector =
      geo::Detector::PlanesOfText(fits.Text("detector"), fits.File() + ", detector");
  const ReportData report = GatherReport(fits, detector.get(), options);
  SavePage(file, Page(fits, detector.get(), report).Html());
}

} // namespace kelvo
