// Hits with the coordinate that they do not measure have the bits of the plain program; the frame
// along them turns points there and back.
#include "func/HitList3D.h"
#include "func/KelvoException.h"
#include "func/TrackBasis.h"
#include "test/fuzz/FuzzInput.h"
#include "test/support/HitsReference.h"

#include <algorithm>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Values values(data, size);
  kelvo::HitList3D list;
  const unsigned n = values.Count(30);
  bool isOrdered = true; // an infinite position is at no distance
  for (unsigned i = 0; i < n; i++) {
    const auto view = static_cast<geo::_plane_proj>(values.Count(1));
    double v[9];
    for (double& number : v) number = values.Number();
    isOrdered = isOrdered && std::isfinite(v[2]);
    list.AddHit(view, v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7], v[8]);
  }
  if (!isOrdered) return 0;
  list.SortByZ();
  const reference::HitArrays plain(list);
  list.CompleteOrtho();
  std::vector<double> columns[6];
  bool isNear = true;
  for (std::size_t k = 0; k < list.size(); k++) {
    const kelvo::Hit3D& hit = list[k];
    double coordinate = 0, sigma = 0;
    reference::Complete(plain, k, &coordinate, &sigma);
    const bool isX = hit.fView == geo::kX;
    fuzz::Expect(fuzz::IsSame(isX ? hit.fY : hit.fX, coordinate), "the other coordinate");
    fuzz::Expect(fuzz::IsSame(isX ? hit.fSigY : hit.fSigX, sigma), "its uncertainty");
    const double parts[] = {hit.fX, hit.fY, hit.fZ, hit.fSigX, hit.fSigY, hit.fSigZ};
    for (int c = 0; c < 6; c++) {
      columns[c].push_back(parts[c]);
      isNear = isNear && (parts[c] == 0 || fuzz::IsUsual(parts[c]));
    }
  }
  if (!isNear) return 0; // squares of others leave the range of double
  try {
    kelvo::TrackBasis basis;
    basis.MakeBasis(columns[0], columns[1], columns[2], columns[3], columns[4], columns[5], 0, 0,
                    0);
    double there[6], back[6];
    basis.DetToTrk(1, 2, 3, 0.1, 0.1, 0.1, &there[0], &there[1], &there[2], &there[3], &there[4],
                   &there[5]);
    basis.TrkToDet(there[0], there[1], there[2], 0.1, 0.1, 0.1, &back[0], &back[1], &back[2],
                   &back[3], &back[4], &back[5]);
    const double norm = basis.ZAxis().Mag2();
    if (std::abs(norm - 1) > 1e-6) return 0; // no direction: all hits at one place
    for (int c = 0; c < 3; c++) fuzz::Expect(std::abs(back[c] - (c + 1)) < 1e-6, "there and back");
  } catch (const kelvo::KelvoException&) {
  }
  return 0;
}
