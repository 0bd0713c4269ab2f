// A user's program: the line through two points.
#include "func/Lutz.h"

#include <TGeoMaterial.h>

int main() {
  const TGeoMaterial steel("Steel", 55.845, 26, 7.87, -1.7584);
  kelvo::Lutz fit(2, 0);
  fit.SetMeasurement(0, 0, 1, 0.5);
  fit.SetMeasurement(1, 10, 21, 0.5);
  double slope = 0;
  fit.Fit(nullptr, &slope, nullptr, nullptr);
  return slope > 1.999 && slope < 2.001 && steel.GetRadLen() == 1.7584 ? 0 : 1;
}
