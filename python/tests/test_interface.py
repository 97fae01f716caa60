# SPDX-License-Identifier: MIT
"""The declarations of this package against the C headers: names, arguments, results, records, the stub."""

import ctypes
import subprocess
import sys

import pytest

import headers
import write_stub
from panoval import _records, raw
from panoval._arguments import record, samples


def ctype(kind):
    """What ctypes is to have for an argument or a result of that C type."""
    if kind.base == "char" and kind.stars == 1:
        return ctypes.c_char_p
    if kind.base in headers.OPAQUE:
        return {0: None, 1: ctypes.c_void_p, 2: ctypes.POINTER(ctypes.c_void_p)}[kind.stars]
    base = headers.SCALARS.get(kind.base) or getattr(_records, kind.base, None)
    if kind.stars == 0:
        return base
    if kind.stars == 2:
        inner = ctypes.c_char_p if kind.base == "char" else ctypes.POINTER(base)
        return ctypes.POINTER(inner)
    return (samples if kind.base in headers.SCALARS else record)(base, kind.is_const)


PROTOTYPES = headers.prototypes()


def test_the_headers_are_read_whole():
    names = {routine.name for routine in PROTOTYPES}
    exported = set()
    for file in ("panoval", "panoval_mosaic", "panoval_measure"):
        lines = (headers.INCLUDE.parent / "tests" / "interface" / f"{file}.exports").read_text().splitlines()
        exported.update(line for line in lines if line and not line.startswith("#"))
    assert names == exported


@pytest.mark.parametrize("routine", PROTOTYPES, ids=lambda routine: routine.name)
def test_a_routine_is_declared_as_in_its_header(routine):
    declared = getattr(raw, routine.name)
    assert declared.restype == ctype(routine.result)
    assert declared.argtypes == [ctype(parameter.type) for parameter in routine.parameters]


@pytest.mark.parametrize("name", sorted(headers.records()))
def test_a_record_has_the_fields_of_its_header(name):
    struct = getattr(_records, name)
    fields = headers.records()[name]
    assert [field[0] for field in struct._fields_] == [field for field, _ in fields]
    for (field, declared), (_, kind) in zip(struct._fields_, fields):
        if kind is None:
            assert issubclass(declared, ctypes._CFuncPtr), field
        elif isinstance(kind[0], headers.CType):
            base = headers.SCALARS.get(kind[0].base) or getattr(_records, kind[0].base)
            assert declared._length_ == kind[1] and declared._type_ == base, field
        elif kind.stars == 0:
            assert declared == (headers.SCALARS.get(kind.base) or getattr(_records, kind.base)), field
        else:
            assert ctypes.sizeof(declared) == 8, field
    assert struct in _records.SIZES


def test_the_compiler_lays_the_records_out_alike(tmp_path):
    lines = ["#include <panoval.h>", "#include <panoval_mosaic.h>", "#include <panoval_measure.h>", "#include <stdio.h>",
             "int main(void) {"]
    for name, fields in headers.records().items():
        lines += [f'printf("{name}.{field} %zu\\n", offsetof({name}, {field}));' for field, _ in fields]
        lines.append(f'printf("{name} %zu\\n", sizeof({name}));')
    source, program = tmp_path / "offsets.c", tmp_path / "offsets"
    source.write_text("\n".join(lines + ["return 0; }"]))
    subprocess.run(["gcc", f"-I{headers.INCLUDE}", str(source), "-o", str(program)], check=True)
    printed = subprocess.run([str(program)], check=True, capture_output=True, text=True).stdout.split("\n")
    for line in filter(None, printed):
        what, number = line.split()
        name, _, field = what.partition(".")
        struct = getattr(_records, name)
        assert (getattr(struct, field).offset if field else ctypes.sizeof(struct)) == int(number), what


def test_the_stub_is_that_of_the_headers():
    assert write_stub.STUB.read_text() == write_stub.stub(), "run python/tools/write_stub.py"


def test_every_public_name_is_there_and_described():
    import panoval

    for name in panoval.__all__:
        thing = getattr(panoval, name)
        if callable(thing):
            assert thing.__doc__, name


def test_public_functions_have_types_and_an_example():
    import inspect

    import panoval

    for name in panoval.__all__:
        thing = getattr(panoval, name)
        if inspect.isfunction(thing):
            assert ">>>" in thing.__doc__, name
            signature = inspect.signature(thing)
            assert signature.return_annotation is not inspect.Signature.empty, name
            for parameter in signature.parameters.values():
                assert parameter.annotation is not inspect.Parameter.empty, f"{name}: {parameter.name}"


def test_methods_of_a_mosaic_and_tasks_have_an_example():
    import inspect

    import panoval.dask
    import panoval.tasks

    members = {name: member for name, member in vars(panoval.Mosaic).items() if not name.startswith("_")}
    for module in (panoval.dask, panoval.tasks):
        members.update({f"{module.__name__}.{name}": getattr(module, name) for name in module.__all__
                        if inspect.isfunction(getattr(module, name))})
    assert len(members) > 20
    for name, member in members.items():
        function = getattr(member, "fget", None) or getattr(member, "__func__", member)
        assert ">>>" in function.__doc__, name
        assert inspect.signature(function).return_annotation is not inspect.Signature.empty, name


def test_the_package_says_where_it_looked(tmp_path):
    code = "import panoval"
    environment = {"PANOVAL_LIBRARY_DIR": str(tmp_path), "PYTHONPATH": ":".join(sys.path)}
    run = subprocess.run([sys.executable, "-c", code], env=environment, capture_output=True, text=True)
    assert run.returncode == 1
    assert f"PANOVAL_LIBRARY_DIR is '{tmp_path}', which has no libpanoval.so.1" in run.stderr
