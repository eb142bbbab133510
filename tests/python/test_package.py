"""The package's shape: its type stubs say what the native module has, and
the records' fields are the C++ records' (any field the native side sets or
reads that a class lacks fails the round trips; this checks the other way)."""

import ast
import dataclasses
import inspect
import pathlib

import trekcom
from trekcom import _trekcom


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
