#include "func/dEdxTable.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <limits>
#include <string_view>

namespace kelvo {

/// Muon kinetic energy [GeV], and mass stopping power there [MeV cm2/g] by material.
/// --- tables written by tools/stopping_power/generate.py ---
// clang-format off
constexpr double kGrid[90] = {
    1e-05, 1.26219e-05, 1.59312e-05, 2.01081e-05, 2.53802e-05, 3.20345e-05,
    4.04335e-05, 5.10347e-05, 6.44153e-05, 8.13041e-05, 0.000102621, 0.000129527,
    0.000163487, 0.000206351, 0.000260454, 0.000328741, 0.000414933, 0.000523722,
    0.000661035, 0.00083435, 0.00105311, 0.00132922, 0.00167772, 0.00211759,
    0.0026728, 0.00337357, 0.00425808, 0.00537449, 0.00678361, 0.00856218,
    0.0108071, 0.0136405, 0.0172169, 0.0217309, 0.0274285, 0.0346199,
    0.0436968, 0.0551535, 0.069614, 0.0878659, 0.110903, 0.13998,
    0.176681, 0.223005, 0.281474, 0.355273, 0.44842, 0.56599,
    0.714385, 0.901688, 1.1381, 1.43649, 1.81312, 2.2885,
    2.88851, 3.64584, 4.60173, 5.80825, 7.33109, 9.2532,
    11.6793, 14.7414, 18.6064, 23.4848, 29.6422, 37.414,
    47.2234, 59.6048, 75.2323, 94.9572, 119.854, 151.278,
    190.941, 241.003, 304.191, 383.946, 484.611, 611.67,
    772.041, 974.46, 1229.95, 1552.43, 1959.45, 2473.2,
    3121.63, 3940.09, 4973.12, 6277.01, 7922.76, 10000,
};
constexpr double kScintillator[90] = {
    625.37, 625.141, 610.22, 582.585, 548.627, 507.575,
    460.727, 411.514, 362.908, 317.502, 275.446, 237.44,
    203.651, 173.939, 147.6, 124.668, 104.636, 87.5435,
    72.9925, 60.6649, 50.3317, 41.699, 34.5093, 28.5405,
    23.5999, 19.5213, 16.1625, 13.4027, 11.1403, 9.28975,
    7.77981, 6.55106, 5.55427, 4.74871, 4.10085, 3.58309,
    3.17283, 2.85153, 2.60401, 2.41783, 2.27711, 2.17609,
    2.10876, 2.06872, 2.05046, 2.0492, 2.06086, 2.08205,
    2.10996, 2.1424, 2.17885, 2.2173, 2.25641, 2.29556,
    2.33438, 2.37263, 2.41026, 2.44727, 2.48375, 2.51991,
    2.556, 2.59229, 2.62906, 2.66668, 2.70569, 2.74683,
    2.79103, 2.83952, 2.89386, 2.95606, 3.02861, 3.11472,
    3.21842, 3.34483, 3.50041, 3.69335, 3.93403, 4.23556,
    4.61457, 5.09208, 5.69461, 6.45575, 7.41802, 8.63478,
    10.1737, 12.1202, 14.582, 17.6953, 21.6317, 26.6083,
};
constexpr double kPVC[90] = {
    424.556, 426.33, 418.121, 402.057, 380.783, 354.619,
    324.262, 292.096, 260.04, 229.628, 201.168, 175.142,
    151.723, 130.909, 112.39, 95.9017, 81.3085, 68.6823,
    57.7386, 48.3363, 40.3657, 33.6323, 27.9845, 23.2492,
    19.3059, 16.022, 13.3128, 11.0783, 9.23704, 7.72416,
    6.48557, 5.47401, 4.65107, 3.98441, 3.44721, 3.01727,
    2.6763, 2.40924, 2.20372, 2.04953, 1.93088, 1.84586,
    1.79012, 1.75821, 1.74543, 1.74773, 1.76164, 1.78427,
    1.8132, 1.8465, 1.88409, 1.92359, 1.964, 2.00473,
    2.04536, 2.08564, 2.12548, 2.16482, 2.20376, 2.24249,
    2.28131, 2.32067, 2.36118, 2.40366, 2.4492, 2.49918,
    2.5554, 2.62016, 2.69636, 2.78768, 2.89878, 3.03552,
    3.20529, 3.41742, 3.68375, 4.01927, 4.44294, 4.97872,
    5.65696, 6.51601, 7.60428, 8.98301, 10.7296, 12.9413,
    15.7416, 19.2858, 23.7704, 29.4432, 36.6169, 45.6867,
};
constexpr double kGlue[90] = {
    436.22, 442.344, 438.318, 424.359, 403.738, 379.328,
    349.232, 316.072, 281.948, 249.32, 218.403, 189.912,
    164.166, 141.342, 121.098, 103.311, 87.184, 73.3553,
    61.4308, 51.1857, 42.5767, 35.3589, 29.3237, 24.2963,
    20.1227, 16.6686, 13.818, 11.4713, 9.54423, 7.96558,
    6.67559, 5.62437, 4.77042, 4.07933, 3.52265, 3.07688,
    2.72119, 2.44033, 2.22241, 2.05669, 1.93419, 1.84736,
    1.78978, 1.75596, 1.74115, 1.74126, 1.75282, 1.77291,
    1.79914, 1.82958, 1.86386, 1.90012, 1.93715, 1.97437,
    2.01139, 2.04793, 2.0839, 2.1192, 2.15387, 2.18801,
    2.2218, 2.25552, 2.28953, 2.32434, 2.36061, 2.39917,
    2.44105, 2.48751, 2.54017, 2.60109, 2.67287, 2.75883,
    2.86316, 2.99115, 3.14952, 3.34678, 3.59369, 3.90388,
    4.29458, 4.78763, 5.41056, 6.19822, 7.19473, 8.45547,
    10.0507, 12.0689, 14.6221, 17.8513, 21.9348, 27.0978,
};
constexpr double kSteel[90] = {
    166.621, 173.054, 176.681, 177.944, 176.322, 171.568,
    163.869, 153.938, 142.771, 130.502, 118.099, 105.801,
    93.8621, 82.1472, 72.984, 63.7723, 55.2818, 47.4775,
    40.6667, 34.6532, 29.2846, 24.4571, 20.7757, 17.5254,
    14.7265, 12.3562, 10.3518, 8.68083, 7.28429, 6.11978,
    5.15553, 4.3687, 3.73155, 3.20907, 2.7856, 2.44403,
    2.17498, 1.96034, 1.7941, 1.66847, 1.57685, 1.51361,
    1.47388, 1.45346, 1.44863, 1.45618, 1.47331, 1.49765,
    1.5272, 1.56037, 1.59776, 1.63637, 1.67576, 1.71547,
    1.7552, 1.79481, 1.83432, 1.87383, 1.91362, 1.95409,
    1.99586, 2.03976, 2.08691, 2.13877, 2.19727, 2.26488,
    2.34478, 2.44105, 2.55885, 2.70477, 2.88715, 3.11656,
    3.40638, 3.77349, 4.23926, 4.83072, 5.58209, 6.53659,
    7.74894, 9.28825, 11.2418, 13.7199, 16.8619, 20.8432,
    25.8857, 32.2697, 40.3486, 50.5686, 63.4931, 79.8329,
};
// clang-format on

void dEdxTable::InitScintillator() {
  Select(kGrid, kScintillator, 90, 0.859);
}

void dEdxTable::InitPVC() {
  Select(kGrid, kPVC, 90, 1.49);
}

void dEdxTable::InitGlue() {
  Select(kGrid, kGlue, 90, 1.34);
}

void dEdxTable::InitSteel() {
  Select(kGrid, kSteel, 90, 7.87);
}
// --- end of tables ---

namespace {

/// So thin that a particle loses nothing that matters: 1e-15 GeV/cm at every energy.
constexpr double kVacuumT[2] = {0.01, 800};
constexpr double kVacuum[2] = {1e-6, 1e-6};

/// The tables' own muon mass [GeV], CODATA 2006: the muon energy of equal beta gamma refers to it.
constexpr double kTableMuonMass = 0.1056583568;

/// Logs of many years refer to the warning by this line; it stays when the code moves.
constexpr int kWarningLine = 50;

constexpr double kGeVPerMeV = 0.001;

/// The muon kinetic energy at the beta gamma of a particle of kinetic energy T and mass M. The
/// square of the square root is part of the definition: its rounding is.
double MuonEquivalent(double T, double M) {
  const double r = T / M;
  const double bg = std::sqrt((2 + r) * r);
  return (std::sqrt(bg * bg + 1) - 1) * kTableMuonMass;
}

/// The logarithms that describe one interval of a table: at its lower end, and the differences to
/// its upper end.
struct PowerLaw {
  double fLnT, fLnS, fDLnT, fDLnS;

  /// S [GeV cm2/g] with ln S = (ln x - ln t_i) (ln S_(i+1) - ln S_i) / (ln t_(i+1) - ln t_i)
  /// + ln S_i, for S_i in MeV cm2/g.
  double operator()(double lnX) const {
    return std::exp((lnX - fLnT) * fDLnS / fDLnT + fLnS) * kGeVPerMeV;
  }
};

/// The logarithm that a lookup without tables would take. A compiler may work out that of a
/// constant itself, and need not round it as the mathematics library does.
double RunTimeLog(double x) {
  const volatile double hidden = x;
  return std::log(hidden);
}

/// The law between two neighbouring points of a table.
PowerLaw LawBetween(const double* t, const double* dedx) {
  const double lnT = RunTimeLog(t[0]);
  const double lnS = RunTimeLog(dedx[0]);
  return {lnT, lnS, RunTimeLog(t[1]) - lnT, RunTimeLog(dedx[1]) - lnS};
}

/// The power laws of one table over the intervals of kGrid, and once more of the last one.
using PowerLaws = std::array<PowerLaw, 90>;

PowerLaws LawsOf(const double* dedx) {
  PowerLaws laws;
  for (std::size_t i = 0; i + 1 < laws.size(); i++) laws[i] = LawBetween(kGrid + i, dedx + i);
  laws.back() = laws[laws.size() - 2];
  return laws;
}

/// Which interval of kGrid holds a number, by its leading bits: the exponent and the first two of
/// the fraction. Such a bin is narrower than any interval: at most one point lies in it.
class Bins {
public:
  Bins() {
    std::uint8_t interval = 0;
    for (std::uint64_t bin = 0; bin < kNegative; bin++) {
      while (interval < kLast && kGrid[interval + 1] <= LowerEdge(bin)) interval++;
      fInterval[bin] = interval;
    }
    std::copy(kGrid + 1, kGrid + kLast + 1, fUpper.begin());
    fUpper[kLast] = std::numeric_limits<double>::quiet_NaN(); // nothing lies beyond
  }

  /// Returns the interval that a scan finds; 89 may stand for 88. A NaN and numbers below 0 get
  /// any.
  std::size_t Interval(double x) const {
    std::uint64_t bits = 0;
    std::memcpy(&bits, &x, sizeof bits);
    const std::size_t i = fInterval[bits >> kShift];
    return i + (fUpper[i] <= x ? 1 : 0);
  }

private:
  static constexpr int kShift = 50;
  static constexpr std::uint64_t kNegative = 1 << (63 - kShift); // the first bin with the sign
  static constexpr std::uint8_t kLast = 89;

  static double LowerEdge(std::uint64_t bin) {
    const std::uint64_t bits = bin << kShift;
    double x = 0;
    std::memcpy(&x, &bits, sizeof x);
    return x;
  }

  std::array<std::uint8_t, 2 * kNegative> fInterval{}; // of each bin's lower edge
  std::array<double, kLast + 1> fUpper{};
};

/// What lookups in the constant tables need beside them, ready when the library is loaded.
const Bins kBins;
const PowerLaws kScintillatorLaws = LawsOf(kScintillator);
const PowerLaws kPVCLaws = LawsOf(kPVC);
const PowerLaws kGlueLaws = LawsOf(kGlue);
const PowerLaws kSteelLaws = LawsOf(kSteel);
const PowerLaws kVacuumLaws = [] {
  PowerLaws laws;
  laws.fill(LawBetween(kVacuumT, kVacuum));
  return laws;
}();

/// The laws of the constant table with these stopping powers.
const PowerLaws& Laws(const double* dedx) {
  if (dedx == kScintillator) return kScintillatorLaws;
  if (dedx == kPVC) return kPVCLaws;
  if (dedx == kGlue) return kGlueLaws;
  if (dedx == kSteel) return kSteelLaws;
  return kVacuumLaws;
}

/// The first interval that holds x; the first or last one beyond the ends of the table.
unsigned int FindInterval(double x, const double* t, unsigned int n) {
  if (t[0] >= x) return 0;
  if (x >= t[n - 1]) return n - 2;
  unsigned int i = 0;
  while (i + 2 < n && !(t[i] <= x && t[i + 1] > x)) i++;
  return i;
}

/// Warns of a material without a table, the first ten times in a process. Returns whether it did.
bool WarnsOf(std::string_view material) {
  static int nwarn = 10;
  if (nwarn <= 0) return false;
  nwarn--;
  std::cerr << "func/dEdxTable:" << kWarningLine << " Have no table for material " << material
            << " Defaulting to Vacuum.";
  if (nwarn == 0) std::cerr << " Last warning.";
  std::cerr << std::endl;
  return true;
}

} // namespace

dEdxTable::dEdxTable(const char* material) {
  const std::string_view name = material;
  if (name == "Scintillator")
    InitScintillator();
  else if (name == "PVC")
    InitPVC();
  else if (name == "Steel")
    InitSteel();
  else if (name == "Glue")
    InitGlue();
  else if (name == "Vacuum" || WarnsOf(name))
    InitVac();
}

double dEdxTable::operator()(double T, double M) const {
  return AtMuonEnergy(MuonEquivalent(T, M));
}

double dEdxTable::AtMuonEnergy(double x) const {
  if (fT == nullptr) return 0.0;
  return Laws(fdEdx)[kBins.Interval(x)](std::log(x)) * fDensity;
}

void dEdxTable::Losses(const dEdxTable* tables, const double* T, const double* M, double* loss) {
  constexpr int kN = 3;
  double x[kN];
  for (int k = 0; k < kN; k++) x[k] = MuonEquivalent(T[k], M[k]);
  for (int k = 0; k < kN; k++) loss[k] = tables[k].AtMuonEnergy(x[k]);
}

double dEdxTable::Interp(double T, double M, const double* t, const double* dedx,
                         unsigned int n) const {
  const double x = MuonEquivalent(T, M);
  const unsigned int i = FindInterval(x, t, n);
  return LawBetween(t + i, dedx + i)(std::log(x));
}

double dEdxTable::TtoBetaGamma(double T, double M) const {
  const double r = T / M;
  return std::sqrt((2 + r) * r);
}

double dEdxTable::BetaGammaToT(double bg, double M) const {
  return (std::sqrt(bg * bg + 1) - 1) * M;
}

void dEdxTable::InitVac() {
  Select(kVacuumT, kVacuum, 2, 1e-6);
}

void dEdxTable::Select(const double* t, const double* dedx, unsigned int n, double density) {
  fN = n;
  fT = t;
  fdEdx = dedx;
  fDensity = density;
}

} // namespace kelvo
