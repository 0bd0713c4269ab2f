#include "python/ArrayCalls.h"

#include "matter/Material.h"
#include "track/Materials.h"
#include "track/PathKinematics.h"
#include "util/Text.h"

#include <cstring>

namespace kelvo {

namespace {

constexpr std::size_t kPerHit = 9;

template <typename Struct>
void Put(const Struct& value, double* out) {
  static_assert(sizeof(Struct) % sizeof(double) == 0);
  std::memcpy(out, &value, sizeof value);
}

static_assert(sizeof(KinkPoint) == 5 * sizeof(double));
static_assert(sizeof(KinkResidual) == 7 * sizeof(double));

template <typename Function>
void Transform(const TrackBasis& basis, Function transform, std::size_t n, const double* from,
               double* to) {
  for (const double* const end = from + n; from != end; from++, to++)
    (basis.*transform)(from[0], from[n], from[2 * n], from[3 * n], from[4 * n], from[5 * n], to,
                       to + n, to + 2 * n, to + 3 * n, to + 4 * n, to + 5 * n);
}

} // namespace

std::string ArrayCalls::Version() {
  return KELVO_VERSION;
}

std::vector<std::string> ArrayCalls::MaterialNames() {
  std::vector<std::string> names = MaterialsWithTable();
  for (const std::string& name : matter::MaterialNames()) names.push_back(name);
  return names;
}

std::string ArrayCalls::OtherNames(const std::string& name) {
  return Joined(matter::EverydayNames(name));
}

void ArrayCalls::MaterialNumbers(const std::string& name, double* out) {
  const matter::Material material = matter::Material::Named(name);
  out[0] = material.Density();
  out[1] = material.RadLength();
  out[2] = material.Excitation();
}

void ArrayCalls::VarX(const Lutz& fit, std::size_t n, const double* z, double* out) {
  for (std::size_t i = 0; i < n; i++) out[i] = fit.VarX(z[i]);
}

void ArrayCalls::At(const KinkSmoother& fit, std::size_t n, const double* z, double* out) {
  for (std::size_t i = 0; i < n; i++) Put(fit.At(z[i]), out + 5 * i);
}

void ArrayCalls::Slope(const KinkSmoother& fit, std::size_t n, const double* z, double* out) {
  for (std::size_t i = 0; i < n; i++) out[i] = fit.Slope(z[i]);
}

void ArrayCalls::XFit(const KinkSmoother& fit, double* out) {
  for (unsigned i = 0; i < fit.NMeas(); i++) out[i] = fit.XFit(i);
}

void ArrayCalls::Kink(const KinkSmoother& fit, double* out) {
  for (unsigned j = 0; j < fit.NScat(); j++) out[j] = fit.Kink(j);
}

void ArrayCalls::VarKink(const KinkSmoother& fit, double* out) {
  for (unsigned j = 0; j < fit.NScat(); j++) out[j] = fit.VarKink(j);
}

void ArrayCalls::Residual(const KinkSmoother& fit, double* out) {
  for (unsigned i = 0; i < fit.NMeas(); i++) Put(fit.Residual(i), out + 7 * std::size_t(i));
}

void ArrayCalls::SetHits(HitList3D& hits, std::size_t n, const std::int64_t* view,
                         const double* numbers) {
  hits.clear();
  for (std::size_t i = 0; i < n; i++) {
    const double* v = numbers + kPerHit * i;
    hits.AddHit(view[i] == 0 ? geo::kX : geo::kY, v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7],
                v[8]);
  }
}

void ArrayCalls::GetHits(const HitList3D& hits, std::int64_t* view, double* numbers) {
  for (const Hit3D& hit : hits) {
    *view++ = hit.fView;
    for (const double value :
         {hit.fX, hit.fY, hit.fZ, hit.fT, hit.fSigX, hit.fSigY, hit.fSigZ, hit.fSigT, hit.fW})
      *numbers++ = value;
  }
}

void ArrayCalls::DetToTrk(const TrackBasis& basis, std::size_t n, const double* from, double* to) {
  Transform(basis, &TrackBasis::DetToTrk, n, from, to);
}

void ArrayCalls::TrkToDet(const TrackBasis& basis, std::size_t n, const double* from, double* to) {
  Transform(basis, &TrackBasis::TrkToDet, n, from, to);
}

Path ArrayCalls::MakePath(const geo::GeometryBase& geo, std::size_t n, const double* xyz,
                          double s0) {
  Path path(geo, static_cast<unsigned>(n), s0);
  for (unsigned i = 0; i < n; i++) path.SetPoint(i, xyz + 3 * std::size_t(i));
  return path;
}

void ArrayCalls::X0(const Path& path, std::size_t n, const double* s, double* out) {
  for (std::size_t i = 0; i < n; i++) out[i] = path.X0(s[i]);
}

void ArrayCalls::Params(const Path& path, int pdg, std::size_t n, const double* s, double* out) {
  for (std::size_t i = 0; i < n; i++) {
    const Kinematics k = KinematicsAt(path, pdg, s[i]);
    out[i] = k.fT;
    out[n + i] = k.fP;
    out[2 * n + i] = k.fBeta;
    out[3 * n + i] = k.fGamma;
  }
}

void ArrayCalls::TPBG(std::size_t n, const double* T, double m, double* out) {
  for (std::size_t i = 0; i < n; i++, out++)
    Path::TPBG(T[i], m, out, out + n, out + 2 * n, out + 3 * n);
}

void ArrayCalls::Loss(const dEdxTable& table, std::size_t n, const double* T, double M,
                      double* out) {
  for (std::size_t i = 0; i < n; i++) out[i] = table(T[i], M);
}

} // namespace kelvo
