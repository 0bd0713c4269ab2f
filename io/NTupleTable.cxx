#include "io/FileError.h"
#include "io/HitNumbers.h"
#include "io/HitTable.h"

#ifdef KELVO_HAS_RNTUPLE

#include <TFile.h>
#include <fmt/format.h>
#include <ROOT/RError.hxx>
#include <ROOT/RNTuple.hxx>
#include <ROOT/RNTupleDescriptor.hxx>
#include <ROOT/RNTupleReader.hxx>
#include <ROOT/RNTupleView.hxx>

#include <cstdint>

namespace kelvo {

namespace {

class NTupleTable : public HitTable {
public:
  NTupleTable(std::unique_ptr<ROOT::RNTupleReader> reader, std::string place)
      : fReader(std::move(reader)), fPlace(std::move(place)) {}

  long long Entries() const override { return static_cast<long long>(fReader->GetNEntries()); }

  std::vector<std::string> Columns() const override {
    std::vector<std::string> names;
    for (const auto& field : fReader->GetDescriptor().GetTopLevelFields())
      names.push_back(field.GetFieldName());
    return names;
  }

  void BindNumber(const std::string& column, long long& value) override {
    Bind<std::int64_t>(column, "is not a whole number",
                       [&value](std::int64_t number) { value = number; });
  }

  void BindViews(const std::string& column, std::vector<double>& values) override {
    if (TypeOf(column).find("string") == std::string::npos) return BindNumbers(column, values);
    Bind<std::vector<std::string>>(column, kNoNumbers, [&values](const auto& texts) {
      values.clear();
      for (const std::string& text : texts) values.push_back(CharacterCode(text));
    });
  }

  void BindNumbers(const std::string& column, std::vector<double>& values) override {
    const std::string type = TypeOf(column);
    if (type.find("double") != std::string::npos || type.find("float") != std::string::npos)
      Bind<std::vector<double>>(column, kNoNumbers, [&values](const auto& all) { values = all; });
    else if (type.find("char") != std::string::npos)
      Bind<std::vector<char>>(column, kNoNumbers, [&values](const auto& all) {
        values.assign(all.begin(), all.end());
      });
    else
      Bind<std::vector<std::int64_t>>(column, kNoNumbers, [&values](const auto& all) {
        values.clear();
        for (const std::int64_t number : all) values.push_back(static_cast<double>(number));
      });
  }

  void Read(long long entry) override {
    try {
      for (const auto& fetch : fFetches) fetch(static_cast<ROOT::NTupleSize_t>(entry));
    } catch (const ROOT::RException&) {
      throw FileError(fmt::format(FMT_STRING("{}, entry {}: cannot be read"), fPlace, entry));
    }
  }

private:
  static constexpr const char* kNoNumbers = "is not a vector of numbers";

  std::string TypeOf(const std::string& column) const {
    const auto& descriptor = fReader->GetDescriptor();
    return descriptor.GetFieldDescriptor(descriptor.FindFieldId(column)).GetTypeName();
  }

  template <typename T, typename Store>
  void Bind(const std::string& column, const char* complaint, Store store) {
    try {
      auto view = std::make_shared<ROOT::RNTupleView<T>>(fReader->GetView<T>(column));
      fFetches.emplace_back([view, store](ROOT::NTupleSize_t entry) { store((*view)(entry)); });
    } catch (const ROOT::RException&) {
      throw FileError(fmt::format(FMT_STRING("{}, column {}: {}"), fPlace, column, complaint));
    }
  }

  std::unique_ptr<ROOT::RNTupleReader> fReader;
  std::string fPlace;
  std::vector<std::function<void(ROOT::NTupleSize_t)>> fFetches;
};

} // namespace

std::unique_ptr<HitTable> MakeNTupleTable(TFile& file, const std::string& ntuple,
                                          const std::string& place) {
  try {
    const std::unique_ptr<ROOT::RNTuple> found(file.Get<ROOT::RNTuple>(ntuple.c_str()));
    if (!found) throw FileError(place + ": cannot be read");
    return std::make_unique<NTupleTable>(ROOT::RNTupleReader::Open(*found), place);
  } catch (const ROOT::RException&) {
    throw FileError(place + ": cannot be read");
  }
}

} // namespace kelvo

#else

namespace kelvo {

std::unique_ptr<HitTable> MakeNTupleTable(TFile&, const std::string&, const std::string& place) {
  throw FileError(place + ": is an RNTuple, which needs ROOT 6.36 or newer; write a TTree");
}

} // namespace kelvo

#endif
