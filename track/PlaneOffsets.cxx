#include "track/PlaneOffsets.h"

namespace kelvo {

void AddPlaneOffsets(const geo::PlaneDetector& detector, HitList3D& hits) {
  for (Hit3D& hit : hits) {
    const double* offset = detector.Planes()[detector.NearestPlane(hit.fZ)].fOffset;
    hit.fX += offset[0];
    hit.fY += offset[1];
    hit.fZ += offset[2];
  }
}

} // namespace kelvo
