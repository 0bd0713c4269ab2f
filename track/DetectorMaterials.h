#pragma once

#include "geo/GeometryBase.h"
#include "geo/MeanGeometry.h"
#include "geo/MeanSlab.h"
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

/// The materials of a detector as they are met, each checked and tabulated once.
class DetectorMaterials {
public:
  /// @param detector   must outlive this object and its copies
  /// @param hypotheses codes of the particles that tables are wanted for
  /// @param needsLoss  whether a material that nothing is known of is refused; else it takes no
  ///                   energy
  DetectorMaterials(const geo::GeometryBase& detector, std::vector<int> hypotheses, bool needsLoss)
      : fDetector(&detector),
        fMeans(dynamic_cast<const geo::MeanGeometry*>(&detector)),
        fHypotheses(std::move(hypotheses)),
        fNeedsLoss(needsLoss) {}

  /// Lists what lies on a way on average; see geo::MeanGeometry.
  /// @param slabs receives it; what was in it is dropped
  /// @return whether the detector knows
  bool MeanSlabs(const geo::WayPoint* points, std::size_t n,
                 std::vector<geo::MeanSlab>& slabs) const {
    return fMeans && fMeans->MeanMaterials(points, n, slabs);
  }

  /// Adds what lies on a straight line, step by step.
  /// @param from,to x, y and z, of which the latter grows [cm]
  /// @throws GeometryRefusal for the first fault of the detector's answer, and what it throws
  void AddSlabs(const double* from, const double* to, std::vector<geo::MeanSlab>& slabs);

  /// Returns the index of a material that lies on a line.
  /// @throws GeometryRefusal where it cannot be used
  std::size_t Index(const TGeoMaterial* material) {
    for (std::size_t i = 0; i < fMaterials.size(); i++)
      if (fMaterials[i].fMaterial == material) return i;
    return IndexOfNew(material);
  }

  const MaterialData& operator[](std::size_t i) const { return fMaterials[i]; }

private:
  std::size_t IndexOfNew(const TGeoMaterial* material);
  void CheckSteps() const;
  MaterialData Data(const TGeoMaterial& material) const;

  const geo::GeometryBase* fDetector;
  const geo::MeanGeometry* fMeans; // the same, or null
  std::vector<int> fHypotheses;
  bool fNeedsLoss;
  std::vector<MaterialData> fMaterials;
  std::vector<double> fLengths; // of the steps on a line [cm]
  std::vector<const TGeoMaterial*> fStepMaterials;
};

} // namespace kelvo
