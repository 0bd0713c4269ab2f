#pragma once

#include "geo/DetectorError.h"
#include "geo/GeometryBase.h"
#include "geo/MeanGeometry.h"
#include "geo/PlaneStack.h"

#include <TGeoMaterial.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace geo {

struct DetectorDescription;

/// Equal cells side by side along one axis, in the detector's frame: what a plane measures one
/// coordinate with.
struct CellRow {
  unsigned fCount = 0;    ///< number of cells; 0: the plane does not measure this coordinate
  double fWidth = 0;      ///< of one cell with its walls [cm]
  double fPitch = 0;      ///< from one cell's centre to the next [cm]
  double fFirst = 0;      ///< centre of cell 0 [cm]
  double fLength = 0;     ///< of one cell, along the other axis [cm]
  double fResolution = 0; ///< standard deviation of a measurement [cm]
  double fMiddle = 0;     ///< centre of the cells along the other axis [cm]

  /// Returns the centre of cell i [cm]; not checked: i < fCount.
  double Centre(unsigned i) const { return fFirst + i * fPitch; }

  /// Returns the cell whose centre is nearest to coordinate u [cm], the one above at equal
  /// distance; -1 if u is more than half a pitch outside of the outermost centres, or not a number.
  int Cell(double u) const;
};

/// A plane that measures x, y or both.
struct ActivePlane {
  std::string fName; ///< of the part in the file; equal for all planes of its kind
  CellRow fCells[2]; ///< 0: the cells that measure x; 1: those that measure y
  double fZLow;      ///< upstream face [cm]
  double fZHigh;     ///< downstream face [cm]
  double fOffset[3]; ///< x, y, z [cm]: where the plane is minus where hits assume it to be;
                     ///< what to add to the coordinates of a hit

  double ZMid() const { return 0.5 * (fZLow + fZHigh); } ///< [cm]
  double ZOfHits() const { return ZMid() - fOffset[2]; } ///< where hits assume it to be [cm]
  bool Measures(unsigned view) const { return fCells[view].fCount > 0; } ///< view 0: x, 1: y
  /// Whether a hit at z [cm] may be the plane's: at most half of its depth from its middle, or 1 mm
  /// for thinner ones, whose hits may have the nominal position or the surveyed one.
  bool Holds(double z) const;
  const char* View() const; ///< "X", "Y" or "XY"
};

/// A detector made of planes, slabs and sheets along z, read from a TOML file, whose format
/// docs/detector-file.md explains.
///
///     const auto detector = geo::PlaneDetector::FromFile("detectors/fine.toml");
///     std::vector<double> ds;
///     std::vector<const TGeoMaterial*> mats;
///     detector.MaterialsBetweenPoints(p0, p1, ds, mats);
///
/// Immutable once built: any number of threads may share one. It can be moved, not copied; its
/// materials stay where they are.
class PlaneDetector : public GeometryBase, public MeanGeometry {
public:
  /// Reads a file, or an installed detector by its name, such as "fine".
  /// @throw DetectorError, with file, line, column and field, for whatever is wrong with the file
  static PlaneDetector FromFile(const std::string& file);

  /// Reads the text of a file.
  /// @param text what the file holds
  /// @param file name of the file for the messages
  /// @throw DetectorError as above
  static PlaneDetector FromText(const std::string& text, const std::string& file);

  /// Lists the material steps on the straight way from p0 to p1, in order: lengths above zero that
  /// add up to the distance to 1e-9 of it, neighbouring steps of different materials, the world's
  /// material outside of all parts, no step for a zero distance. Cost: proportional to the layers
  /// and cells on the way; no memory is allocated but for the growth of ds and mats.
  /// @param p0,p1 first and last point: x, y, z [cm]
  /// @param ds    lengths of the steps [cm]; what was in it is dropped
  /// @param mats  material of each step, owned by the detector; what was in it is dropped
  /// @throw std::invalid_argument for a coordinate or distance that is not finite
  void MaterialsBetweenPoints(const double* p0, const double* p1, std::vector<double>& ds,
                              std::vector<const TGeoMaterial*>& mats) const override;

  bool MeanMaterials(const WayPoint* points, std::size_t n,
                     std::vector<MeanSlab>& slabs) const override;

  const std::string& Name() const { return fName; } ///< the name given in the file
  const std::string& Text() const { return fText; } ///< the file, byte for byte

  /// Returns the active planes by increasing z; at least one.
  const std::vector<ActivePlane>& Planes() const { return fPlanes; }

  /// Returns the index of the plane whose mid z is nearest to z [cm], the upstream one at equal
  /// distance. Cost: logarithm of the number of planes.
  unsigned NearestPlane(double z) const;

  /// Returns the plane that measures a view and whose mid z is nearest to z [cm], null without one.
  /// @param view 0: x, 1: y
  const ActivePlane* NearestPlane(double z, unsigned view) const;

  /// Returns the number of the plane of this name, or with this number from 0 as a text; -1 where
  /// there is none, or several of the name.
  int FindPlane(std::string_view nameOrNumber) const;

  /// Returns the boxes of what measures nothing, by increasing z [cm].
  const std::vector<Box>& Slabs() const { return fSlabs; }

  /// Returns the smallest box that holds all parts [cm].
  const Box& Extent() const { return fExtent; }

  /// Returns the materials that are in use, the world's first, then in the order of the file.
  const std::vector<const TGeoMaterial*>& Materials() const { return fUsed; }

  /// Returns their names, in the same order.
  std::vector<std::string> MaterialNames() const;

private:
  explicit PlaneDetector(const DetectorDescription& description);

  std::string fName;
  std::string fText;
  std::vector<std::unique_ptr<TGeoMaterial>> fMaterials; // in the order of the file
  std::vector<const TGeoMaterial*> fUsed;
  std::vector<ActivePlane> fPlanes;
  std::vector<Box> fSlabs;
  PlaneStack fStack;
  Box fExtent;
};

/// How much of one material there is on a way.
struct MaterialThickness {
  const TGeoMaterial* fMaterial;
  double fLength;     ///< [cm]
  double fRadLengths; ///< in units of the radiation length
};

/// Returns what is between two points, one entry per material in the order of first appearance.
/// @param geo   owns the materials
/// @param p0,p1 first and last point: x, y, z [cm]
std::vector<MaterialThickness> ThicknessBetweenPoints(const GeometryBase& geo, const double* p0,
                                                      const double* p1);

} // namespace geo
