#include "io/FitWriter.h"

#include "io/FileError.h"
#include "io/HitTable.h"

#include <RVersion.h>
#include <TFile.h>
#include <TObjString.h>
#include <ROOT/RDF/RColumnReaderBase.hxx>
#include <ROOT/RDataFrame.hxx>
#include <ROOT/RDataSource.hxx>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <memory>

namespace kelvo {

namespace {

constexpr const char* kTable = "fits";

// Files of some thousand tracks already have several clusters, which are the unit of work of
// threads that read them.
constexpr int kClusterSize = 4'000'000; // bytes, compressed

// With the four times smaller baskets that are usual, writing takes a tenth longer.
constexpr int kBasketSize = 128'000; // bytes, before compression

template <typename T>
struct TypeName;
template <>
struct TypeName<long long> {
  static constexpr const char* kName = "Long64_t";
};
template <>
struct TypeName<int> {
  static constexpr const char* kName = "int";
};
template <>
struct TypeName<float> {
  static constexpr const char* kName = "float";
};
template <>
struct TypeName<double> {
  static constexpr const char* kName = "double";
};
template <>
struct TypeName<bool> {
  static constexpr const char* kName = "bool";
};
template <>
struct TypeName<std::string> {
  static constexpr const char* kName = "std::string";
};

template <typename T>
std::string NameOf(const T&) {
  return TypeName<T>::kName;
}
template <typename T>
std::string NameOf(const ROOT::RVec<T>&) {
  return std::string("ROOT::VecOps::RVec<") + TypeName<T>::kName + ">";
}

class MemberReader final : public ROOT::Detail::RDF::RColumnReaderBase {
public:
  explicit MemberReader(void* member) : fMember(member) {}

private:
  void* GetImpl(Long64_t) override { return fMember; }
  void* fMember;
};

// Rows as a data source. There is one row in memory, at a fixed place, since a TTree keeps the
// addresses of vectors from its first entry on; the current row is moved into it.
class RowSource final : public ROOT::RDF::RDataSource {
public:
  RowSource(const std::function<bool(std::vector<FitRow>&)>& next, bool withVectors,
            std::exception_ptr& error)
      : fNext(next), fError(error) {
    const auto add = [this](const char* name, auto& member) {
      fNames.emplace_back(name);
      fTypes.push_back(NameOf(member));
      fMembers.push_back(&member);
    };
    VisitScalars(fRow, add);
    if (withVectors) VisitVectors(fRow, add);
  }

  const std::vector<std::string>& GetColumnNames() const override { return fNames; }
  bool HasColumn(std::string_view name) const override { return Find(name) < fNames.size(); }
  std::string GetTypeName(std::string_view name) const override { return fTypes[Find(name)]; }

  std::unique_ptr<ROOT::Detail::RDF::RColumnReaderBase> GetColumnReaders(
      unsigned, std::string_view name, const std::type_info&) override {
    return std::make_unique<MemberReader>(fMembers[Find(name)]);
  }

  std::vector<std::pair<ULong64_t, ULong64_t>> GetEntryRanges() override {
    const ULong64_t begin = fEnd;
    // An exception that crossed RDataFrame would be told on the standard error stream.
    try {
      do
        if (!fNext(fRows)) return {};
      while (fRows.empty());
    } catch (...) {
      fError = std::current_exception();
      return {};
    }
    fBegin = begin;
    fEnd = begin + fRows.size();
    return {{begin, fEnd}};
  }

  bool SetEntry(unsigned, ULong64_t entry) override {
    fRow = std::move(fRows[entry - fBegin]);
    return true;
  }

private:
  std::size_t Find(std::string_view name) const {
    return static_cast<std::size_t>(std::find(fNames.begin(), fNames.end(), name) - fNames.begin());
  }

  Record_t GetColumnReadersImpl(std::string_view, const std::type_info&) override { return {}; }

  const std::function<bool(std::vector<FitRow>&)>& fNext;
  std::exception_ptr& fError;
  std::vector<std::string> fNames;
  std::vector<std::string> fTypes;
  std::vector<void*> fMembers; // of fRow
  FitRow fRow;
  std::vector<FitRow> fRows; // entries fBegin to fEnd, those before the current one are used up
  ULong64_t fBegin = 0;
  ULong64_t fEnd = 0;
};

ROOT::RDF::RSnapshotOptions SnapshotOptions(TableFormat format) {
  ROOT::RDF::RSnapshotOptions options;
  options.fCompressionAlgorithm = ROOT::RCompressionSetting::EAlgorithm::kLZ4;
  options.fCompressionLevel = 1;
  if (format == TableFormat::kTTree) {
    options.fAutoFlush = -kClusterSize;
#if ROOT_VERSION_CODE >= ROOT_VERSION(6, 36, 0) // older ones lack the option
    options.fBasketSize = kBasketSize;
#endif
    return options;
  }
#ifdef KELVO_HAS_RNTUPLE
  options.fOutputFormat = ROOT::RDF::ESnapshotOutputFormat::kRNTuple;
  options.fApproxZippedClusterSize = kClusterSize;
#else
  throw FileError("an RNTuple cannot be written: that needs ROOT 6.36 or newer; write a TTree");
#endif
  return options;
}

[[noreturn]] void Incomplete(const PendingFile& file) {
  throw FileError(file.Name() + ": could not be written completely; is the disk full?");
}

void CheckSpace(const PendingFile& file, unsigned long long least) {
  std::error_code unknown;
  const auto space = std::filesystem::space(file.Partial(), unknown);
  if (!unknown && space.available < least)
    throw FileError(file.Name() + ": cannot be written: only " +
                    std::to_string(space.available >> 20) + " MiB are left on the disk, and " +
                    std::to_string(least >> 20) + " are needed");
}

// ROOT tells of failed writes on the standard error stream only.
void CheckEntries(const PendingFile& file, TableFormat format, unsigned long long expected) {
  const std::unique_ptr<TFile> in(TFile::Open(file.Partial().c_str(), "READ"));
  if (!in || in->IsZombie()) Incomplete(file);
  const auto table = format == TableFormat::kTTree
                         ? MakeTreeTable(*in, kTable, file.Name())
                         : MakeNTupleTable(*in, kTable, file.Name());
  if (table->Entries() != static_cast<long long>(expected)) Incomplete(file);
}

void AddTexts(const PendingFile& file, const std::map<std::string, std::string>& texts) {
  const std::unique_ptr<TFile> out(TFile::Open(file.Partial().c_str(), "UPDATE"));
  if (!out || out->IsZombie()) Incomplete(file);
  for (const auto& [name, text] : texts) {
    const TObjString object(text.c_str());
    if (out->WriteObject(&object, name.c_str()) <= 0) Incomplete(file);
  }
  out->Close();
  if (out->TestBit(TFile::kWriteError)) Incomplete(file);
}

} // namespace

void WriteFits(const PendingFile& file, const std::function<bool(std::vector<FitRow>&)>& next,
               const FitWriterOptions& options) {
  std::exception_ptr error;
  unsigned long long given = 0;
  const std::function<bool(std::vector<FitRow>&)> counted = [&](std::vector<FitRow>& rows) {
    CheckSpace(file, options.fLeastFree);
    rows.clear();
    if (!next(rows)) return false;
    given += rows.size();
    return true;
  };
  {
    auto source = std::make_unique<RowSource>(counted, options.fWithVectors, error);
    const std::vector<std::string> columns = source->GetColumnNames();
    ROOT::RDataFrame frame(std::move(source));
    frame.Snapshot(kTable, file.Partial(), columns, SnapshotOptions(options.fFormat));
  }
  if (error) std::rethrow_exception(error);
  CheckEntries(file, options.fFormat, given);
  AddTexts(file, options.fTexts);
}

} // namespace kelvo
