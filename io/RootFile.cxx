#include "io/RootFile.h"

#include "io/FileError.h"

#include <TDirectory.h>
#include <TObjString.h>

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

namespace kelvo {

namespace {

std::uint64_t BigEndian(const char* bytes, std::size_t size) {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < size; i++) value = value << 8 | static_cast<unsigned char>(bytes[i]);
  return value;
}

/// Whether there is a record behind the end of a file, as a program leaves it that went on after it
/// had saved the file and never closed it. A record tells its own place (ROOT's reference of TKey),
/// which other bytes there do not.
bool HasRecordBehindEnd(TFile& file) {
  constexpr std::uint64_t kLargeFile = 1000; // versions above have places of 8 bytes
  char head[26];
  const Long64_t end = file.GetEND();
  const bool isThere = file.GetSize() >= end + static_cast<Long64_t>(sizeof head);
  if (!isThere || file.ReadBuffer(head, end, sizeof head)) return false;
  const std::size_t size = BigEndian(head + 4, 2) > kLargeFile ? 8 : 4;
  return BigEndian(head + 18, size) == static_cast<std::uint64_t>(end);
}

/// A file whose path stays good: tables are read through it, too.
class InputFile final : private OpenPath, public TFile {
public:
  explicit InputFile(const std::string& name) : OpenPath(name), TFile(Path().c_str(), "READ") {}
};

} // namespace

void CheckRoomForRoot() {
  constexpr rlim_t kNeeded = 700'000'000; // [bytes]; ROOT 6.40 starts with 650 MB
  constexpr rlim_t kMega = 1'000'000;
  rlimit limit{};
  if (::getrlimit(RLIMIT_AS, &limit) != 0 || limit.rlim_cur >= kNeeded) return;
  throw FileError(fmt::format(FMT_STRING("ROOT needs {} MB of address space, and this process may "
                                         "have {}; raise its limit (ulimit -v)"),
                              kNeeded / kMega, limit.rlim_cur / kMega));
}

OpenPath::OpenPath(const std::string& name)
    : fDescriptor(::open(name.c_str(), O_RDONLY | O_CLOEXEC)) {
  if (fDescriptor < 0) throw FileError(name + ": cannot be opened: " + std::strerror(errno));
}

OpenPath::~OpenPath() {
  ::close(fDescriptor);
}

std::string OpenPath::Path() const {
  return "/proc/self/fd/" + std::to_string(fDescriptor);
}

std::unique_ptr<TFile> OpenRootFile(const std::string& name) {
  CheckRoomForRoot();
  const TDirectory::TContext restore;
  auto file = std::make_unique<InputFile>(name);
  if (file->IsZombie()) throw FileError(name + ": is damaged and cannot be read");
  if (file->TestBit(TFile::kRecovered) || HasRecordBehindEnd(*file))
    throw FileError(name +
                    ": was not closed by the program that wrote it, and the last entries are "
                    "missing; ROOT's \"hadd saved.root FILE\" saves those that are there");
  file->SetName(name.c_str()); // for messages
  return file;
}

/// A file that ROOT writes to a descriptor, by a constructor for files without a path.
class RootOutput::Descriptor final : public TFile {
public:
  Descriptor(int descriptor, int settings) : TFile("output", "WEB", "", settings) {
    fD = descriptor;
    fOption = "CREATE";
    SetWritable(true);
    // However large it becomes, a table is not continued in a file of another name.
    SetBit(kCancelTTreeChangeRequest);
    Init(true);
  }
  ~Descriptor() override {
    // Nothing more is written where the work ended early.
    SetWritable(false);
    Close();
  }

  int Failure() const { return fError; }

private:
  Int_t SysWrite(Int_t descriptor, const void* buffer, Int_t size) override {
    const char* rest = static_cast<const char*>(buffer);
    for (Int_t left = size; left > 0 && fError == 0;) {
      const ssize_t written = ::write(descriptor, rest, static_cast<std::size_t>(left));
      if (written > 0) {
        rest += written;
        left -= static_cast<Int_t>(written);
      } else if (errno != EINTR) {
        fError = errno;
      }
    }
    return size;
  }

  Int_t SysSync(Int_t descriptor) override {
    if (::fsync(descriptor) != 0 && fError == 0) fError = errno;
    return 0;
  }

  Int_t SysClose(Int_t descriptor) override {
    if (::close(descriptor) != 0 && fError == 0) fError = errno;
    return 0;
  }

  int fError = 0; // of the first call that failed
};

RootOutput::RootOutput(const PendingFile& file, int settings) : fName(file.Name()) {
  CheckRoomForRoot();
  const int descriptor = ::open(file.Partial().c_str(), O_RDWR | O_TRUNC | O_CLOEXEC);
  if (descriptor < 0) throw FileError(fName + ": cannot be written: " + std::strerror(errno));
  const TDirectory::TContext restore;
  fFile = std::make_unique<Descriptor>(descriptor, settings);
  Check();
}

RootOutput::~RootOutput() = default;

TFile& RootOutput::File() {
  return *fFile;
}

void RootOutput::Check() const {
  if (fFile->Failure() != 0)
    throw FileError(fName + ": cannot be written: " + std::strerror(fFile->Failure()));
}

void RootOutput::Close(const std::map<std::string, std::string>& texts) {
  for (const auto& [name, text] : texts) {
    const TObjString object(text.c_str());
    fFile->WriteObject(&object, name.c_str());
  }
  fFile->Close();
  Check();
}

} // namespace kelvo
