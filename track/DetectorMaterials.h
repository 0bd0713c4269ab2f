#pragma once

#include "geo/GeometryBase.h"
#include "matter/RangeTable.h"

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace kelvo {

/// Thrown by DetectorMaterials where the detector's answer cannot be used.
struct GeometryRefusal {
  std::string fMessage; ///< one sentence without full stop
};

/// What a fit has to know of one material.
struct MaterialData {
  const TGeoMaterial* fMaterial;
  double fRadLen;  ///< radiation lengths per length [1/cm]; 0: it does not scatter
  double fMipLoss; ///< energy loss of a muon of beta gamma 3 [GeV/cm]; 0: it takes no energy
  double fXi;      ///< Landau's xi per length for beta = 1 [GeV/cm]
  std::vector<matter::RangeTable> fTables; ///< one per hypothesis; empty where it takes no
                                           ///< energy
};

/// A piece of one material on a straight line.
struct MaterialStep {
  std::size_t fMaterial; ///< its index in DetectorMaterials
  double fLength;        ///< along z [cm]
};

/// The materials of a detector as they are met, each checked and tabulated once.
class DetectorMaterials {
public:
  /// @param detector   must outlive this object and its copies
  /// @param hypotheses codes of the particles that tables are wanted for
  /// @param needsLoss  whether a material that nothing is known of is refused; else it takes no
  ///                   energy
  DetectorMaterials(const geo::GeometryBase& detector, std::vector<int> hypotheses, bool needsLoss)
      : fDetector(&detector), fHypotheses(std::move(hypotheses)), fNeedsLoss(needsLoss) {}

  /// Lists what there is between two points [cm], in order.
  /// @param p0 three coordinates
  /// @param p1 three coordinates, its z above that of p0
  /// @throws GeometryRefusal for the first fault of the detector's answer, and what it throws
  const std::vector<MaterialStep>& Steps(const double* p0, const double* p1);

  const MaterialData& operator[](std::size_t i) const { return fMaterials[i]; }

private:
  std::size_t Index(const TGeoMaterial* material);
  MaterialData Data(const TGeoMaterial& material) const;

  const geo::GeometryBase* fDetector;
  std::vector<int> fHypotheses;
  bool fNeedsLoss;
  std::vector<MaterialData> fMaterials;
  std::vector<MaterialStep> fSteps;
  std::vector<double> fLengths;                // scratch [cm]
  std::vector<const TGeoMaterial*> fOfLengths; // scratch
};

} // namespace kelvo
