#include "io/FitWriter.h"

#include "io/FileError.h"
#include "io/RootFile.h"

#include <TDirectory.h>
#include <TTree.h>

#ifdef KELVO_HAS_RNTUPLE
#include <ROOT/REntry.hxx>
#include <ROOT/RField.hxx>
#include <ROOT/RNTupleModel.hxx>
#include <ROOT/RNTupleWriteOptions.hxx>
#include <ROOT/RNTupleWriter.hxx>
#endif

namespace kelvo {

namespace {

constexpr const char* kTable = "fits";

// LZ4, level 1: of what ROOT offers it costs least time beside none.
constexpr int kCompression = 401;

// Files of some thousand tracks already have several clusters, which are the unit of work of
// threads that read them.
constexpr int kClusterSize = 4'000'000; // bytes, compressed

// Of baskets and pages. Writing baskets of the usual 32 kB takes a tenth longer; of the usual pages
// of 1 MB one entry is read in eight times the time.
constexpr int kPieceSize = 128'000; // bytes, before compression

template <typename Visit>
void VisitColumns(const FitWriterOptions& options, Visit visit) {
  VisitScalars(visit);
  if (options.fWithVectors) VisitVectors(visit);
  if (options.fWithPlaces) VisitPlaces(visit);
}

/// A table whose entries are filled from one row.
class Table {
public:
  virtual ~Table() = default;
  virtual void Fill() = 0;
  /// Completes the file, with texts beside the table.
  virtual void Close(const std::map<std::string, std::string>& texts) = 0;
};

class Tree final : public Table {
public:
  Tree(RootOutput& output, FitRow& row, const FitWriterOptions& options) : fOutput(output) {
    const TDirectory::TContext into(&output.File());
    fTree = new TTree(kTable, "fitted tracks");
    fTree->SetAutoFlush(-kClusterSize);
    const auto add = [&](const char* name, auto member) {
      fTree->Branch(name, &(row.*member), kPieceSize);
    };
    VisitColumns(options, add);
  }
  void Fill() override { fTree->Fill(); }
  void Close(const std::map<std::string, std::string>& texts) override {
    const TDirectory::TContext into(fTree->GetDirectory());
    fTree->Write("", TObject::kOverwrite);
    fOutput.Close(texts);
  }

private:
  RootOutput& fOutput;
  TTree* fTree; // the file's
};

#ifdef KELVO_HAS_RNTUPLE
class NTuple final : public Table {
public:
  NTuple(RootOutput& output, FitRow& row, const FitWriterOptions& options) : fOutput(output) {
    auto model = ROOT::RNTupleModel::CreateBare();
    const auto add = [&](const char* name, auto member) {
      using T = std::decay_t<decltype(row.*member)>;
      model->AddField(std::make_unique<ROOT::RField<T>>(name));
    };
    const auto bind = [&](const char* name, auto member) {
      fEntry->BindRawPtr(name, &(row.*member));
    };
    VisitColumns(options, add);
    ROOT::RNTupleWriteOptions writing;
    writing.SetCompression(kCompression);
    writing.SetApproxZippedClusterSize(kClusterSize);
    writing.SetMaxUnzippedPageSize(kPieceSize);
    fWriter = ROOT::RNTupleWriter::Append(std::move(model), kTable, output.File(), writing);
    fEntry = fWriter->GetModel().CreateBareEntry();
    VisitColumns(options, bind);
  }
  void Fill() override { fWriter->Fill(*fEntry); }
  void Close(const std::map<std::string, std::string>& texts) override {
    fEntry.reset();
    fWriter.reset();
    WriteTexts(texts);
    fOutput.Close({});
  }

private:
  void WriteTexts(const std::map<std::string, std::string>& texts) {
    auto model = ROOT::RNTupleModel::Create();
    for (const auto& [name, text] : texts) *model->MakeField<std::string>(name) = text;
    ROOT::RNTupleWriter::Append(std::move(model), "about", fOutput.File())->Fill();
  }

  RootOutput& fOutput;
  std::unique_ptr<ROOT::RNTupleWriter> fWriter;
  std::unique_ptr<ROOT::REntry> fEntry;
};
#endif

std::unique_ptr<Table> MakeTable(RootOutput& output, FitRow& row, const FitWriterOptions& options) {
  if (options.fFormat == TableFormat::kTTree) return std::make_unique<Tree>(output, row, options);
#ifdef KELVO_HAS_RNTUPLE
  return std::make_unique<NTuple>(output, row, options);
#else
  throw FileError("an RNTuple cannot be written: that needs ROOT 6.36 or newer; write a TTree");
#endif
}

} // namespace

TableFormat DefaultTableFormat() {
#ifdef KELVO_HAS_RNTUPLE
  return TableFormat::kRNTuple;
#else
  return TableFormat::kTTree;
#endif
}

struct FitWriter::Impl {
  Impl(const PendingFile& file, const FitWriterOptions& options)
      : fTexts(options.fTexts),
        fOutput(file, kCompression),
        fTable(MakeTable(fOutput, fRow, options)) {}

  std::map<std::string, std::string> fTexts;
  FitRow fRow; // the current entry, at one place, since tables keep the addresses of its members
  RootOutput fOutput;
  std::unique_ptr<Table> fTable;
};

FitWriter::FitWriter(const PendingFile& file, const FitWriterOptions& options)
    : fImpl(std::make_unique<Impl>(file, options)) {}

FitWriter::~FitWriter() = default;

void FitWriter::Write(const std::vector<FitRow>& rows) {
  for (const FitRow& row : rows) {
    fImpl->fRow = row;
    fImpl->fTable->Fill();
  }
  fImpl->fOutput.Check();
}

void FitWriter::KeepText(const std::string& name, const std::string& text) {
  fImpl->fTexts[name] = text;
}

void FitWriter::Close() {
  fImpl->fTable->Close(fImpl->fTexts);
}

} // namespace kelvo
