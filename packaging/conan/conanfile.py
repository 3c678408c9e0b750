"""The two libraries and the command for Conan 2: conan create packaging/conan

The libraries that read and write files come from Debian's packages, not from Conan's.
"""

from pathlib import Path
import re

from conan import ConanFile
from conan.errors import ConanInvalidConfiguration
from conan.tools.cmake import CMake, CMakeToolchain, cmake_layout
from conan.tools.files import copy, rmdir
from conan.tools.system.package_manager import Apt

# What is needed to build; tests, documents and the other front ends are not.
SOURCES = ["CMakeLists.txt", "LICENSE"] + [
    f"{folder}/*"
    for folder in "cmake cleanup display formats frame geometry pages pixels platform scale tone tools".split()
]
DEBIAN_PACKAGES = (
    "pkg-config libtiff-dev libpng-dev libjpeg62-turbo-dev liblcms2-dev libqpdf-dev libfmt-dev "
    "nlohmann-json3-dev libcli11-dev libsqlite3-dev libssl-dev libseccomp-dev"
).split()


class Rastrel(ConanFile):
    name = "rastrel"
    description = "Straight, clean pages of scanned ones: two libraries with C interfaces, and the command"
    license = "MIT"
    topics = ("scan", "document", "image-processing", "deskew", "binarization")
    settings = "os", "arch", "compiler", "build_type"
    package_type = "shared-library"

    def _tree(self):
        return Path(self.recipe_folder).parents[1]

    def set_version(self):
        header = (self._tree() / "frame" / "rastrel.h").read_text()
        self.version = re.search(r'define RASTREL_VERSION "([0-9.]+)"', header).group(1)

    def export_sources(self):
        for pattern in SOURCES:
            copy(self, pattern, self._tree(), self.export_sources_folder)

    def configure(self):
        # The sources set their own standard, and what calls them is C.
        self.settings.rm_safe("compiler.cppstd")

    def validate(self):
        if self.settings.os != "Linux":
            raise ConanInvalidConfiguration("this recipe is for Linux; README.md tells how to build for Windows")

    def system_requirements(self):
        # Asks for what is missing, and installs it with -c tools.system.package_manager:mode=install
        Apt(self).install(DEBIAN_PACKAGES, check=True)

    def layout(self):
        self.folders.root = "../.."
        cmake_layout(self)

    def generate(self):
        toolchain = CMakeToolchain(self)
        toolchain.user_presets_path = False  # nothing among the sources
        toolchain.generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def package(self):
        CMake(self).install()
        copy(self, "LICENSE", self.source_folder, Path(self.package_folder) / "licenses")
        rmdir(self, Path(self.package_folder) / "share" / "doc")  # as Debian's packages have it

    def package_info(self):
        # CMake reads the package's own files: find_package(Rastrel COMPONENTS pages), with the static library of the core.
        self.cpp_info.set_property("cmake_find_mode", "none")
        core = self.cpp_info.components["core"]
        core.libs = ["rastrel"]
        core.builddirs = ["lib/cmake/Rastrel"]
        core.set_property("pkg_config_name", "rastrel")
        pages = self.cpp_info.components["pages"]
        pages.libs = ["rastrel_pages"]
        pages.requires = ["core"]
        pages.set_property("pkg_config_name", "rastrel_pages")
