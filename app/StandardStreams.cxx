#include "app/StandardStreams.h"

#include "app/Command.h"
#include "util/Text.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <iostream>
#include <string>

namespace kelvo::app {

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsSanitized = true;
#else
constexpr bool kIsSanitized = false;
#endif

// A handler of signals is a plain function, so what it needs is the process's.
int gScreen = -1; // the standard error stream as the program was given it
int gOthers = -1; // a file in memory, for the words of others

void Write(int descriptor, const char* text, std::size_t size) {
  while (size > 0) {
    const ssize_t written = ::write(descriptor, text, size);
    if (written < 0 && errno != EINTR) return;
    text += std::max<ssize_t>(written, 0);
    size -= static_cast<std::size_t>(std::max<ssize_t>(written, 0));
  }
}

/// Characters that go to a descriptor as they come.
class Unbuffered final : public std::streambuf {
protected:
  int_type overflow(int_type c) override {
    const char text = traits_type::to_char_type(c);
    Write(gScreen, &text, 1);
    return c;
  }
  std::streamsize xsputn(const char* text, std::streamsize size) override {
    Write(gScreen, text, static_cast<std::size_t>(size));
    return size;
  }
};

/// Fills a buffer with the first line that others have printed, and returns its length.
std::size_t FirstLine(char* line, std::size_t size) {
  const ssize_t read = ::pread(gOthers, line, size, 0);
  const auto length = static_cast<std::size_t>(std::max<ssize_t>(read, 0));
  return static_cast<std::size_t>(std::find(line, line + length, '\n') - line);
}

/// Opens for each closed stream what can be used as little: the lowest free number is its own.
void HoldPlaces() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    if (::fcntl(stream, F_GETFD) < 0)
      static_cast<void>(::open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY));
}

constexpr std::size_t kLongestLine = 200;

/// Uses nothing that a fault may have left in a bad state.
void TellFault(int) {
  static constexpr char kWords[] =
      "kelvo: a fault in a library ended the work, and nothing more is written; is an input file "
      "damaged, or too little memory left?\n";
  Write(gScreen, kWords, sizeof kWords - 1);
  char line[kLongestLine];
  const std::size_t length = FirstLine(line, sizeof line);
  for (std::size_t i = 0; i < length; i++)
    if (line[i] < ' ' || line[i] > '~') line[i] = '?';
  if (length > 0) {
    Write(gScreen, "  ", 2);
    Write(gScreen, line, length);
    Write(gScreen, "\n", 1);
  }
  ::_exit(kUsageOrFiles);
}

void CatchFaults() {
  // A stack that is used up has no room for the handler.
  static char stack[1 << 16];
  stack_t other{};
  other.ss_sp = stack;
  other.ss_size = sizeof stack;
  ::sigaltstack(&other, nullptr);
  struct sigaction action {};
  action.sa_handler = TellFault;
  action.sa_flags = SA_ONSTACK | static_cast<int>(SA_RESETHAND);
  for (const int number : {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT})
    ::sigaction(number, &action, nullptr);
}

} // namespace

StandardStreams::StandardStreams() {
  HoldPlaces();
  if (kIsSanitized) return;
  gScreen = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  gOthers = ::memfd_create("kelvo", MFD_CLOEXEC);
  CatchFaults();
  if (gScreen < 0 || gOthers < 0) return;
  fOwn = std::make_unique<Unbuffered>();
  fBefore = std::cerr.rdbuf(fOwn.get());
  ::dup2(gOthers, STDERR_FILENO);
}

StandardStreams::~StandardStreams() {
  if (!fOwn) return;
  TellOthers();
  std::cerr.rdbuf(fBefore);
  ::dup2(gScreen, STDERR_FILENO);
}

bool StandardStreams::IsTerminal() {
  return ::isatty(gScreen < 0 ? STDERR_FILENO : gScreen);
}

void StandardStreams::TellOthers() const {
  char line[kLongestLine];
  const std::size_t length = FirstLine(line, sizeof line);
  if (length > 0)
    std::cerr << "kelvo: a library printed: " << Printable(std::string(line, length)) << '\n';
}

} // namespace kelvo::app
