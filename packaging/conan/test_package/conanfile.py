"""Examples in C on the libraries of the package, and its command on a sample."""

from pathlib import Path

from conan import ConanFile
from conan.tools.build import can_run
from conan.tools.cmake import CMake, CMakeToolchain


class RastrelTest(ConanFile):
    settings = "os", "arch", "compiler", "build_type"
    generators = "CMakeDeps"

    def requirements(self):
        self.requires(self.tested_reference_str, run=True)  # the command, too

    def layout(self):
        self.folders.root = "../../.."
        self.folders.source = "packaging/conan/test_package"
        self.folders.build = self.folders.generators = "build/conan-test"

    def generate(self):
        toolchain = CMakeToolchain(self)
        toolchain.user_presets_path = False  # nothing among the sources
        toolchain.generate()

    def build(self):
        cmake = CMake(self)
        cmake.configure()
        cmake.build()

    def test(self):
        if not can_run(self):
            return
        samples = Path(self.source_folder).parents[2] / "samples"
        run = lambda command: self.run(command, env="conanrun")
        run("./clean_buffer")
        for ending in ("tif", "png", "jpg", "pdf"):
            run(f'rastrel clean --overwrite "{samples}/letter-1bit.tif" -o page.{ending}')
        run(f'rastrel apply --overwrite "{samples}/letter-1bit.tif" -o scan.bmp')
        run("./clean_bitmap")
