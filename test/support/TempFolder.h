#pragma once

#include <zlib.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace test {

/// A folder for the files of one test, removed with all that is in it.
class TempFolder {
public:
  TempFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "kelvo-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("no temporary folder");
    fPath = pattern;
  }
  ~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(fPath, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  std::string Path(const std::string& name) const { return (fPath / name).string(); }

  /// Returns the path of a new file with this content.
  std::string Write(const std::string& name, const std::string& content) const {
    std::ofstream(Path(name), std::ios::binary) << content;
    return Path(name);
  }

  /// Returns the path of a new file with this content, compressed by gzip.
  std::string WriteGzip(const std::string& name, const std::string& content) const {
    gzFile file = gzopen(Path(name).c_str(), "wb");
    gzwrite(file, content.data(), static_cast<unsigned>(content.size()));
    gzclose(file);
    return Path(name);
  }

  std::string Read(const std::string& name) const {
    std::ostringstream content;
    content << std::ifstream(Path(name), std::ios::binary).rdbuf();
    return content.str();
  }

  /// Returns how many files there are.
  long Files() const {
    const std::filesystem::directory_iterator begin(fPath);
    return std::distance(begin, std::filesystem::directory_iterator());
  }

private:
  std::filesystem::path fPath;
};

} // namespace test
