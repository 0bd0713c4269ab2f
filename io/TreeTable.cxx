#include "io/FileError.h"
#include "io/HitNumbers.h"
#include "io/HitTable.h"
#include "io/NumberType.h"

#include <TBranch.h>
#include <TClass.h>
#include <TFile.h>
#include <TTree.h>
#include <TTreeReader.h>
#include <TTreeReaderArray.h>
#include <TTreeReaderValue.h>
#include <TVirtualCollectionProxy.h>
#include <fmt/format.h>

#include <algorithm>
#include <type_traits>

namespace kelvo {

namespace {

class TreeTable : public HitTable {
public:
  TreeTable(TTree& tree, std::string place)
      : fTree(tree), fReader(&tree), fPlace(std::move(place)) {}

  long long Entries() const override { return fTree.GetEntries(); }

  std::vector<std::string> Columns() const override {
    std::vector<std::string> names;
    for (const TObject* branch : *fTree.GetListOfBranches()) names.emplace_back(branch->GetName());
    return names;
  }

  void BindNumber(const std::string& column, long long& value) override {
    const auto [type, collection] = TypeOf(column);
    const bool known = !collection && type != kFloat_t && type != kDouble_t &&
                       WithType(type, [&](auto zero) { BindNumberAs(zero, column, value); });
    if (!known)
      throw FileError(
          fmt::format(FMT_STRING("{}, column {}: is not a whole number"), fPlace, column));
  }

  void BindViews(const std::string& column, std::vector<double>& values) override {
    const auto [type, collection] = TypeOf(column);
    const bool isText = collection && collection->GetValueClass() &&
                        collection->GetValueClass() == TClass::GetClass("string");
    if (!isText) return BindNumbers(column, values);
    Bind<std::string>(column, values, [](const std::string& text) { return CharacterCode(text); });
  }

  void BindNumbers(const std::string& column, std::vector<double>& values) override {
    const auto [type, collection] = TypeOf(column);
    const bool isVector = collection || IsArray(column);
    const bool known =
        isVector && WithType(type, [&](auto zero) {
          using T = decltype(zero);
          Bind<T>(column, values, [](T value) { return static_cast<double>(value); });
        });
    if (!known)
      throw FileError(
          fmt::format(FMT_STRING("{}, column {}: is not a vector of numbers"), fPlace, column));
  }

  void Read(long long entry) override {
    const auto status = fReader.SetEntry(entry);
    if (status != TTreeReader::kEntryValid)
      throw FileError(fmt::format(FMT_STRING("{}, entry {}: cannot be read"), fPlace, entry));
    for (const auto& fetch : fFetches) fetch();
  }

private:
  std::pair<EDataType, TVirtualCollectionProxy*> TypeOf(const std::string& column) {
    TClass* type = nullptr;
    EDataType number = kOther_t;
    fTree.GetBranch(column.c_str())->GetExpectedType(type, number);
    if (!type) return {number, nullptr};
    TVirtualCollectionProxy* collection = type->GetCollectionProxy();
    return {collection ? collection->GetType() : kOther_t, collection};
  }

  bool IsArray(const std::string& column) const {
    const auto* leaf =
        static_cast<TLeaf*>(fTree.GetBranch(column.c_str())->GetListOfLeaves()->First());
    const std::string title = leaf ? leaf->GetTitle() : ""; // such as u[n]
    return std::count(title.begin(), title.end(), '[') == 1;
  }

  template <typename T>
  void BindNumberAs(T, const std::string& column, long long& value) {
    auto reader = std::make_shared<TTreeReaderValue<T>>(fReader, column.c_str());
    fFetches.emplace_back([this, reader, column, &value] {
      const T* number = reader->Get();
      if (!number) Damaged(column);
      // NOLINTNEXTLINE(bugprone-signed-char-misuse): a column of signed char holds numbers
      value = static_cast<long long>(*number);
      if (std::is_unsigned_v<T> && value < 0)
        throw FileError(fmt::format(
            FMT_STRING("{}, column {}, entry {}: {} is not a whole number of 64 bits with sign"),
            fPlace, column, fReader.GetCurrentEntry(), *number));
    });
  }

  [[noreturn]] void Damaged(const std::string& column) const {
    throw FileError(fmt::format(FMT_STRING("{}, column {}, entry {}: cannot be read"), fPlace,
                                column, fReader.GetCurrentEntry()));
  }

  template <typename T, typename Convert>
  void Bind(const std::string& column, std::vector<double>& values, Convert convert) {
    auto reader = std::make_shared<TTreeReaderArray<T>>(fReader, column.c_str());
    fFetches.emplace_back([this, reader, column, &values, convert] {
      values.clear();
      if (reader->GetSetupStatus() < 0) Damaged(column);
      for (const T& value : *reader) values.push_back(convert(value));
    });
  }

  TTree& fTree;
  TTreeReader fReader;
  std::string fPlace;
  std::vector<std::function<void()>> fFetches;
};

} // namespace

std::unique_ptr<HitTable> MakeTreeTable(TFile& file, const std::string& tree,
                                        const std::string& place) {
  auto* found = file.Get<TTree>(tree.c_str());
  if (!found) throw FileError(place + ": cannot be read");
  return std::make_unique<TreeTable>(*found, place);
}

} // namespace kelvo
