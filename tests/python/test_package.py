"""The package's shape: its type stubs say what the native module has, and
the records' fields are the C++ records' (any field the native side sets or
reads that a class lacks fails the round trips; this checks the other way)."""

import ast
import dataclasses
import inspect
import pathlib
import subprocess

import trekcom
from trekcom import _trekcom
from conftest import run_python

EXAMPLES = pathlib.Path(__file__).resolve().parents[2] / "examples" / "python"


def stub_names(tree):
    names = {}
    for node in tree.body:
        if isinstance(node, ast.ClassDef):
            names[node.name] = {n.name for n in node.body if isinstance(n, ast.FunctionDef)} - {"__init__"}
        elif isinstance(node, ast.FunctionDef):
            names.setdefault("", set()).add(node.name)
    return names


def test_the_stubs_name_what_the_native_module_has():
    stubs = stub_names(ast.parse(pathlib.Path(_trekcom.__file__).with_name("_trekcom.pyi").read_text()))
    assert stubs[""] == {n for n in dir(_trekcom) if not n.startswith("_") and callable(getattr(_trekcom, n))
                         and not inspect.isclass(getattr(_trekcom, n))}
    native = {n for n in dir(_trekcom.Receiver) if not n.startswith("_")}
    assert stubs["Receiver"] == native


def test_every_record_field_is_read_from_a_unit():
    # A field the native side never fills keeps its default in every record
    # the unit gives; the simulated units fill every field of these classes.
    with trekcom.open("sim") as gps:
        waypoint = gps.get("waypoints")[0]
        product = gps.identify()
    assert set(trekcom.KINDS) >= set(_trekcom.kinds())
    assert {f.name for f in dataclasses.fields(waypoint)} >= {"Ident", "Lat", "Lon", "Smbl", "Time_Seconds"}
    assert product.Product_ID and product.Software_Version and product.Protocols[0] == "L001"
    assert str(product).startswith("TREKSIM")


def test_the_backup_example_writes_a_gpx_the_tool_restores(tmp_path, tool):
    backup = tmp_path / "unit.gpx"
    script = run_python(open(EXAMPLES / "backup_to_gpx.py").read(), "sim", str(backup))
    out, err = script.communicate(timeout=60)
    assert script.returncode == 0, err
    assert out.startswith(f"{backup}: 12 waypoints, 2 proximity, 2 routes, 2 tracks, 3 laps, 31 almanac")
    with trekcom.open("sim") as gps:
        held = gps.get_all()
    loaded = trekcom.load(str(backup))
    for kind in ("waypoints", "proximity", "routes"):  # what a GPX file gives back
        assert [r.Ident for r in loaded[kind]] == [r.Ident for r in held[kind]], kind
    assert [len(t.Points) for t in loaded["tracks"]] == [len(t.Points) for t in held["tracks"]]
    restored = subprocess.run([tool, "--port", "sim", "--sim-empty", "put", str(backup), "--verify"],
                              capture_output=True, text=True)
    assert restored.returncode == 0, restored.stderr


def test_the_live_example_prints_positions():
    script = run_python(open(EXAMPLES / "live_positions.py").read(), "sim", "2")
    out, err = script.communicate(timeout=60)
    assert script.returncode == 0, err
    lines = out.splitlines()
    assert len(lines) == 2 and all(" 46.635600    6.282200 " in line for line in lines), out
