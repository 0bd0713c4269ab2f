from spack.package import *


class Kelvo(CMakePackage):
    """Track fitting for segmented particle detectors: fitted tracks with kinks from multiple
    scattering, momentum from range and from scattering, and uncertainties."""

    # The sources lie beside this recipe: spack dev-build kelvo@main
    version("main")
    version("0.1.0")

    variant("pictures", default=True, description="Pictures as PNG and PDF, too")

    depends_on("cxx", type="build")
    depends_on("cmake@3.20:", type="build")
    depends_on("ninja", type="build")
    depends_on("pkgconfig", type="build")
    depends_on("root@6.28: +root7 cxxstd=17")
    depends_on("cli11@2.1:")
    depends_on("fmt@9:")
    depends_on("tomlplusplus@3:")
    depends_on("zlib-api")
    depends_on("librsvg@2.52:", when="+pictures")
    depends_on("cairo+pdf+png+fc", when="+pictures")

    generator("ninja")

    def cmake_args(self):
        switches = ("TESTS", "BENCHMARKS", "EXAMPLES")
        return [self.define(f"KELVO_BUILD_{name}", False) for name in switches] + [
            self.define("KELVO_WARNINGS_AS_ERRORS", False)
        ]
