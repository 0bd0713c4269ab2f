#include "io/FileError.h"
#include "io/FitWriter.h"
#include "util/Text.h"

#include <cerrno>
#include <cstring>

namespace kelvo {

namespace {

void Append(std::string& text, double value) {
  AppendNumber(text, value);
}
void Append(std::string& text, int value) {
  AppendNumber(text, value);
}
void Append(std::string& text, long long value) {
  AppendNumber(text, value);
}
void Append(std::string& text, bool value) {
  text += value ? '1' : '0';
}

void Append(std::string& text, const std::string& value) {
  if (value.find_first_of(",\"\r\n") == std::string::npos) {
    text += value;
    return;
  }
  text += '"';
  for (const char c : value) {
    if (c == '"') text += '"';
    text += c;
  }
  text += '"';
}

} // namespace

FitCsvWriter::FitCsvWriter(const PendingFile& file)
    : fName(file.Name()), fFile(std::fopen(file.Partial().c_str(), "wb")) {
  if (!fFile) throw FileError(fName + ": cannot be written: " + std::strerror(errno));
  std::string header;
  VisitScalars([&header](const char* name, auto) {
    if (!header.empty()) header += ',';
    header += name;
  });
  Put(header + '\n');
}

FitCsvWriter::~FitCsvWriter() {
  if (fFile) std::fclose(fFile);
}

void FitCsvWriter::Write(const std::vector<FitRow>& rows) {
  fText.clear();
  for (const FitRow& row : rows) {
    VisitScalars([this, &row](const char*, auto member) {
      Append(fText, row.*member);
      fText += ',';
    });
    fText.back() = '\n';
  }
  Put(fText);
}

void FitCsvWriter::Close() {
  errno = 0;
  const int failed = std::fclose(fFile);
  fFile = nullptr;
  if (failed) throw FileError(fName + ": cannot be written: " + std::strerror(errno));
}

void FitCsvWriter::Put(const std::string& text) {
  errno = 0;
  if (std::fwrite(text.data(), 1, text.size(), fFile) != text.size())
    throw FileError(fName + ": cannot be written: " + std::strerror(errno));
}

} // namespace kelvo
