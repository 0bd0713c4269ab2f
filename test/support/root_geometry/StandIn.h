#pragma once

#include <TList.h>
#include <TNamed.h>
#include <TObjArray.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

/// A stand-in for ROOT's geometry package where ROOT comes without it: what geo::TGeoDetector asks
/// for, with the package's rules of navigators, threads and ownership, and slabs along z for
/// shapes. A slab "of voxels" is seen only by the manager's current navigator, as in the package.

class TGeoManager;
class TGeoNavigator;
inline TGeoManager* gGeoManager = nullptr;

class TGeoMaterial : public TNamed {
public:
  TGeoMaterial(const char* name, double a, double z, double density, double radLen = 0,
               double intLen = 0);
  ~TGeoMaterial() override { fgAlive--; }
  double GetDensity() const { return fDensity; }
  double GetRadLen() const { return fRadLen; }

  static inline int fgAlive = 0;

private:
  double fDensity;
  double fRadLen;
};

class TGeoMedium {
public:
  explicit TGeoMedium(TGeoMaterial* material) : fMaterial(material) {}
  TGeoMaterial* GetMaterial() const { return fMaterial; }

private:
  TGeoMaterial* fMaterial;
};

class TGeoNode;

/// A slab, or the world with slabs inside.
class TGeoVolume {
public:
  TGeoVolume(TGeoMaterial* material, double from, double to, bool ofVoxels = false)
      : fMedium(material), fFrom(from), fTo(to), fOfVoxels(ofVoxels) {}
  TGeoMedium* GetMedium() const { return &fMedium; }
  bool IsAssembly() const { return false; }
  int GetNdaughters() const { return static_cast<int>(fNodes.size()); }
  TGeoNode* GetNode(int i) const { return fNodes[static_cast<std::size_t>(i)].get(); }
  void AddNode(TGeoVolume* volume);
  bool Contains(double z) const { return z >= fFrom && z < fTo; }

  mutable TGeoMedium fMedium;
  double fFrom, fTo; // cm
  bool fOfVoxels;
  std::vector<std::shared_ptr<TGeoNode>> fNodes;
};

class TGeoNode {
public:
  explicit TGeoNode(TGeoVolume* volume) : fVolume(volume) {}
  TGeoVolume* GetVolume() const { return fVolume; }

private:
  TGeoVolume* fVolume;
};

inline void TGeoVolume::AddNode(TGeoVolume* volume) {
  fNodes.push_back(std::make_shared<TGeoNode>(volume));
}

class TGeoNavigator : public TObject {
public:
  explicit TGeoNavigator(TGeoManager& manager) : fManager(manager) { fgAlive++; }
  ~TGeoNavigator() override { fgAlive--; }
  bool IsOutside() const { return !fNode; }
  TGeoNode* GetCurrentNode() const { return fNode; }
  double GetStep() const { return fStep; }
  TGeoNode* InitTrack(const double* point, const double* direction);
  TGeoNode* FindNextBoundaryAndStep(double max);

  static inline std::atomic<int> fgAlive{0};

private:
  bool Sees(const TGeoVolume& slab) const;
  TGeoNode* NodeAt(double z) const;

  TGeoManager& fManager;
  double fZ = 0, fDz = 0, fStep = 0;
  TGeoNode* fNode = nullptr;
};

class TGeoNavigatorArray : public TObjArray {
public:
  TGeoNavigatorArray() { SetOwner(true); }
  TGeoNavigator* GetCurrentNavigator() const { return fCurrent; }
  TGeoNavigator* SetCurrentNavigator(int i) {
    return fCurrent = static_cast<TGeoNavigator*>(At(i));
  }
  TGeoNavigator* AddNavigator(TGeoManager& manager) {
    Add(fCurrent = new TGeoNavigator(manager));
    return fCurrent;
  }

private:
  TGeoNavigator* fCurrent = nullptr;
};

/// Takes every material for its own, and each navigator.
class TGeoManager : public TNamed {
public:
  enum EDefaultUnits { kG4Units = 0, kRootUnits = 1 };

  explicit TGeoManager(const char* name) : TNamed(name, "") {
    gGeoManager = this;
    fMaterials.SetOwner(true);
  }
  ~TGeoManager() override {
    for (const auto& [thread, array] : fNavigators) delete array;
    gGeoManager = nullptr;
  }

  static EDefaultUnits GetDefaultUnits() { return kRootUnits; }
  static TGeoManager* Import(const char*) { return nullptr; }
  TList* GetListOfMaterials() { return &fMaterials; }
  void SetTopVolume(TGeoVolume* top) {
    fTop = std::make_unique<TGeoNode>(top);
    if (!fCurrent) fCurrent = AddNavigator();
  }
  TGeoVolume* GetTopVolume() const { return fTop ? fTop->GetVolume() : nullptr; }
  TGeoNode* GetTopNode() const { return fTop.get(); }
  void CloseGeometry() { fClosed = true; }
  bool IsClosed() const { return fClosed; }

  TGeoNavigator* AddNavigator() {
    if (fMultiThread) ThreadId();
    TGeoNavigatorArray*& array = fNavigators[std::this_thread::get_id()];
    if (!array) array = new TGeoNavigatorArray;
    return array->AddNavigator(*this);
  }
  TGeoNavigatorArray* GetListOfNavigators() const {
    const auto found = fNavigators.find(std::this_thread::get_id());
    return found == fNavigators.end() ? nullptr : found->second;
  }
  TGeoNavigator* GetCurrentNavigator() const {
    if (!fMultiThread) return fCurrent;
    const TGeoNavigatorArray* own = GetListOfNavigators();
    return own ? own->GetCurrentNavigator() : nullptr;
  }
  bool SetCurrentNavigator(int i) {
    TGeoNavigator* navigator = GetListOfNavigators()->SetCurrentNavigator(i);
    if (!fMultiThread) fCurrent = navigator;
    return navigator;
  }
  void SetMaxThreads(int threads) {
    fMaxThreads = threads + 1;
    fMultiThread = true;
  }
  int GetMaxThreads() const { return fMaxThreads - 1; }
  bool IsMultiThread() const { return fMultiThread; }
  static int ThreadId() {
    static std::atomic<int> threads{0};
    thread_local const int number = threads++;
    return number;
  }

private:
  TList fMaterials;
  std::unique_ptr<TGeoNode> fTop;
  bool fClosed = false;
  bool fMultiThread = false;
  int fMaxThreads = 0;
  std::map<std::thread::id, TGeoNavigatorArray*> fNavigators;
  TGeoNavigator* fCurrent = nullptr;
};

inline TGeoMaterial::TGeoMaterial(const char* name, double a, double z, double density,
                                  double radLen, double intLen)
    : TNamed(name, ""), fDensity(density), fRadLen(std::abs(radLen)) {
  const bool isVacuum = a < 0.9 || z < 0.9;
  // The package asks its manager for the units of a length to be computed, whether it is there or
  // not.
  if (!isVacuum && (radLen >= 0 || intLen >= 0) && !gGeoManager)
    throw std::logic_error("there is no geometry manager to ask");
  fgAlive++;
  if (gGeoManager) gGeoManager->GetListOfMaterials()->Add(this);
}

inline bool TGeoNavigator::Sees(const TGeoVolume& slab) const {
  return !slab.fOfVoxels || fManager.GetCurrentNavigator() == this;
}

inline TGeoNode* TGeoNavigator::NodeAt(double z) const {
  const TGeoVolume& world = *fManager.GetTopVolume();
  if (!world.Contains(z)) return nullptr;
  for (const auto& node : world.fNodes)
    if (Sees(*node->GetVolume()) && node->GetVolume()->Contains(z)) return node.get();
  return fManager.GetTopNode();
}

inline TGeoNode* TGeoNavigator::InitTrack(const double* point, const double* direction) {
  fZ = point[2];
  fDz = direction[2];
  return fNode = NodeAt(fZ);
}

inline TGeoNode* TGeoNavigator::FindNextBoundaryAndStep(double max) {
  fStep = max;
  const auto consider = [this](double edge) {
    const double step = (edge - fZ) / fDz;
    if (step > 0) fStep = std::min(fStep, step);
  };
  const TGeoVolume& world = *fManager.GetTopVolume();
  for (const double edge : {world.fFrom, world.fTo}) consider(edge);
  for (const auto& node : world.fNodes)
    if (Sees(*node->GetVolume()))
      for (const double edge : {node->GetVolume()->fFrom, node->GetVolume()->fTo}) consider(edge);
  // On the other side of the boundary, whatever the rounding.
  const double ahead = std::copysign(1e-12, fDz);
  fZ += fStep * fDz;
  return fNode = NodeAt(fZ + ahead);
}
