import os
import re

from conan import ConanFile
from conan.tools.build import check_min_cppstd
from conan.tools.cmake import CMake, CMakeDeps, CMakeToolchain, cmake_layout
from conan.tools.files import copy, load, rmdir

required_conan_version = ">=2.0"


class FoundationCertificatesConan(ConanFile):
    name = "foundation-certificates"
    description = "One object model for public-key certificates over OpenSSL 3"
    topics = ("certificates", "x509", "pkcs7", "pkcs12", "openssl")
    package_type = "library"
    settings = "os", "arch", "compiler", "build_type"
    options = {"shared": [True, False]}
    default_options = {"shared": False}

    @property
    def _project_folder(self):
        return os.path.join(self.recipe_folder, "..", "..")

    def set_version(self):
        project = load(self, os.path.join(self._project_folder, "CMakeLists.txt"))
        self.version = re.search(r"project\([^)]*VERSION (\d+\.\d+\.\d+)", project).group(1)

    def export_sources(self):
        for pattern in ("CMakeLists.txt", "cmake/*", "foundation/*", "tools/*"):
            copy(self, pattern, self._project_folder, self.export_sources_folder)

    def requirements(self):
        self.requires("boost/[>=1.74 <2]")
        self.requires("openssl/[>=3.0 <4]")

    def validate(self):
        check_min_cppstd(self, 17)

    def build_requirements(self):
        self.tool_requires("cmake/[>=3.22]")

    def layout(self):
        cmake_layout(self)

    def generate(self):
        toolchain = CMakeToolchain(self)
        toolchain.cache_variables["FOUNDATION_CERTIFICATES_BUILD_TESTS"] = False
        toolchain.cache_variables["FOUNDATION_CERTIFICATES_BUILD_EXAMPLES"] = False
        toolchain.cache_variables["FOUNDATION_CERTIFICATES_BUILD_TOOLS"] = False
        toolchain.generate()
        CMakeDeps(self).generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        CMake(self).install()
        # Conan generates both for its consumers from package_info.
        rmdir(self, os.path.join(self.package_folder, "lib", "cmake"))
        rmdir(self, os.path.join(self.package_folder, "lib", "pkgconfig"))

    def package_info(self):
        self.cpp_info.set_property("cmake_file_name", "FoundationCertificates")
        self.cpp_info.set_property("pkg_config_name", "foundation-certificates")
        self.cpp_info.set_property("cmake_components", ["toolkit"])

        log = self.cpp_info.components["log"]
        log.set_property("cmake_target_name", "foundation::log")
        log.libs = ["foundation_log"]
        log.requires = ["boost::log"]

        certificates = self.cpp_info.components["certificates"]
        certificates.set_property("cmake_target_name", "foundation::certificates")
        certificates.libs = ["foundation_certificates"]
        certificates.requires = ["log", "boost::headers", "openssl::ssl", "openssl::crypto"]

        toolkit = self.cpp_info.components["toolkit"]
        toolkit.set_property("cmake_target_name", "foundation::toolkit")
        toolkit.set_property("pkg_config_name", "foundation-toolkit")
        toolkit.libs = ["foundation_toolkit"]
        toolkit.requires = ["certificates", "log", "boost::headers", "boost::log", "openssl::ssl", "openssl::crypto"]

        if not self.options.shared:
            toolkit.defines = ["FOUNDATION_TOOLKIT_STATIC_DEFINE"]
            log.defines = ["FOUNDATION_LOG_STATIC_DEFINE"]
            certificates.defines = ["FOUNDATION_CERTIFICATES_STATIC_DEFINE"]
        if self.settings.os == "Windows":
            certificates.system_libs = ["crypt32"]
        elif self.settings.os in ("Linux", "FreeBSD"):
            log.system_libs = ["pthread"]
