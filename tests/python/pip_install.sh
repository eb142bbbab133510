#!/bin/sh
# pip install --no-build-isolation of the source tree into a fresh virtual
# environment of PYTHON (which sees Debian's setuptools and pybind11, and no
# package index), then the installed package used from outside the tree.
# BUILD: a configured tree whose module pip reuses (empty: pip builds its own).
# usage: pip_install.sh PYTHON SOURCE BUILD WORKDIR
set -eu
python=$1 source=$2 build=$3 work=$4
rm -rf "$work" && mkdir -p "$work"
"$python" -m venv --system-site-packages "$work/venv"
TREKCOM_BUILD_DIR=$build "$work/venv/bin/python" -m pip install --no-build-isolation --no-index --quiet \
  --disable-pip-version-check "$source"
cd "$work"
"$work/venv/bin/python" - <<'PY'
import pathlib, trekcom
where = pathlib.Path(trekcom.__file__).resolve()
assert "site-packages" in where.parts, where
assert (where.parent / "py.typed").exists() and (where.parent / "_trekcom.pyi").exists()
with trekcom.open("sim") as gps:
    product = gps.identify()
    waypoints = gps.get("waypoints")
    gps.put(waypoints)
    fix = next(iter(gps.pvt()))
print(f"installed at {where.parent}: {product.Product_Description_1}, {len(waypoints)} waypoints, fix {fix.Lat:.4f} {fix.Lon:.4f}")
PY
