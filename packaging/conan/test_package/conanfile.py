import os

from conan import ConanFile
from conan.tools.build import can_run
from conan.tools.cmake import CMake, cmake_layout


class FoundationCertificatesTestConan(ConanFile):
    """Builds and runs the same consumers as the project's own checks."""

    settings = "os", "arch", "compiler", "build_type"
    generators = "CMakeDeps", "CMakeToolchain"

    def requirements(self):
        self.requires(self.tested_reference_str)

    def layout(self):
        cmake_layout(self)

    def build(self):
        cmake = CMake(self)
        cmake.configure(build_script_folder=os.path.join("..", "..", "..", "tests", "package"))
        cmake.build()

    def test(self):
        if can_run(self):
            for consumer in ("consumer", "toolkit_consumer"):
                self.run(os.path.join(self.cpp.build.bindir, consumer), env="conanrun")
