#include "geo/TGeoDetector.h"

#include "geo/OwnMaterial.h"
#include "util/Text.h"

#include <TError.h>
#include <TGeoManager.h>
#include <TGeoMedium.h>
#include <TGeoNavigator.h>
#include <TGeoNode.h>
#include <TGeoVolume.h>
#include <TObjArray.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <mutex>
#include <set>
#include <shared_mutex>
#include <stdexcept>

namespace geo {

namespace {

constexpr double kEmpty = 1e-15; // g/cm3; the interstellar gas of simulations has 1e-25
constexpr double kTiny = 1e-10;  // cm; shorter steps count as part of their neighbour
constexpr double kStuck = 1e-8;  // cm, the size of an atom; shorter steps may be no progress
constexpr double kPush = 1e-9;   // cm; first push over a boundary that is not crossed
constexpr int kMaxThreads = 256;

// Held by whoever walks; held alone by whoever adds a navigator, which changes the manager. Of the
// process, since ROOT holds one geometry at a time and several detectors may stand on it.
std::shared_mutex gWalks;

bool IsEmpty(const TGeoMaterial& material) {
  return material.GetDensity() < kEmpty;
}

TGeoManager& Checked(TGeoManager& manager) {
  const std::string name = std::string("the geometry \"") + manager.GetName() + "\" ";
  if (&manager != gGeoManager)
    throw DetectorError(name + "is not ROOT's current one (gGeoManager); make it the only one");
  if (!manager.IsClosed())
    throw DetectorError(name + "is not closed; call its function CloseGeometry first");
  if (TGeoManager::GetDefaultUnits() != TGeoManager::kRootUnits)
    throw DetectorError(name +
                        "counts in mm; call TGeoManager::SetDefaultUnits with "
                        "TGeoManager::kRootUnits before it is made or read");
  return manager;
}

const TGeoMaterial* MaterialOf(const TGeoVolume& volume) {
  const TGeoMedium* medium = volume.GetMedium();
  return medium ? medium->GetMaterial() : nullptr;
}

void AddMaterials(const TGeoVolume& volume, std::set<const TGeoVolume*>& seen,
                  std::vector<std::string>& names) {
  if (!seen.insert(&volume).second) return;
  const TGeoMaterial* material = MaterialOf(volume);
  // An assembly has no matter of its own.
  if (material && !volume.IsAssembly() && !IsEmpty(*material) &&
      std::find(names.begin(), names.end(), material->GetName()) == names.end())
    names.emplace_back(material->GetName());
  for (int i = 0; i < volume.GetNdaughters(); i++)
    AddMaterials(*volume.GetNode(i)->GetVolume(), seen, names);
}

/// Volumes of one material may have records of their own, as GDML files often have them.
bool AreSame(const TGeoMaterial& a, const TGeoMaterial& b) {
  return &a == &b || std::strcmp(a.GetName(), b.GetName()) == 0;
}

/// Collects steps: tiny ones are added to a neighbour, and those of one material to each other.
class StepList {
public:
  StepList(std::vector<double>& ds, std::vector<const TGeoMaterial*>& mats)
      : fDs(ds), fMats(mats) {}

  void Add(double length, const TGeoMaterial* material) {
    fSum += length;
    if (!fMats.empty() && (length < kTiny || AreSame(*fMats.back(), *material))) {
      fDs.back() += length;
    } else if (length < kTiny) {
      fBefore += length;
      fFirst = material;
    } else {
      fDs.push_back(length + fBefore);
      fMats.push_back(material);
      fBefore = 0;
    }
  }

  /// Makes the lengths add up to the distance; what is missing are rounding errors.
  void Close(double distance) {
    if (fMats.empty()) {
      fDs.push_back(distance);
      fMats.push_back(fFirst);
    } else {
      fDs.back() += distance - fSum;
    }
  }

private:
  std::vector<double>& fDs;
  std::vector<const TGeoMaterial*>& fMats;
  double fSum = 0;
  double fBefore = 0;                   // length of tiny steps before the first other one
  const TGeoMaterial* fFirst = nullptr; // the material of the last of them
};

/// A straight way, from one boundary to the next.
class Walk {
public:
  Walk(TGeoNavigator& navigator, const double* p0, const double* p1, double distance)
      : fNavigator(navigator), fDistance(distance) {
    for (int i = 0; i < 3; i++) {
      fStart[i] = p0[i];
      fDirection[i] = (p1[i] - p0[i]) / distance;
    }
    StartAt(0);
  }

  const TGeoNavigator& Navigator() const { return fNavigator; }
  bool AtEnd() const { return fDone >= fDistance; }

  /// Goes on to the next boundary, or to the end, and returns the length.
  double Step() {
    const double left = fDistance - fDone;
    fNavigator.FindNextBoundaryAndStep(left);
    double step = std::clamp(fNavigator.GetStep(), 0.0, left);
    if (step > kStuck) {
      fPush = kPush;
    } else if (step < left) {
      // On an edge, or where volumes touch badly, ROOT may find the same boundary again and again:
      // start anew behind it, further and further until it lets go.
      step = std::min(step + fPush, left);
      fPush *= 2;
      StartAt(fDone + step);
    }
    fDone += step;
    return step;
  }

private:
  void StartAt(double s) {
    const double point[] = {fStart[0] + s * fDirection[0], fStart[1] + s * fDirection[1],
                            fStart[2] + s * fDirection[2]};
    fNavigator.InitTrack(point, fDirection);
  }

  TGeoNavigator& fNavigator;
  double fStart[3] = {};
  double fDirection[3] = {};
  double fDistance;
  double fDone = 0;
  double fPush = kPush;
};

/// A file under a name of which ROOT can make nothing else: it takes '#', '?', '|' and '$' apart.
class OpenFile {
public:
  explicit OpenFile(const std::string& file)
      : fDescriptor(::open(file.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (fDescriptor < 0) throw DetectorError(file + ": cannot be opened for reading");
  }
  ~OpenFile() { ::close(fDescriptor); }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  std::string Path() const { return "/proc/self/fd/" + std::to_string(fDescriptor); }

private:
  int fDescriptor;
};

/// ROOT tells on the screen what it reads, and what it cannot read.
std::unique_ptr<TGeoManager> Import(const std::string& file) {
  const int level = gErrorIgnoreLevel;
  gErrorIgnoreLevel = std::max<int>(level, kFatal);
  std::unique_ptr<TGeoManager> manager(TGeoManager::Import(file.c_str()));
  if (manager && manager->GetTopVolume() && !manager->IsClosed()) manager->CloseGeometry();
  gErrorIgnoreLevel = level;
  return manager;
}

} // namespace

TGeoDetector::TGeoDetector(TGeoManager& manager)
    : fManager(Checked(manager)),
      fVacuum(std::make_unique<Own<>>("Vacuum", 0, 0, 0)),
      fName(manager.GetName()) {
  fMaterialNames.emplace_back("Vacuum");
  std::set<const TGeoVolume*> seen;
  AddMaterials(*manager.GetTopVolume(), seen, fMaterialNames);
}

TGeoDetector::~TGeoDetector() {
  // ROOT deletes a geometry when another one is read, and at the end of the program.
  if (gGeoManager != &fManager) static_cast<void>(fOwned.release());
}

std::unique_ptr<TGeoDetector> TGeoDetector::FromFile(const std::string& file) {
  if (!kelvo::EndsWith(file, ".root") && !kelvo::EndsWith(file, ".gdml"))
    throw DetectorError(file + ": a geometry of ROOT's has a name that ends in .root or .gdml");
  // ROOT hands it to its interpreter, between quotation marks.
  if (kelvo::EndsWith(file, ".gdml") && file.find_first_of("\"\\\n") != std::string::npos)
    throw DetectorError(file +
                        ": ROOT reads no GDML file with quotation marks, backslashes or line ends "
                        "in its name; give it another one");
  const OpenFile opened(file);
  // One without volumes comes into being with the first material that a program makes.
  if (gGeoManager && gGeoManager->GetTopVolume())
    throw DetectorError(file + ": the geometry \"" + gGeoManager->GetName() +
                        "\" is in memory already, and ROOT holds one at a time; delete it first, "
                        "or use it as the detector");
  // The ending must be there for GDML, of which ROOT leaves the name as it is.
  const bool isRootFile = kelvo::EndsWith(file, ".root");
  std::unique_ptr<TGeoManager> manager = Import(isRootFile ? opened.Path() : file);
  if (!manager || !manager->GetTopVolume())
    throw DetectorError(file +
                        ": no geometry could be read; the file must hold a TGeoManager "
                        "(.root) or a GDML description of a detector (.gdml)");
  auto detector = std::make_unique<TGeoDetector>(*manager);
  detector->fOwned = std::move(manager);
  return detector;
}

void TGeoDetector::CheckManager() const {
  if (gGeoManager != &fManager)
    throw DetectorError("the geometry \"" + fName +
                        "\" was deleted or replaced by another one, but is still in use");
}

/// ROOT numbers threads one by one and never takes a number back, while a new thread may have the
/// identifier of one that ended: having a navigator does not mean having a number that serves.
void TGeoDetector::CheckThread() const {
  if (fManager.IsMultiThread() && TGeoManager::ThreadId() >= fManager.GetMaxThreads())
    throw DetectorError("the geometry \"" + fName + "\" serves " +
                        std::to_string(fManager.GetMaxThreads()) +
                        " threads and this is one more; use fewer, or call its function "
                        "SetMaxThreads before");
}

TGeoNavigator* TGeoDetector::FindNavigator() const {
  const TGeoNavigatorArray* own = fManager.GetListOfNavigators(); // those of this thread
  if (!own || !own->GetCurrentNavigator()) return nullptr;
  // Volumes that ROOT has divided into voxels ask the manager's current navigator, whichever walks.
  // For several threads it is that of the thread already.
  if (!fManager.IsMultiThread() && fManager.GetCurrentNavigator() != own->GetCurrentNavigator())
    fManager.SetCurrentNavigator(own->IndexOf(own->GetCurrentNavigator()));
  return fManager.GetCurrentNavigator();
}

void TGeoDetector::AddNavigator() const {
  const std::unique_lock lock(gWalks);
  // A navigator that is there already is another thread's.
  if (!fManager.IsMultiThread() && fManager.GetCurrentNavigator())
    fManager.SetMaxThreads(kMaxThreads);
  fManager.AddNavigator();
}

const TGeoMaterial* TGeoDetector::MaterialAt(const TGeoNavigator& navigator) const {
  if (navigator.IsOutside() || !navigator.GetCurrentNode()) return fVacuum.get();
  const TGeoMaterial* material = MaterialOf(*navigator.GetCurrentNode()->GetVolume());
  return material && !IsEmpty(*material) ? material : fVacuum.get();
}

void TGeoDetector::MaterialsBetweenPoints(const double* p0, const double* p1,
                                          std::vector<double>& ds,
                                          std::vector<const TGeoMaterial*>& mats) const {
  ds.clear();
  mats.clear();
  const double d[] = {p1[0] - p0[0], p1[1] - p0[1], p1[2] - p0[2]};
  const double distance = std::hypot(d[0], d[1], d[2]);
  // The sum, since a length may lose what is not a number.
  if (!std::isfinite(distance + d[0] + d[1] + d[2]))
    throw std::invalid_argument("the points of a way through the detector must be finite numbers");
  if (distance == 0) return;
  CheckManager();

  std::shared_lock lock(gWalks);
  TGeoNavigator* navigator = FindNavigator();
  if (!navigator) {
    lock.unlock();
    AddNavigator();
    lock.lock();
    navigator = FindNavigator();
  }
  CheckThread();
  StepList steps(ds, mats);
  Walk walk(*navigator, p0, p1, distance);
  while (!walk.AtEnd()) {
    const TGeoMaterial* material = MaterialAt(walk.Navigator());
    steps.Add(walk.Step(), material);
  }
  steps.Close(distance);
}

} // namespace geo
