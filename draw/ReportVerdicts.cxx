#include "draw/ReportVerdicts.h"

#include "draw/Plot.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace kelvo {

namespace {

constexpr unsigned long long kEnough = 50; // entries from which a verdict follows
constexpr double kLow = 0.158655;          // of a Gaussian below minus one width
constexpr double kNarrow = 0.8;
constexpr double kWide = 1.25; // uniform ones, as of cells, have 1.18
constexpr const char* kViewName[] = {"x", "y"};
const Verdict kTooFew{false, "Too few entries for a verdict."};

struct Middle {
  double fMedian;
  double fError; // of the median
  double fWidth; // half of the central 68.3 %
};

Middle MiddleOf(const Histogram& histogram) {
  const double width = (histogram.Quantile(1 - kLow) - histogram.Quantile(kLow)) / 2;
  const double error = 1.2533 * width / std::sqrt(static_cast<double>(histogram.Inside()));
  return {histogram.Quantile(0.5), error, width};
}

std::string Fixed(double value, int digits) {
  const std::string text = fmt::format(FMT_STRING("{:.{}f}"), std::abs(value), digits);
  return value < 0 && text.find_first_not_of("0.") != std::string::npos ? "−" + text : text;
}

std::string SignedText(double value, const char* unit = "") {
  const std::string text = fmt::format(FMT_STRING("{:.3g}{}"), std::abs(value), unit);
  return (value < 0 ? "−" : "+") + text;
}

void AddSentence(Verdict& verdict, const std::string& text, bool isSuspicious = false) {
  if (!verdict.fText.empty()) verdict.fText += ' ';
  verdict.fText += text;
  verdict.fIsSuspicious = verdict.fIsSuspicious || isSuspicious;
}

bool IsOff(const Middle& middle) {
  return std::abs(middle.fMedian) > std::max(0.1, 5 * middle.fError);
}

std::string Middle68(const Histogram& histogram, const Middle& middle) {
  std::string text =
      fmt::format(FMT_STRING("68 % lie within ±{:.2f} of {:.2f}"), middle.fWidth, middle.fMedian);
  if (histogram.Outside() > 0)
    text += fmt::format(FMT_STRING(", {} outside of the plot"), histogram.Outside());
  return text + '.';
}

Verdict Both(const Verdict& one, const Verdict& other) {
  return {one.fIsSuspicious || other.fIsSuspicious, one.fText + ' ' + other.fText};
}

Verdict JudgeKink(const Histogram& kinks, const std::string& name) {
  constexpr double kMax = 1.1;
  if (kinks.Inside() < kEnough) return kTooFew;
  const Middle m = MiddleOf(kinks);
  Verdict verdict;
  AddSentence(verdict, name + Middle68(kinks, m));
  if (m.fWidth > kMax)
    AddSentence(verdict,
                "Wider than 1: there is more material than described, or the momentum is lower.",
                true);
  if (IsOff(m)) AddSentence(verdict, "They are not around 0.", true);
  return verdict;
}

// The planes of which something is told, at most a few of them by name.
class PlaneList {
public:
  void Add(std::size_t plane, const std::string& what) {
    constexpr std::size_t kNamed = 5;
    if (++fCount <= kNamed)
      fText += fmt::format(FMT_STRING("{}plane {} {}"), fText.empty() ? "" : ", ", plane, what);
  }
  bool Empty() const { return fCount == 0; }
  std::string Text() const {
    constexpr std::size_t kNamed = 5;
    return fCount <= kNamed ? fText
                            : fText + fmt::format(FMT_STRING(" and {} more"), fCount - kNamed);
  }

private:
  std::size_t fCount = 0;
  std::string fText;
};

double MedianWidth(const std::vector<PlaneResiduals>& planes) {
  std::vector<double> widths;
  for (const PlaneResiduals& plane : planes)
    if (plane.fAll.fN >= kEnough) widths.push_back(plane.fAll.Width());
  if (widths.empty()) return 0;
  std::nth_element(widths.begin(), widths.begin() + static_cast<std::ptrdiff_t>(widths.size() / 2),
                   widths.end());
  return widths[widths.size() / 2];
}

double SpreadOfCoordinate(const SlopeSum& slope) {
  return std::sqrt(std::max(0., slope.fVV / slope.fN - std::pow(slope.fV / slope.fN, 2)));
}

} // namespace

// Two digits of the error.
std::string WithError(double value, double error, double factor) {
  const double e = error * factor;
  const int digits = e > 0 ? std::clamp(1 - static_cast<int>(std::floor(std::log10(e))), 0, 6) : 3;
  return Fixed(value * factor, digits) + " ± " + Fixed(e, digits);
}

Verdict JudgePull(const Histogram& pulls, const std::string& name) {
  if (pulls.Inside() < kEnough) return kTooFew;
  const Middle m = MiddleOf(pulls);
  Verdict verdict;
  AddSentence(verdict, name + Middle68(pulls, m));
  if (m.fWidth > kWide)
    AddSentence(verdict,
                fmt::format(FMT_STRING("The uncertainties are {:.2g} times too small, or something "
                                       "is not where it is taken to be."),
                            m.fWidth),
                true);
  if (m.fWidth < kNarrow)
    AddSentence(
        verdict,
        fmt::format(FMT_STRING("The uncertainties are {:.2g} times too large."), 1 / m.fWidth),
        true);
  if (IsOff(m)) AddSentence(verdict, "They are not around 0.", true);
  return verdict;
}

Verdict JudgePulls(const std::array<Histogram, 2>& views) {
  return Both(JudgePull(views[0], "x view: "), JudgePull(views[1], "y view: "));
}

Verdict JudgeKinks(const std::array<Histogram, 2>& views) {
  return Both(JudgeKink(views[0], "x view: "), JudgeKink(views[1], "y view: "));
}

Verdict JudgeProbability(const Histogram& probability) {
  constexpr double kMaxSmall = 0.1;  // of the tracks below 0.02
  constexpr double kMaxLarge = 0.75; // above 0.5
  const auto n = static_cast<double>(probability.Inside());
  if (n < kEnough) return kTooFew;
  const std::vector<unsigned long long>& counts = probability.Counts();
  double large = 0;
  for (std::size_t i = counts.size() / 2; i < counts.size(); i++)
    large += static_cast<double>(counts[i]);
  const double small = static_cast<double>(counts.front());
  Verdict verdict;
  AddSentence(verdict, fmt::format(FMT_STRING("{:.3g} % of the tracks are below {:.2g}, of a flat "
                                              "distribution {:.2g} %; {:.3g} % are above 0.5."),
                                   100 * small / n, probability.Edge(1), 100 * probability.Edge(1),
                                   100 * large / n));
  if (small > kMaxSmall * n)
    AddSentence(verdict, "The fit does not describe these tracks, or uncertainties are too small.",
                true);
  if (large > kMaxLarge * n) AddSentence(verdict, "Uncertainties are too large.", true);
  return verdict;
}

Verdict JudgeChi2(const LogHistogram& chi2) {
  constexpr double kMin = 0.6;
  constexpr double kMax = 1.6;
  if (chi2.Entries() < kEnough) return kTooFew;
  const double median = chi2.Median();
  Verdict verdict;
  AddSentence(verdict, fmt::format(FMT_STRING("Median {:.3g}, 90 % are below {:.3g}."), median,
                                   chi2.Quantile(0.9)));
  if (median > kMax || median < kMin)
    AddSentence(verdict,
                fmt::format(FMT_STRING("As if all uncertainties were {:.2g} times too {}."),
                            median > 1 ? std::sqrt(median) : 1 / std::sqrt(median),
                            median > 1 ? "small; displaced or turned planes do the same" : "large"),
                true);
  return verdict;
}

// The neighbours are two bins to each side; the fluctuations of a bin are those of Poisson's law.
Verdict JudgeSpikes(const std::vector<const Histogram*>& histograms, const char* unit) {
  constexpr double kErrors = 6;
  constexpr double kTimes = 3;
  if (histograms.empty()) return kTooFew;
  const Histogram& first = *histograms.front();
  std::vector<double> sum(first.Counts().size());
  double all = 0;
  for (const Histogram* histogram : histograms)
    for (std::size_t i = 0; i < sum.size(); i++) {
      sum[i] += static_cast<double>(histogram->Counts()[i]);
      all += static_cast<double>(histogram->Counts()[i]);
    }
  if (all < kEnough) return kTooFew;
  Verdict verdict;
  double inside = 0;
  std::size_t low = 0;
  for (; inside + sum[low] < 0.05 * all; low++) inside += sum[low];
  std::size_t high = low;
  for (; inside < 0.95 * all; high++) inside += sum[high];
  AddSentence(verdict, fmt::format(FMT_STRING("90 % lie from {:.3g} to {:.3g} {}."),
                                   first.Edge(low), first.Edge(high), unit));
  for (std::size_t i = 2; i + 2 < sum.size(); i++) {
    const double near = (sum[i - 2] + sum[i - 1] + sum[i + 1] + sum[i + 2]) / 4;
    if (sum[i] > kTimes * near && sum[i] - near > kErrors * std::sqrt(near + 1) &&
        sum[i] < 0.5 * all)
      AddSentence(verdict,
                  fmt::format(FMT_STRING("{:.0f} tracks between {:.4g} and {:.4g} {} stick out."),
                              sum[i], first.Edge(i), first.Edge(i + 1), unit),
                  true);
  }
  return verdict;
}

Verdict JudgeLead(const ReportData& report) {
  double all = 0;
  double unclear = 0;
  for (const HypothesisReport& hypothesis : report.fHypotheses) {
    if (!hypothesis.fLeadPlot) continue;
    const Histogram& leads = *hypothesis.fLeadPlot;
    for (std::size_t i = 0; i < leads.Counts().size(); i++) {
      all += static_cast<double>(leads.Counts()[i]);
      if (leads.Edge(i + 1) < 1 + 1e-9) unclear += static_cast<double>(leads.Counts()[i]);
    }
  }
  if (all < kEnough) return kTooFew;
  return {false, fmt::format(FMT_STRING("{:.3g} % of the tracks lead by less than 1, where the "
                                        "choice is little better than chance."),
                             100 * unclear / all)};
}

bool IsDisplaced(const PlaneResiduals& plane) {
  const double mean = std::abs(plane.fAll.Mean());
  return plane.fAll.fN >= kEnough && mean > 5 * plane.fAll.Error() &&
         mean > 0.1 * plane.fAll.Width();
}

bool IsSloped(const SlopeSum& slope, const PlaneResiduals& plane) {
  if (plane.fAll.fN < kEnough) return false;
  const double size = std::abs(slope.Slope());
  return size > 6 * slope.Error() &&
         2 * size * SpreadOfCoordinate(slope) > 0.2 * plane.fAll.Width();
}

Verdict JudgeMeans(const ReportData& report, std::size_t view) {
  constexpr double kMaxWidth = 1.5; // times the middle one of the view
  const std::vector<PlaneResiduals>& planes = report.fResiduals[view];
  const double width = MedianWidth(planes);
  if (width == 0) return kTooFew;
  PlaneList displaced;
  PlaneList wide;
  double max = 0;
  for (std::size_t i = 0; i < planes.size(); i++) {
    const ResidualSum& all = planes[i].fAll;
    if (all.fN < kEnough) continue;
    max = std::max(max, std::abs(all.Mean()));
    const ShownUnit unit = LengthUnitFor(std::max(std::abs(all.Mean()), all.Width()));
    if (IsDisplaced(planes[i]))
      displaced.Add(i, "by " + SignedText(all.Mean() * unit.fPerUnit) + ' ' + unit.fName);
    if (all.Width() > kMaxWidth * width)
      wide.Add(i, fmt::format(FMT_STRING("({:.3g} {})"), all.Width() * unit.fPerUnit, unit.fName));
  }
  const ShownUnit unit = LengthUnitFor(width);
  Verdict verdict;
  AddSentence(verdict,
              fmt::format(FMT_STRING("The middle width is {:.3g} {}, the largest mean "
                                     "{:.2g} {}."),
                          width * unit.fPerUnit, unit.fName, max * unit.fPerUnit, unit.fName));
  if (!displaced.Empty()) AddSentence(verdict, "Displaced: " + displaced.Text() + '.', true);
  if (!wide.Empty()) AddSentence(verdict, "Wider than the others: " + wide.Text() + '.', true);
  return verdict;
}

Verdict JudgeSlopes(const ReportData& report, std::size_t view) {
  const std::vector<PlaneResiduals>& planes = report.fResiduals[view];
  if (MedianWidth(planes) == 0) return kTooFew;
  PlaneList turned;
  PlaneList stretched;
  const auto text = [](const SlopeSum& slope) {
    const ShownUnit unit = AngleUnitFor(std::abs(slope.Slope()));
    return "by " + SignedText(slope.Slope() * unit.fPerUnit) + ' ' + unit.fName;
  };
  for (std::size_t i = 0; i < planes.size(); i++) {
    if (IsSloped(planes[i].fAcross, planes[i])) turned.Add(i, text(planes[i].fAcross));
    if (IsSloped(planes[i].fAlong, planes[i])) stretched.Add(i, text(planes[i].fAlong));
  }
  Verdict verdict;
  const char* own = kViewName[view];
  if (!turned.Empty())
    AddSentence(verdict,
                fmt::format(FMT_STRING("Residuals of {} change with {}: {}, as of planes turned "
                                       "around z."),
                            own, kViewName[1 - view], turned.Text()),
                true);
  if (!stretched.Empty())
    AddSentence(verdict,
                fmt::format(FMT_STRING("Residuals of {} change with {}: {}, as of planes that are "
                                       "tilted or have another pitch, or of a wrong z."),
                            own, own, stretched.Text()),
                true);
  if (verdict.fText.empty())
    verdict.fText = "No residuals change along or across a plane beyond their errors.";
  return verdict;
}

Verdict JudgeTruth(const Deviations& deviations, const char* name, double factor,
                   const char* unit) {
  if (deviations.fValues.size() < kEnough) return kTooFew;
  const Spread spread = SpreadOf(deviations.fValues);
  Verdict verdict;
  AddSentence(verdict, fmt::format(FMT_STRING("{}: resolution {} {}, bias {} {}."), name,
                                   WithError(spread.fWidth, spread.fWidthError, factor), unit,
                                   WithError(spread.fMedian, spread.fMedianError, factor), unit));
  if (std::abs(spread.fMedian) > std::max(0.3 * spread.fWidth, 5 * spread.fMedianError))
    AddSentence(verdict, "The bias is a large part of the resolution.", true);
  return verdict;
}

} // namespace kelvo
