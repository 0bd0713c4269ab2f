#pragma once

#include "io/InputBytes.h"

#include <sys/mman.h>
#include <unistd.h>
#include <zlib.h>

#include <memory>
#include <stdexcept>
#include <string>

namespace fuzz {

/// A file in memory.
class File {
public:
  explicit File(const std::string& content) : fDescriptor(::memfd_create("fuzz", MFD_CLOEXEC)) {
    const auto size = static_cast<ssize_t>(content.size());
    if (::write(fDescriptor, content.data(), content.size()) != size)
      throw std::runtime_error("no file in memory");
  }
  ~File() { ::close(fDescriptor); }
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  std::unique_ptr<kelvo::InputBytes> Bytes() const {
    return std::make_unique<kelvo::InputBytes>("/proc/self/fd/" + std::to_string(fDescriptor));
  }

private:
  int fDescriptor;
};

/// Returns text compressed by gzip.
inline std::string Gzip(const std::string& text) {
  constexpr int kGzip = 15 + 16; // largest window, with the header of gzip
  z_stream stream{};
  deflateInit2(&stream, 1, Z_DEFLATED, kGzip, 8, Z_DEFAULT_STRATEGY);
  std::string packed(deflateBound(&stream, text.size()), '\0');
  stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
  stream.avail_in = static_cast<uInt>(text.size());
  stream.next_out = reinterpret_cast<Bytef*>(packed.data());
  stream.avail_out = static_cast<uInt>(packed.size());
  deflate(&stream, Z_FINISH);
  packed.resize(stream.total_out);
  deflateEnd(&stream);
  return packed;
}

} // namespace fuzz
