#include "draw/Report.h"

#include "draw/ReportData.h"
#include "draw/ReportPlots.h"
#include "draw/SvgText.h"
#include "draw/TrackDisplay.h"
#include "geo/Detector.h"
#include "io/FileError.h"
#include "io/PendingFile.h"
#include "util/Particles.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <string>

namespace kelvo {

namespace {

// The policy makes browsers refuse whatever the page does not need: scripts, and all that is not in
// the page itself.
constexpr const char* kHead = R"(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="color-scheme" content="light dark">
<style>
:root { --page: #ffffff; --text: #1d1d1f; --soft: #5c5c61; --line: #d4d4d8; --card: #f6f6f7; --link: #0b5ca8 }
@media (prefers-color-scheme: dark) {
  :root { --page: #16181c; --text: #e9e9ec; --soft: #a9a9b2; --line: #3a3d44; --card: #1f2228; --link: #7cc0f5 }
}
* { box-sizing: border-box }
body { margin: 0 auto; max-width: 1360px; padding: 12px; background: var(--page); color: var(--text);
  font: 16px/1.5 system-ui, -apple-system, "Segoe UI", Roboto, "Liberation Sans", Arial, sans-serif }
h1 { font-size: 1.7em; line-height: 1.2; margin: .4em 0 .1em; overflow-wrap: anywhere }
h2 { font-size: 1.3em; margin: 1.8em 0 .5em; padding-top: .5em; border-top: 1px solid var(--line) }
p, li, td.text, dd { overflow-wrap: anywhere }
p { max-width: 46em; margin: .5em 0 }
a { color: var(--link) }
nav a { margin-right: 1em; white-space: nowrap }
.soft { color: var(--soft) }
dl { display: grid; grid-template-columns: max-content 1fr; gap: .3em 1.2em; margin: .6em 0 }
dt { color: var(--soft) }
dd { margin: 0 }
.wide { overflow-x: auto }
table { border-collapse: collapse; font-variant-numeric: tabular-nums }
th, td { padding: .35em .9em .35em 0; text-align: right; border-bottom: 1px solid var(--line); vertical-align: top }
th { font-weight: 600; color: var(--soft) }
th:first-child, td:first-child, td.text, th.text { text-align: left }
td { white-space: nowrap }
td.text { white-space: normal; min-width: 14em }
@media (max-width: 600px) { table { font-size: .8em } th, td { padding-right: .5em } }
pre { background: var(--card); padding: .8em; border-radius: 6px; overflow-x: auto; font-size: .85em;
  white-space: pre-wrap; overflow-wrap: anywhere }
code { overflow-wrap: anywhere }
summary { cursor: pointer; color: var(--link) }
.grid { display: grid; grid-template-columns: repeat(auto-fit, minmax(min(100%, 400px), 1fr)); gap: 18px;
  align-items: start }
figure { margin: 0; background: var(--card); border: 1px solid var(--line); border-radius: 8px; padding: 8px;
  break-inside: avoid }
figure svg { display: block; width: 100%; height: auto; background: #ffffff; border-radius: 4px }
figcaption { margin-top: .6em; font-size: .92em }
figcaption p { margin: .3em 0 }
</style>
)";

std::string Number(double value, const char* unit = "") {
  return std::isfinite(value) ? fmt::format(FMT_STRING("{:.4g}{}"), value, unit) : "–";
}

std::string Probability(double value) {
  return std::isfinite(value) ? fmt::format(FMT_STRING("{:.2g}"), value) : "–";
}

std::string Signed(double value) {
  const std::string text = fmt::format(FMT_STRING("{:.3f}"), std::abs(value));
  return value < 0 && text != "0.000" ? "−" + text : text;
}

std::string Safe(const std::string& text) {
  return Escaped(Printable(text));
}

// As Printable, but lines stay lines.
std::string SafeLines(const std::string& text) {
  std::string safe;
  std::size_t begin = 0;
  while (begin <= text.size()) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    safe += Safe(text.substr(begin, end - begin)) + '\n';
    begin = end + 1;
  }
  return safe;
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

class Page {
public:
  Page(FitReader& fits, const geo::PlaneDetector* detector, const ReportData& report)
      : fFits(fits), fDetector(detector), fReport(report) {}

  std::string Html() {
    AddHead();
    AddRun();
    AddSummary();
    AddPlots();
    AddDisplays();
    AddFailures();
    fHtml += "</body>\n</html>\n";
    return std::move(fHtml);
  }

private:
  void AddHead() {
    const std::string name = Safe(fDetector ? fDetector->Name() : fFits.Text("detector"));
    fHtml = kHead;
    fHtml += "<title>Fit report: " + name + "</title>\n</head>\n<body>\n";
    fHtml += "<h1>Fit report: " + name + "</h1>\n";
    fHtml += fmt::format(FMT_STRING("<p class=\"soft\">{} track{}, {} fitted</p>\n"),
                         fReport.fTracks, fReport.fTracks == 1 ? "" : "s", fReport.fFitted);
    fHtml +=
        "<nav><a href=\"#run\">What was run</a> <a href=\"#summary\">Summary</a> "
        "<a href=\"#plots\">Plots</a> <a href=\"#displays\">Tracks</a> "
        "<a href=\"#failures\">Failed tracks</a></nav>\n";
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
    fHtml += "<dl>\n";
    if (!command.empty()) AddItem("command", "<code>" + Safe(command) + "</code>");
    AddItem("hits from", Safe(Listed(Option(options, "hits"))));
    AddItem("fits in", Safe(fFits.File()));
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
             SafeLines(text) + "</pre></details>\n";
  }

  void AddSummary() {
    Section("summary", "Summary");
    fHtml +=
        "<div class=\"wide\"><table>\n<tr><th>tracks</th><th>number</th><th>fraction</th></tr>\n";
    AddCount("read", fReport.fTracks);
    AddCount("fitted", fReport.fFitted);
    if (fReport.fLeft > 0) AddCount("of these, leave the detector", fReport.fLeft);
    for (const auto& [status, failure] : fReport.fFailures)
      AddCount(std::string("not fitted: ") + StatusWords(status), failure.fCount);
    fHtml +=
        "</table></div>\n<p>The fits, by hypothesis. Chi-square is that of hits and kinks in both "
        "views, prob. the probability of a larger one; the last three columns are medians.</p>\n"
        "<div class=\"wide\"><table>\n<tr><th>as</th><th>fitted</th><th>best</th><th>χ²/ndf</th>"
        "<th>prob.</th><th>p [GeV/c]</th></tr>\n";
    for (const HypothesisReport& hypothesis : fReport.fHypotheses)
      fHtml += "<tr><td>" + ParticleWord(hypothesis.fPDG) +
               fmt::format(FMT_STRING("</td><td>{}</td><td>{}</td><td>"), hypothesis.fFitted,
                           hypothesis.fBest) +
               Number(hypothesis.fChi2PerNDF.Median()) + "</td><td>" +
               Probability(hypothesis.fProb.Median()) + "</td><td>" +
               Number(hypothesis.fMomentum.Median()) + "</td></tr>\n";
    fHtml += "</table></div>\n<p>Median length of the fitted tracks: " +
             Number(fReport.fLength.Median(), " cm") + "</p>\n";
    if (!fFits.HasVectors())
      fHtml +=
          "<p>The file has no hits and planes (it was written with <code>--scalars</code>), so "
          "pulls, kinks, residuals and tracks are not shown.</p>\n";
    else if (!fDetector)
      fHtml +=
          "<p>The detector is a geometry that knows no planes, so residuals by plane and cells "
          "are not shown.</p>\n";
  }

  void AddCount(const std::string& what, unsigned long long count) {
    const double all = static_cast<double>(std::max(fReport.fTracks, 1ull));
    fHtml += "<tr><td>" + what +
             fmt::format(FMT_STRING("</td><td>{}</td><td>{:.4g} %</td></tr>\n"), count,
                         100 * static_cast<double>(count) / all);
  }

  // A plot with what it shows and what a good one looks like.
  void AddPlot(const Picture& picture, const std::string& good, const std::string& found = "") {
    fHtml += "<figure>\n" + picture.Svg() + "\n<figcaption><p>" + good + "</p>";
    if (!found.empty()) fHtml += "<p class=\"soft\">" + found + "</p>";
    fHtml += "</figcaption>\n</figure>\n";
  }

  void AddPlots() {
    Section("plots", "Plots");
    if (fReport.fFitted == 0) return AddNothing();
    fHtml +=
        "<p class=\"soft\">Where nothing else is said, each track counts under its best "
        "hypothesis.</p>\n<div class=\"grid\">\n";
    AddFitQuality();
    AddParticles();
    AddResiduals();
    fHtml += "</div>\n";
  }

  void AddNothing() { fHtml += "<p>No track was fitted.</p>\n"; }

  void AddFitQuality() {
    if (fFits.HasVectors()) {
      const std::array<Gaussian, 2> pulls{FitGaussian(fReport.fPull[0]),
                                          FitGaussian(fReport.fPull[1])};
      AddPlot(DrawViews(fReport.fPull, pulls, "Pulls of the hits", "residual / its uncertainty"),
              "Good: two bells around 0 of width 1; hits at the centres of cells, whose errors are "
              "not Gaussian, make the tops flatter.",
              GaussianText(fReport.fPull, pulls));
    }
    AddPlot(DrawProbability(fReport.fProb),
            "Good: flat, along the dashed line; a peak at 0 means tracks or uncertainties that the "
            "fit does not describe, a rise towards 1 means uncertainties that are too large.");
    if (fReport.HasKinks()) {
      const std::array<Gaussian, 2> kinks{FitGaussian(fReport.fKink[0]),
                                          FitGaussian(fReport.fKink[1])};
      AddPlot(DrawViews(fReport.fKink, kinks, "Kinks over their expected width",
                        "kink / expected width"),
              "Good: around 0 and the same on both sides, narrower than 1, since the hits leave "
              "part of each kink undetermined and the fit then takes the smallest one.",
              GaussianText(fReport.fKink, kinks));
    }
  }

  static std::string GaussianText(const std::array<Histogram, 2>& views,
                                  const std::array<Gaussian, 2>& gaussians) {
    std::string text;
    for (std::size_t v = 0; v < 2; v++) {
      text += v == 0 ? "x view: " : "; y view: ";
      if (gaussians[v].fFitted)
        text += fmt::format(FMT_STRING("width {:.3f} ± {:.3f}, mean "), gaussians[v].fWidth,
                            gaussians[v].fWidthError) +
                Signed(gaussians[v].fMean) +
                fmt::format(FMT_STRING(" ± {:.3f}"), gaussians[v].fMeanError);
      else
        text += "no Gaussian can be fitted";
      if (views[v].Outside() > 0)
        text += fmt::format(FMT_STRING(", {} outside of the plot"), views[v].Outside());
    }
    return text + ".";
  }

  void AddParticles() {
    if (!IsBeam()) AddRanges();
    AddPlot(DrawByHypothesis(fReport, Chi2Of, "Chi-square per degree of freedom",
                             "chi-square / degrees of freedom"),
            "Good: around 1 for the true particle, wider or shifted for the others; fits of 4 and "
            "more count in the last bin.");
    if (fReport.fHypotheses.size() > 1) AddComparison();
  }

  // Both follow from where the particles stop.
  void AddRanges() {
    AddPlot(DrawByHypothesis(fReport, MomentumOf, "Momentum at the first hit", "momentum [GeV/c]"),
            "Good: what the source of the particles gives, without spikes; each track counts for "
            "its best hypothesis.");
    AddPlot(
        DrawByHypothesis(fReport, LengthOf, "Range", "length from the first hit to the end [cm]"),
        "Good: smooth up to the size of the detector; a spike there means particles that left "
        "it instead of stopping.");
  }

  void AddComparison() {
    AddPlot(DrawBestFractions(fReport),
            "Good: as many of each as there are in the source; muon and pion are so close in mass "
            "that they are often taken for each other.");
    AddPlot(DrawByHypothesis(fReport, LeadOf, "Lead of the best hypothesis",
                             "log-likelihood: best minus second best"),
            "Good: far from 0, where the choice is clear; below 1 it is little better than "
            "chance; leads of 6 and more count in the last bin.");
  }

  static const Histogram* MomentumOf(const HypothesisReport& h) {
    return h.fMomentumOfBest.empty() ? nullptr : &h.fMomentumOfBest[0];
  }
  static const Histogram* LengthOf(const HypothesisReport& h) {
    return h.fLengthOfBest.empty() ? nullptr : &h.fLengthOfBest[0];
  }
  static const Histogram* Chi2Of(const HypothesisReport& h) {
    return h.fFitted > 0 ? &h.fChi2 : nullptr;
  }
  static const Histogram* LeadOf(const HypothesisReport& h) {
    return h.fLead.Inside() > 0 ? &h.fLead : nullptr;
  }

  void AddResiduals() {
    if (!fFits.HasVectors() || !fDetector) return;
    for (std::size_t view = 0; view < 2; view++)
      AddPlot(
          DrawResidualsByPlane(fReport, *fDetector, view),
          "Good: all means at 0 within their errors, and a band of even width; a plane off 0 is "
          "displaced.");
    for (std::size_t view = 0; view < 2; view++)
      AddPlot(
          DrawResidualMap(fReport, *fDetector, view),
          "Good: pale nearly everywhere, since a mean is compared with its error; a plane whose "
          "colour changes from end to end is turned or has another pitch than described.");
  }

  void AddDisplays() {
    if (!fFits.HasVectors()) return;
    Section("displays", "Tracks");
    if (fReport.fFitted == 0) return AddNothing();
    fHtml +=
        "<p class=\"soft\">Tracks with the best, a typical and the worst probability of "
        "chi-square.</p>\n<div class=\"grid\">\n";
    const auto add = [this](const std::vector<long long>& entries, std::size_t i,
                            const char* what) {
      if (i < entries.size())
        AddPlot(DrawTrack(fDetector, fFits.Read(entries[i], FitPart::kAll)), what);
    };
    // Side by side on a wide screen.
    for (std::size_t i = 0; i < kTracksOfAKind; i++) {
      add(fReport.fBestTracks, i,
          "One of the best: hits and track agree; if they agree far better than the error bars "
          "say, the bars are too long.");
      add(fReport.fTypicalTracks, i,
          "A typical one: good are hits on both sides of the track and pulls mostly within the "
          "grey band of 1.");
      add(fReport.fWorstTracks, i,
          "One of the worst: look for a hit of another particle, a decay or a scatter that the "
          "model does not know.");
    }
    fHtml += "</div>\n";
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
  std::string fHtml;
};

} // namespace

void WriteReport(FitReader& fits, const std::string& file) {
  { const PendingFile isPossible(file); }
  const auto detector =
      geo::Detector::PlanesOfText(fits.Text("detector"), fits.File() + ", detector");
  const ReportData report = GatherReport(fits, detector.get());
  const std::string html = Page(fits, detector.get(), report).Html();
  PendingFile page(file); // as late as possible, for an interrupted run leaves it behind
  std::ofstream out(page.Partial(), std::ios::binary | std::ios::trunc);
  out << html;
  out.close();
  if (!out) throw FileError(file + ": could not be written completely; is the disk full?");
  page.Commit();
}

} // namespace kelvo
