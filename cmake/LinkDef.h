// What libkelvo's dictionary makes known to ROOT and Python. "+": may be stored in files; "-": is
// only used.

// clang-format off
#ifdef __CLING__

#pragma link off all globals;
#pragma link off all classes;
#pragma link off all functions;

#pragma link C++ namespace kelvo;
#pragma link C++ namespace geo;
#pragma link C++ namespace util;

#pragma link C++ class kelvo::KelvoException-;
#pragma link C++ class kelvo::Lutz-;
#pragma link C++ class kelvo::dEdxTable-;
#pragma link C++ class kelvo::Path-;
#pragma link C++ class kelvo::ScatteringSurfaces-;
#pragma link C++ struct kelvo::Hit3D+;
#pragma link C++ class std::vector<kelvo::Hit3D>+;
#pragma link C++ class kelvo::HitList3D-;
#pragma link C++ class kelvo::TrackBasis-;
#pragma link C++ function gsSortHit3DByZ;
#pragma link C++ function gsSortHit3DByY;
#pragma link C++ function gsDefaultInterp;

#pragma link C++ enum geo::_plane_proj;
#pragma link C++ class geo::GeometryBase-;
#pragma link C++ class geo::DetectorError-;
#pragma link C++ struct geo::CellRow-;
#pragma link C++ struct geo::ActivePlane-;
#pragma link C++ struct geo::Box-;
#pragma link C++ class geo::PlaneDetector-;
#pragma link C++ class geo::Detector-;
#pragma link C++ struct geo::MaterialThickness-;
#pragma link C++ class std::vector<geo::MaterialThickness>-;
#pragma link C++ function geo::ThicknessBetweenPoints;
#ifdef KELVO_HAS_GEOMETRY
#pragma link C++ class geo::TGeoDetector-;
#endif

#pragma link C++ function util::LinFitTS;

#pragma link C++ enum kelvo::KinkStatus;
#pragma link C++ struct kelvo::KinkPoint-;
#pragma link C++ struct kelvo::KinkResidual-;
#pragma link C++ class kelvo::KinkSmoother-;
#pragma link C++ struct kelvo::KinkBatchInput-;
#pragma link C++ struct kelvo::KinkBatchOutput-;
#pragma link C++ class kelvo::KinkSmootherBatch-;
#pragma link C++ enum kelvo::RobustWeight;
#pragma link C++ struct kelvo::RobustOptions-;
#pragma link C++ struct kelvo::RobustResult-;
#pragma link C++ function kelvo::StandardThreshold;
#pragma link C++ function kelvo::RobustWeightFactor;
#pragma link C++ function kelvo::FitRobustly;
#pragma link C++ function kelvo::RejectOutliers;

#pragma link C++ enum kelvo::FitStatus;
#pragma link C++ enum kelvo::TrackEndMode;
#pragma link C++ enum kelvo::OutlierMode;
#pragma link C++ function kelvo::EndMode;
#pragma link C++ function kelvo::EndModeName;
#pragma link C++ function kelvo::OutlierModeOf;
#pragma link C++ function kelvo::OutlierModeName;
#pragma link C++ struct kelvo::TrackFitOptions+;
#pragma link C++ struct kelvo::ViewFit+;
#pragma link C++ struct kelvo::HitFit+;
#pragma link C++ struct kelvo::LineAt+;
#pragma link C++ struct kelvo::PlaceFit+;
#pragma link C++ struct kelvo::CrossedPlane+;
#pragma link C++ struct kelvo::MomentumFromScattering+;
#pragma link C++ struct kelvo::HypothesisFit+;
#pragma link C++ struct kelvo::TrackFit+;
#pragma link C++ class kelvo::TrackFitter-;
#pragma link C++ enum kelvo::ScatteringModel;
#pragma link C++ enum kelvo::HitModel;
#pragma link C++ struct kelvo::SimulationRange-;
#pragma link C++ struct kelvo::SimulationOptions-;
#pragma link C++ struct kelvo::SimulatedHit-;
#pragma link C++ struct kelvo::SimulatedTrack-;
#pragma link C++ class kelvo::Simulator-;
#pragma link C++ function kelvo::AddPlaneOffsets;
#pragma link C++ function kelvo::ErrorSentence;
#pragma link C++ struct kelvo::Particle-;
#pragma link C++ function kelvo::Particles;
#pragma link C++ function kelvo::ParticleCodes;
#pragma link C++ function kelvo::MaterialsWithTable;
#pragma link C++ function kelvo::HasTable;

#endif
