#pragma once

namespace kelvo::app {

/// Keeps ROOT's warnings and errors, which can come for every entry of a file, off the screen while
/// it exists: they are counted, and told with the first of them when it goes.
class RootMessages {
public:
  RootMessages();
  ~RootMessages();
  RootMessages(const RootMessages&) = delete;
  RootMessages& operator=(const RootMessages&) = delete;
};

} // namespace kelvo::app
