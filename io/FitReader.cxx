#include "io/FitReader.h"

#include "io/FileError.h"
#include "io/RootFile.h"

#include <TBranch.h>
#include <TDirectory.h>
#include <TFile.h>
#include <TKey.h>
#include <TObjString.h>
#include <TTree.h>

#ifdef KELVO_HAS_RNTUPLE
#include <ROOT/RError.hxx>
#include <ROOT/RNTupleDescriptor.hxx>
#include <ROOT/RNTupleReadOptions.hxx>
#include <ROOT/RNTupleReader.hxx>
#include <ROOT/RNTupleView.hxx>
#endif

#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <vector>

namespace kelvo {

namespace {

constexpr const char* kTable = "fits";
constexpr const char* kFirstVector = "hit_view";
constexpr const char* kFirstPlace = "at_z";

/// Whether the vectors of a row belong together, so that whoever uses them need not ask.
bool Consistent(const FitRow& row) {
  const std::size_t hits = row.fHitZ.size();
  for (const std::size_t n :
       {row.fHitView.size(), row.fHitU.size(), row.fHitSigU.size(), row.fFitU.size(),
        row.fFitSigU.size(), row.fResidual.size(), row.fPull.size(), row.fResidualUnbiased.size(),
        row.fSigResidualUnbiased.size(), row.fHitWeight.size()})
    if (n != hits) return false;
  for (const int view : row.fHitView)
    if (view != 0 && view != 1) return false;
  const std::size_t planes = row.fPlaneS.size();
  for (const std::size_t n : {row.fPlaneX.size(), row.fPlaneY.size(), row.fPlaneZ.size(),
                              row.fPlaneSigAlpha.size(), row.fKinkX.size(), row.fKinkY.size()})
    if (n != planes) return false;
  return row.fStatus != 0 || hits >= 4; // two in each view at least
}

/// A row and the functions that fetch its columns, in groups by how often they are wanted.
class RowColumns {
public:
  /// @param bind returns the function that fetches one column: bind(name, member)
  template <typename Bind>
  RowColumns(const std::set<std::string>& inFile, const std::string& place, Bind bind)
      : fPlace(place),
        fHasVectors(inFile.count(kFirstVector) > 0),
        fHasPlaces(inFile.count(kFirstPlace) > 0) {
    const auto add = [&](FitPart group, const char* name, auto& member) {
      if (!inFile.count(name))
        throw FileError(place + ": has no column " + name +
                        ", as a file of an older kelvo may; fit the hits again");
      fFetches[static_cast<std::size_t>(group)].push_back(bind(name, member));
    };
    VisitScalars([&](const char* name, auto member) { add(GroupOf(name), name, fRow.*member); });
    const auto addVector = [&](const char* name, auto member) {
      add(FitPart::kAll, name, fRow.*member);
    };
    if (fHasVectors) VisitVectors(addVector);
    if (fHasPlaces) VisitPlaces(addVector);
  }
  RowColumns(const RowColumns&) = delete;
  RowColumns& operator=(const RowColumns&) = delete;

  bool HasVectors() const { return fHasVectors; }
  bool HasPlaces() const { return fHasPlaces; }

  const FitRow& Fetch(long long entry, FitPart columns) {
    for (std::size_t group = 0; group <= static_cast<std::size_t>(columns); group++)
      for (const auto& fetch : fFetches[group]) fetch(entry);
    if (columns == FitPart::kAll && fHasVectors && !Consistent(fRow))
      throw FileError(fPlace + ", entry " + std::to_string(entry) +
                      ": the vectors do not belong together; is the file damaged?");
    return fRow;
  }

private:
  static FitPart GroupOf(const char* scalar) {
    for (const char* name : {"track", "pdg", "status", "best"})
      if (std::strcmp(scalar, name) == 0) return FitPart::kNames;
    return FitPart::kScalars;
  }

  std::string fPlace;
  FitRow fRow;
  bool fHasVectors, fHasPlaces;
  std::array<std::vector<std::function<void(long long)>>, 3> fFetches; // by FitPart
};

class TreeFits final : public FitEntries {
public:
  TreeFits(std::unique_ptr<TFile> file, TTree& tree, const std::string& place)
      : fPlace(place),
        fFile(std::move(file)),
        fTree(tree),
        fColumns(Names(tree), place,
                 [this](const char* name, auto& member) { return Bind(name, member); }) {}
  ~TreeFits() override { fTree.ResetBranchAddresses(); }

  long long Entries() const override { return fTree.GetEntries(); }
  bool HasVectors() const override { return fColumns.HasVectors(); }
  bool HasPlaces() const override { return fColumns.HasPlaces(); }

  std::map<std::string, std::string> Texts() const override {
    std::map<std::string, std::string> texts;
    for (const char* name : {"options", "detector", "version", "command", "run"}) {
      const std::unique_ptr<TObjString> text(fFile->Get<TObjString>(name));
      if (text) texts[name] = text->GetString().Data();
    }
    return texts;
  }

  const FitRow& Read(long long entry, FitPart columns) override {
    if (fTree.LoadTree(entry) < 0)
      throw FileError(fPlace + ", entry " + std::to_string(entry) + ": cannot be read");
    return fColumns.Fetch(entry, columns);
  }

private:
  static std::set<std::string> Names(TTree& tree) {
    std::set<std::string> names;
    for (const TObject* branch : *tree.GetListOfBranches()) names.insert(branch->GetName());
    return names;
  }

  template <typename T>
  std::function<void(long long)> Bind(const char* name, T& member) {
    TBranch* branch = nullptr;
    if constexpr (std::is_arithmetic_v<T>) {
      Check(fTree.SetBranchAddress(name, &member, &branch), name);
      return [this, branch, name](long long entry) { Fetch(*branch, name, entry); };
    } else {
      // The tree keeps the address of the pointer.
      const auto pointer = std::make_shared<T*>(&member);
      Check(fTree.SetBranchAddress(name, pointer.get(), &branch), name);
      return [this, branch, name, pointer](long long entry) { Fetch(*branch, name, entry); };
    }
  }

  void Check(int status, const char* name) const {
    if (status < 0)
      throw FileError(fPlace + ", column " + name +
                      ": is of another type; is the file not of 'kelvo fit'?");
  }

  void Fetch(TBranch& branch, const char* name, long long entry) const {
    if (branch.GetEntry(entry) <= 0)
      throw FileError(fPlace + ", column " + name + ", entry " + std::to_string(entry) +
                      ": cannot be read; is the file damaged?");
  }

  std::string fPlace;
  std::unique_ptr<TFile> fFile;
  TTree& fTree; // the file's
  RowColumns fColumns;
};

#ifdef KELVO_HAS_RNTUPLE
/// Reads without a TFile, which would load ROOT's interpreter: 0.2 s and 200 MB.
class NTupleFits final : public FitEntries {
public:
  /// @throw ROOT::RException where the file has no such RNTuple
  NTupleFits(const std::string& file, const std::string& place)
      : fPlace(place),
        fPath(file),
        fReader(OpenReader(kTable)),
        fColumns(Names(*fReader), place,
                 [this](const char* name, auto& member) { return Bind(name, member); }) {}

  long long Entries() const override { return static_cast<long long>(fReader->GetNEntries()); }
  bool HasVectors() const override { return fColumns.HasVectors(); }
  bool HasPlaces() const override { return fColumns.HasPlaces(); }

  std::map<std::string, std::string> Texts() const override {
    std::map<std::string, std::string> texts;
    try {
      const auto about = OpenReader("about");
      for (const std::string& name : Names(*about))
        texts[name] = about->GetView<std::string>(name)(0);
    } catch (const ROOT::RException&) {
      throw FileError(fPlace +
                      ": the texts beside the table, in \"about\", cannot be read; is the "
                      "file damaged?");
    }
    return texts;
  }

  const FitRow& Read(long long entry, FitPart columns) override {
    try {
      return fColumns.Fetch(entry, columns);
    } catch (const ROOT::RException&) {
      throw FileError(fPlace + ", entry " + std::to_string(entry) + ": cannot be read");
    }
  }

private:
  /// Without reading ahead, which takes the pages of all columns wherever one is wanted.
  std::unique_ptr<ROOT::RNTupleReader> OpenReader(const char* table) const {
    ROOT::RNTupleReadOptions options;
    options.SetClusterCache(ROOT::RNTupleReadOptions::EClusterCache::kOff);
    return ROOT::RNTupleReader::Open(table, fPath.Path(), options);
  }

  static std::set<std::string> Names(ROOT::RNTupleReader& reader) {
    std::set<std::string> names;
    for (const auto& field : reader.GetDescriptor().GetTopLevelFields())
      names.insert(field.GetFieldName());
    return names;
  }

  template <typename T>
  std::function<void(long long)> Bind(const char* name, T& member) {
    auto view = std::make_shared<ROOT::RNTupleView<T>>(fReader->GetView<T>(name));
    return [view, &member](long long entry) {
      member = (*view)(static_cast<ROOT::NTupleSize_t>(entry));
    };
  }

  std::string fPlace;
  OpenPath fPath;
  std::unique_ptr<ROOT::RNTupleReader> fReader;
  RowColumns fColumns;
};
#endif

[[noreturn]] void NoFits(const std::string& file, const std::string& why) {
  throw FileError(file + ": " + why + "; a file of fits is expected, as 'kelvo fit' writes it");
}

void CheckIsRootFile(const std::string& file) {
  if (std::filesystem::is_directory(file)) NoFits(file, "is a folder");
  errno = 0;
  std::ifstream in(file, std::ios::binary);
  char magic[4] = {};
  if (!in) throw FileError(file + ": cannot be opened: " + std::strerror(errno));
  if (!in.read(magic, sizeof magic) || std::memcmp(magic, "root", sizeof magic) != 0)
    NoFits(file, "is not a ROOT file");
}

std::unique_ptr<FitEntries> OpenTree(const std::string& file, const std::string& place) {
  const TDirectory::TContext restore;
  std::unique_ptr<TFile> root = OpenRootFile(file);
  const TKey* key = root->GetKey(kTable);
  const std::string type = key ? key->GetClassName() : "";
  if (type == "TTree") {
    auto* tree = root->Get<TTree>(kTable);
    if (!tree) throw FileError(place + ": is damaged and cannot be read");
    return std::make_unique<TreeFits>(std::move(root), *tree, place);
  }
#ifdef KELVO_HAS_RNTUPLE
  if (type == "ROOT::RNTuple") throw FileError(place + ": is damaged, or not of 'kelvo fit'");
#else
  if (type == "ROOT::RNTuple")
    throw FileError(place + ": is an RNTuple, which needs ROOT 6.36 or newer; write a TTree");
#endif
  NoFits(file, std::string("has no table \"") + kTable + "\"");
}

std::unique_ptr<FitEntries> OpenTable(const std::string& file) {
  const std::string place = file + ", " + kTable;
#ifdef KELVO_HAS_RNTUPLE
  try {
    return std::make_unique<NTupleFits>(file, place);
  } catch (const ROOT::RException&) {
    // Holds another kind of table, or is damaged.
  }
#endif
  return OpenTree(file, place);
}

} // namespace

FitReader::FitReader(const std::string& file) : fFile(file) {
  CheckIsRootFile(file);
  fTable = OpenTable(file);
  fTexts = fTable->Texts();
}

FitReader::~FitReader() = default;

const std::string& FitReader::Text(const std::string& name) const {
  static const std::string none;
  const auto found = fTexts.find(name);
  return found == fTexts.end() ? none : found->second;
}

} // namespace kelvo
