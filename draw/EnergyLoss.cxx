#include "draw/EnergyLoss.h"

#include "draw/ParticleLine.h"
#include "draw/Plot.h"
#include "track/MaterialLoss.h"

#include <algorithm>
#include <cmath>

namespace kelvo {

namespace {

constexpr double kMeV = 1e-3; // GeV

// Kinetic energy of the minimum loss: there is one between beta gamma 1 and 20, which golden
// section finds (W. H. Press et al., Numerical Recipes, 3rd ed., section 10.2).
double EnergyOfMinimumLoss(const MaterialLoss& loss, double mass) {
  const double kGolden = (std::sqrt(5.) - 1) / 2;
  double low = std::log(1.);
  double high = std::log(20.);
  const auto energy = [mass](double lnBetaGamma) {
    return mass * (std::hypot(1, std::exp(lnBetaGamma)) - 1);
  };
  while (high - low > 1e-9) {
    const double a = high - kGolden * (high - low);
    const double b = low + kGolden * (high - low);
    if (loss(energy(a)) < loss(energy(b)))
      high = b;
    else
      low = a;
  }
  return energy((low + high) / 2);
}

const char* ColourOf(std::size_t i) {
  static const char* const colours[] = {colour::kBlue, colour::kVermillion, colour::kGreen,
                                        colour::kPurple};
  return colours[i % std::size(colours)];
}

// Draws two plots of the same curves.
class Drawing {
public:
  Drawing(const std::vector<EnergyLossCurve>& curves, Picture& picture)
      : fCurves(curves), fPicture(picture) {
    for (const EnergyLossCurve& curve : curves) {
      const auto known = std::find(fMaterials.begin(), fMaterials.end(), curve.fMaterial);
      if (known == fMaterials.end()) fMaterials.push_back(curve.fMaterial);
    }
  }

  void Draw() {
    fPicture.Text({12, 34}, "Mean energy loss and range", {28, colour::kText, Align::kLeft, true});
    double y = 74;
    y += DrawLegend(fPicture, {12, y}, kRight, Legend()) + 24;
    DrawCurves(y, "energy loss [MeV/cm]", &EnergyLossPoint::fLoss, true);
    y += kPlotHeight + 110;
    DrawCurves(y, "range [cm]", &EnergyLossPoint::fRange, false);
    fPicture.SetHeight(y + kPlotHeight + 66);
  }

  static constexpr double kWidth = 640; // pixels

private:
  static constexpr double kLeft = 86;
  static constexpr double kRight = kWidth - 20;
  static constexpr double kPlotHeight = 380;

  std::size_t Index(const EnergyLossCurve& curve) const {
    const auto at = std::find(fMaterials.begin(), fMaterials.end(), curve.fMaterial);
    return static_cast<std::size_t>(at - fMaterials.begin());
  }

  std::vector<LegendEntry> Legend() const {
    std::vector<LegendEntry> entries;
    for (std::size_t i = 0; i < fMaterials.size(); i++)
      entries.push_back({LegendEntry::kLine, fMaterials[i], ColourOf(i), {}, {"", 3}});
    for (const Particle& particle : Particles())
      for (const EnergyLossCurve& curve : fCurves)
        if (curve.fParticle.fPDG == particle.fPDG) {
          entries.push_back({LegendEntry::kLine,
                             particle.fWord,
                             colour::kText,
                             {},
                             {"", 3, ParticleLine(particle.fPDG).fDash}});
          break;
        }
    entries.push_back({LegendEntry::kMark, "minimum loss", colour::kText, Mark::kCircle});
    return entries;
  }

  // The smallest whole decades that hold all curves.
  Axis Decades(double EnergyLossPoint::*value, const std::string& title) const {
    double low = fCurves[0].fPoints[0].*value;
    double high = low;
    for (const EnergyLossCurve& curve : fCurves)
      for (const EnergyLossPoint& point : curve.fPoints) {
        low = std::min(low, point.*value);
        high = std::max(high, point.*value);
      }
    Axis axis{std::pow(10, std::floor(std::log10(low) + 1e-9)),
              std::pow(10, std::ceil(std::log10(high) - 1e-9)), title};
    axis.fLog = true;
    return axis;
  }

  void DrawCurves(double top, const std::string& title, double EnergyLossPoint::*value,
                  bool markMinimum) {
    Plot plot(fPicture, {kLeft, top}, {kRight, top + kPlotHeight},
              Decades(&EnergyLossPoint::fT, "kinetic energy [GeV]"), Decades(value, title));
    for (const EnergyLossCurve& curve : fCurves) {
      std::vector<Point> points;
      for (const EnergyLossPoint& point : curve.fPoints) points.push_back({point.fT, point.*value});
      const char* colour = ColourOf(Index(curve));
      plot.Line(points, {colour, 2, ParticleLine(curve.fParticle.fPDG).fDash});
      const EnergyLossPoint& minimum = curve.fPoints[curve.fMinimum];
      if (markMinimum) plot.Marks({{minimum.fT, minimum.*value}}, {Mark::kCircle, colour, 14});
    }
    plot.DrawAxes();
  }

  const std::vector<EnergyLossCurve>& fCurves;
  Picture& fPicture;
  std::vector<std::string> fMaterials;
};

} // namespace

EnergyLossCurve FindEnergyLoss(const std::string& material, const Particle& particle,
                               const std::vector<double>& energies) {
  const matter::Material matter = matter::Material::Named(material);
  const MaterialLoss loss(matter, particle.fPDG);
  const matter::RangeTable range = MakeRangeTable(matter, particle.fPDG);
  const double mass = particle.fMass;
  const double minimumT = EnergyOfMinimumLoss(loss, mass);
  std::vector<double> all = energies;
  all.insert(std::lower_bound(all.begin(), all.end(), minimumT), minimumT);
  EnergyLossCurve curve{material, particle, {}, 0};
  for (const double t : all) {
    const double p = std::sqrt(t * (t + 2 * mass));
    curve.fPoints.push_back({t, p, p / mass, loss(t) / kMeV, range.Range(t)});
    if (t == minimumT) curve.fMinimum = curve.fPoints.size() - 1;
  }
  return curve;
}

Picture DrawEnergyLoss(const std::vector<EnergyLossCurve>& curves) {
  Picture picture(Drawing::kWidth, 0, "Mean energy loss and range against kinetic energy");
  Drawing(curves, picture).Draw();
  return picture;
}

} // namespace kelvo
