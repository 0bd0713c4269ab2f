#pragma once

#include <cstddef>
#include <vector>

class TGeoMaterial;

namespace geo {

struct MeanSlab;
struct WayPoint;

/// What a layer of a PlaneStack is made of: one material throughout, or a row of equal cells.
///
/// A row of n cells fills the layer's box of the first material as gap, cell, gap, ..., cell, gap
/// along x or y. A cell is as long and as deep as the box. It has a wall of the same thickness on
/// all six sides, and the filling inside of it.
struct LayerContent {
  const TGeoMaterial* fMaterial =
      nullptr;         ///< of the whole box, or of what is between the cells; not null
  unsigned fCount = 0; ///< number of cells; 0: one material throughout, nothing below
  unsigned fAxis = 0;  ///< the cells lie side by side along x (0) or y (1)
  double fWidth = 0;   ///< of a cell with its walls, along that axis [cm], > 0
  double fGap = 0;     ///< between cells and at both ends [cm], 0: none
  double fWall = 0;    ///< thickness of the walls [cm], 0: none
  const TGeoMaterial* fWallMaterial = nullptr; ///< null without walls
  const TGeoMaterial* fFilling = nullptr;      ///< not null with cells
};

/// A box with its sides along the axes, from fLow to fHigh [cm].
struct Box {
  double fLow[3] = {};  ///< x, y, z
  double fHigh[3] = {}; ///< x, y, z
};

/// Layers along z in a world of one material, and the exact list of material steps along a
/// straight line through them.
///
/// A point on a boundary belongs to the side of the larger coordinate, so a line along a boundary
/// has one material, the same in both directions. Immutable once built: any number of threads may
/// share one.
class PlaneStack {
public:
  struct Layer {
    Box fBox;
    unsigned fContent = 0; ///< index into the list of contents
  };

  /// @param world    material outside of all layers; not null, not owned
  /// @param contents what layers are made of; the materials are not owned
  /// @param layers   sorted by z and without overlap in z; a layer that touches the next one must
  ///                 end at the very number at which the next one begins
  PlaneStack(const TGeoMaterial* world, std::vector<LayerContent> contents,
             std::vector<Layer> layers);

  /// Lists the material steps on the way from p0 to p1, in order. Neighbouring steps have different
  /// materials, every length is finite and above zero, and their sum is the distance of the points
  /// to 1e-9 of it. Exchanged points give the same numbers in reverse. A stretch of less than
  /// 1e-10 cm counts as part of its neighbour. No step for a zero distance.
  /// @param p0,p1 first and last point: x, y, z [cm]
  /// @param ds    lengths of the steps [cm]; what was in it is dropped
  /// @param mats  material of each step, as long as ds; what was in it is dropped
  /// @throw std::invalid_argument for a coordinate or distance that is not finite
  void Steps(const double* p0, const double* p1, std::vector<double>& ds,
             std::vector<const TGeoMaterial*>& mats) const;

  /// As MeanGeometry::MeanMaterials.
  bool Slabs(const WayPoint* points, std::size_t n, std::vector<MeanSlab>& slabs) const;

  const std::vector<Layer>& Layers() const { return fLayers; } ///< sorted by z

private:
  const TGeoMaterial* fWorld;
  std::vector<LayerContent> fContents;
  std::vector<Layer> fLayers;
  std::vector<double> fZHigh; ///< upper z of each layer [cm], for the search of the first one
  Box fInside;                ///< x and y that are inside of all layers
};

} // namespace geo
