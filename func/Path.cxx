#include "func/Path.h"

#include "func/KelvoException.h"
#include "func/dEdxTable.h"
#include "geo/GeometryBase.h"

#include <TGeoMaterial.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace kelvo {

namespace {

constexpr const char* kFile = "func/Path";

constexpr const char* kVacuum = "Vacuum";
constexpr double kVacuumRadLength = 1e30; // cm; so that vacuum adds nothing
constexpr double kMaxSubStep = 10.0;      // cm; keeps the midpoint rule accurate in dense material
constexpr double kLookupClamp = -0.05;  // in units of the table; what extrapolation may undershoot
constexpr double kEnergyClamp = -1e-5;  // GeV
constexpr std::size_t kStepsPerLeg = 4; // to begin with; more make room for themselves

/// Masses and the 1% of them that is left at the end [GeV]; muon, pion, proton. Masses: Particle
/// Data Group, rounded as the tables' users expect them.
constexpr double kMass[3] = {0.105658, 0.13957, 0.938272};
constexpr double kEndEnergy[3] = {0.00105658, 0.0013957, 0.00938272};

/// The smallest power of two of sub-steps that makes each 10 cm or less. No number does so for an
/// infinite step, and an int ends at 10^10 cm, beyond any detector.
int NumberOfSubSteps(double ds) {
  if (std::isinf(ds)) return 1;
  int n = 1;
  while (ds / n > kMaxSubStep && n < (1 << 30)) n *= 2;
  return n;
}

/// One midpoint step of dT/ds = dE/dx(T) against the direction of motion.
double MidpointStep(const dEdxTable& table, double h, double m, double T) {
  const double mid = T + (h / 2) * table(T, m);
  return T + h * table(mid, m);
}

/// Makes room for n more entries at once, and as push_back does for more legs to come.
void MakeRoom(std::vector<double>& table, std::size_t n) {
  const std::size_t needed = table.size() + n;
  if (needed > table.capacity()) table.reserve(std::max(needed, 2 * table.capacity()));
}

double Clamped(double y) {
  if (y >= 0) return y;
  if (y > kLookupClamp) return 0;
  if (std::isnan(y)) return y;
  throw KelvoException(kFile, __LINE__, kBadKE, y);
}

double OnLine(std::size_t i, double x, const std::vector<double>& xs,
              const std::vector<double>& ys) {
  return Clamped(ys[i] + (ys[i + 1] - ys[i]) * (x - xs[i]) / (xs[i + 1] - xs[i]));
}

/// The interval of x, found by walking from the given one. Because xs does not decrease, the
/// interval with xs[i] <= x < xs[i+1] is the only one, so the start does not matter.
std::size_t FindInterval(double x, const std::vector<double>& xs, std::size_t start) {
  if (xs.size() < 2) throw KelvoException(kFile, __LINE__, kIndexProblem, 0.0);
  if (std::isnan(x)) throw KelvoException(kFile, __LINE__, kNaN, x);
  const std::size_t last = xs.size() - 1;
  if (xs[0] > x) return 0;
  if (x >= xs[last]) return last - 1;
  std::size_t i = std::min(start, last - 1);
  while (i > 0 && xs[i] > x) i--;
  while (i + 1 < last && xs[i + 1] <= x) i++;
  return i;
}

} // namespace

Path::Path(const geo::GeometryBase& geo, const double* p0, const double* p1, double s0)
    : fGeo(geo), fX{TVector3(p0), TVector3(p1)}, fS0(s0), fIsIntegrated(false) {}

Path::Path(const geo::GeometryBase& geo, unsigned int n, double s0)
    : fGeo(geo), fX(n), fS0(s0), fIsIntegrated(false) {}

Path::Path(const geo::GeometryBase& geo, const std::vector<TVector3>& x, double s0)
    : fGeo(geo), fX(x), fS0(s0), fIsIntegrated(false) {}

void Path::SetPoint(unsigned int i, const double* xyz) {
  fX[i].SetXYZ(xyz[0], xyz[1], xyz[2]);
  fIsIntegrated = false;
}

bool Path::ScrubOne(double eps) {
  if (fX.size() < 3) return false;
  for (std::size_t i = 1; i < fX.size(); i++) {
    const double dx = fX[i - 1].X() - fX[i].X();
    const double dy = fX[i - 1].Y() - fX[i].Y();
    const double dz = fX[i - 1].Z() - fX[i].Z();
    if (dx * dx + dy * dy + dz * dz < eps) {
      fX.erase(fX.begin() + static_cast<std::ptrdiff_t>(i));
      fIsIntegrated = false;
      return true;
    }
  }
  return false;
}

unsigned int Path::Scrub(double eps) {
  unsigned int count = 0;
  while (ScrubOne(eps)) count++;
  return count;
}

double Path::Interp(double x, const std::vector<double>& xs, const std::vector<double>& ys) {
  return OnLine(FindInterval(x, xs, 0), x, xs, ys);
}

void Path::Integrate() const {
  fIsIntegrated = false;
  for (auto* table : {&fS, &fX0, &fTmu, &fTpi, &fTp}) {
    table->clear();
    table->reserve(kStepsPerLeg * fX.size());
  }

  double s = 0;
  double nx0 = 0;
  double T[3] = {kEndEnergy[0], kEndEnergy[1], kEndEnergy[2]};
  fS.push_back(s);
  fX0.push_back(nx0);
  fTmu.push_back(T[0]);
  fTpi.push_back(T[1]);
  fTp.push_back(T[2]);

  for (std::size_t i = fX.size(); i-- > 1;) {
    double later[3];
    double earlier[3];
    fX[i].GetXYZ(later);
    fX[i - 1].GetXYZ(earlier);
    IntegrateLeg(later, earlier, &s, &nx0, &T[0], &T[1], &T[2]);
  }

  for (auto* table : {&fS, &fX0, &fTmu, &fTpi, &fTp}) std::reverse(table->begin(), table->end());
  for (double& entry : fS) entry = s - entry;
  for (double& entry : fX0) entry = nx0 - entry;
  fIsIntegrated = true;
}

void Path::IntegrateLeg(const double* p0, const double* p1, double* s, double* nx0, double* Tmu,
                        double* Tpi, double* Tp) const {
  fSteps.clear();
  fMaterials.clear();
  fGeo.MaterialsBetweenPoints(p0, p1, fSteps, fMaterials);
  for (auto* table : {&fS, &fX0, &fTmu, &fTpi, &fTp}) MakeRoom(*table, fSteps.size());
  for (std::size_t k = 0; k < fSteps.size(); k++) {
    const double ds = fSteps[k];
    *s += ds;
    const char* name = fMaterials[k]->GetName();
    double radLength = fMaterials[k]->GetRadLen();
    if (std::strcmp(name, kVacuum) == 0)
      radLength = kVacuumRadLength;
    else if (radLength <= 0)
      throw KelvoException(kFile, __LINE__, kBadRadLength, radLength);
    *nx0 += ds / radLength;

    double T[3] = {*Tmu, *Tpi, *Tp};
    IntegrateStep(ds, name, T);
    *Tmu = T[0];
    *Tpi = T[1];
    *Tp = T[2];

    fS.push_back(*s);
    fX0.push_back(*nx0);
    fTmu.push_back(*Tmu);
    fTpi.push_back(*Tpi);
    fTp.push_back(*Tp);
  }
}

/// Each hypothesis has a table of its own: names without one may get different ones.
void Path::IntegrateStep(double ds, const char* material, double* T) {
  const int n = NumberOfSubSteps(ds);
  const double h = ds / n;
  const dEdxTable tables[3] = {dEdxTable(material), dEdxTable(material), dEdxTable(material)};
  for (int step = 0; step < n; step++) {
    double loss[3];
    double mid[3];
    dEdxTable::Losses(tables, T, kMass, loss);
    for (int k = 0; k < 3; k++) mid[k] = T[k] + (h / 2) * loss[k];
    dEdxTable::Losses(tables, mid, kMass, loss);
    for (int k = 0; k < 3; k++) T[k] = T[k] + h * loss[k];
  }
}

double Path::IntegrateT(double ds, const char* material, double m, double T0) const {
  const int n = NumberOfSubSteps(ds);
  const double h = ds / n;
  const dEdxTable table(material);
  double T = T0;
  for (int step = 0; step < n; step++) T = MidpointStep(table, h, m, T);
  return T;
}

void Path::TPBG(double T, double m, double* Tout, double* p, double* beta, double* gamma) {
  if (T < 0) {
    if (!(T > kEnergyClamp)) throw KelvoException(kFile, __LINE__, kBadKE, T);
    T = 0;
  }
  const double E = T + m;
  const double P = E * std::sqrt(1 - (m / E) * (m / E));
  if (Tout) *Tout = T;
  if (p) *p = P;
  if (beta) *beta = P / E;
  if (gamma) *gamma = E / m;
}

double Path::X0(double s) const {
  if (!fIsIntegrated) Integrate();
  return Lookup(s, fX0);
}

double Path::Length() const {
  if (!fIsIntegrated) Integrate();
  return fS.back();
}

TVector3 Path::Dir(double s) {
  if (!fIsIntegrated) Integrate();
  const double u = s - fS0;
  std::size_t i = 0;
  while (i + 1 < fS.size() && !(fS[i] <= u && u <= fS[i + 1])) i++;
  if (i + 1 >= fS.size() || fX.size() < 2) return TVector3(0, 0, 1);
  i = std::min(i, fX.size() - 2);
  const TVector3 d = fX[i + 1] - fX[i];
  const double length = d.Mag();
  if (length == 0) throw KelvoException(kFile, __LINE__, kTrackingFailure, 0.0);
  return d * (1 / length);
}

void Path::MuonParams(double s, double* T, double* p, double* beta, double* gamma) const {
  if (!fIsIntegrated) Integrate();
  TPBG(Lookup(s, fTmu), kMass[0], T, p, beta, gamma);
}

void Path::PionParams(double s, double* T, double* p, double* beta, double* gamma) const {
  if (!fIsIntegrated) Integrate();
  TPBG(Lookup(s, fTpi), kMass[1], T, p, beta, gamma);
}

void Path::ProtonParams(double s, double* T, double* p, double* beta, double* gamma) const {
  if (!fIsIntegrated) Integrate();
  TPBG(Lookup(s, fTp), kMass[2], T, p, beta, gamma);
}

double Path::Lookup(double s, const std::vector<double>& ys) const {
  const double x = s - fS0;
  const std::size_t i = FindInterval(x, fS, fHint.fInterval.load(std::memory_order_relaxed));
  fHint.fInterval.store(i, std::memory_order_relaxed);
  return OnLine(i, x, fS, ys);
}

} // namespace kelvo
