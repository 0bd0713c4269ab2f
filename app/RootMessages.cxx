#include "app/RootMessages.h"

#include "util/Text.h"

#include <TError.h>

#include <iostream>
#include <mutex>
#include <string>

namespace kelvo::app {

namespace {

// ROOT's handler is a plain function for the whole process, so its memory is too.
std::mutex gMutex;
unsigned long long gCount = 0;
std::string gFirst;
ErrorHandlerFunc_t gPrevious = nullptr;

void Count(int level, Bool_t abort, const char* place, const char* text) {
  if (abort) return gPrevious(level, abort, place, text);
  if (level < kWarning) return;
  const std::lock_guard lock(gMutex);
  if (gCount++ == 0) gFirst = std::string(text) + " (" + place + ")";
}

} // namespace

RootMessages::RootMessages() {
  gCount = 0;
  gPrevious = SetErrorHandler(Count);
}

RootMessages::~RootMessages() {
  SetErrorHandler(gPrevious);
  if (gCount == 0) return;
  std::cerr << "kelvo: ROOT gave " << gCount << (gCount == 1 ? " warning: " : " warnings, first: ")
            << Printable(gFirst) << '\n';
}

} // namespace kelvo::app
