"""pip install --no-build-isolation .  builds the trekcom Python package.

The extension is the CMake target _trekcom (python/CMakeLists.txt): this
script configures a Release tree of the project with TREKCOM_PYTHON=ON for
the Python running it, builds that one target, and puts the module into the
package. TREKCOM_BUILD_DIR names an already configured tree to build it in
instead (the test suite does so, to reuse its own).
"""

import os
import sys
import shutil
import subprocess
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = Path(__file__).resolve().parent
(ROOT / "build-python").mkdir(exist_ok=True)


class CMakeBuild(build_ext):
    def build_extension(self, ext: Extension) -> None:
        tree_env = os.environ.get("TREKCOM_BUILD_DIR")
        if tree_env and (Path(tree_env) / "CMakeCache.txt").exists():
            tree = Path(tree_env).resolve()
        else:
            tree = Path(self.build_temp).resolve() / "cmake"
            tree.mkdir(parents=True, exist_ok=True)
            subprocess.check_call([
                "cmake", "-S", str(ROOT), "-B", str(tree), "-DCMAKE_BUILD_TYPE=Release", "-DTREKCOM_PYTHON=ON",
                "-DBUILD_TESTING=OFF", "-DTREKCOM_BUILD_BENCH=OFF", f"-DPython_EXECUTABLE={sys.executable}",
            ])
        subprocess.check_call(["cmake", "--build", str(tree), "--target", "_trekcom", "-j",
                               os.environ.get("TREKCOM_JOBS", "2")])
        built = sorted((tree / "python" / "trekcom").glob("_trekcom*.so"))
        if not built:
            raise RuntimeError(f"the build made no _trekcom module in {tree}/python/trekcom")
        target = Path(self.get_ext_fullpath(ext.name))
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(built[-1], target)


setup(
    name="trekcom",
    version="0.1.0",
    description="Talk to Garmin GPS receivers over serial and USB",
    long_description=(ROOT / "python" / "README.md").read_text(encoding="utf-8"),
    long_description_content_type="text/markdown",
    python_requires=">=3.10",
    packages=["trekcom"],
    package_dir={"": "python"},
    package_data={"trekcom": ["py.typed", "*.pyi"]},
    ext_modules=[Extension("trekcom._trekcom", sources=[])],
    cmdclass={"build_ext": CMakeBuild},
    # Beside the CMake trees, not inside build/, the default one.
    options={"build": {"build_base": "build-python"}, "egg_info": {"egg_base": "build-python"}},
    zip_safe=False,
)
