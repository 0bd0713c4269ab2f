#include "draw/DrawnSvg.h"

#include <dlfcn.h>

#include <filesystem>
#include <stdexcept>

namespace kelvo {

namespace {

struct Loaded {
  const SvgRenderer* fRenderer = nullptr;
  std::string fWhyNot;
};

std::filesystem::path LibraryBeside() {
  static const char gsInside = 0;
  Dl_info library;
  if (dladdr(&gsInside, &library) == 0) return "libkelvo_drawn.so";
  std::error_code error;
  return std::filesystem::canonical(library.dli_fname, error).parent_path() / "libkelvo_drawn.so";
}

Loaded Load() {
  const std::filesystem::path file = LibraryBeside();
  std::error_code error;
  if (!std::filesystem::exists(file, error))
    return {nullptr, "this kelvo was built without librsvg and cairo, which make PNG and PDF"};
  void* library = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  void* renderer = library ? dlsym(library, "kelvo_svg_renderer") : nullptr;
  if (!renderer)
    return {nullptr, "PNG and PDF need librsvg 2.52 or newer and cairo (Debian: librsvg2-2): " +
                         std::string(dlerror())};
  return {static_cast<const SvgRenderer*>(renderer), ""};
}

} // namespace

const SvgRenderer& GetSvgRenderer() {
  static const Loaded loaded = Load();
  if (!loaded.fRenderer) throw std::runtime_error(loaded.fWhyNot);
  return *loaded.fRenderer;
}

} // namespace kelvo
