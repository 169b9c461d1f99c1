"""Shared fixtures of the module's tests: the module, the poiparse it is
compared with, and the answers of the examples and of the C++ test tables."""
import glob
import importlib.util
import json
import os
import subprocess

import pytest

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


def poiparse_path():
    return os.environ.get("POIPARSE", os.path.join(ROOT, "build", "python", "poiparse"))


def run_tool(args, input_bytes=b"", check_status=None):
    """Runs poiparse ARGS with INPUT on standard input: (stdout, stderr, status)."""
    done = subprocess.run([poiparse_path()] + list(args), input=input_bytes, capture_output=True)
    if check_status is not None:
        assert done.returncode in check_status, done.stderr.decode()
    return done.stdout.decode("utf-8"), done.stderr.decode("utf-8"), done.returncode


def example_paths():
    return sorted(glob.glob(os.path.join(ROOT, "examples", "*.json")))


def example_args(path):
    args_path = path[: -len(".json")] + ".args"
    if not os.path.exists(args_path):
        return []
    with open(args_path) as f:
        return f.read().split()


def table_texts():
    """Every JSON text that the C++ tests write as a raw string literal (the
    fuzz seeds' list), on one line each."""
    spec = importlib.util.spec_from_file_location("make_seeds", os.path.join(ROOT, "fuzz", "make_seeds.py"))
    seeds = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(seeds)
    texts = []
    for text in seeds.test_texts(ROOT):
        line = text.replace(b"\n", b" ").replace(b"\r", b" ")
        if line not in texts:
            texts.append(line)
    return texts


def same_values(a, b, where="$"):
    """Asserts that a and b are equal with the same types throughout (1 is not
    1.0, True is not 1)."""
    assert type(a) is type(b), f"{where}: {type(a).__name__} {a!r} against {type(b).__name__} {b!r}"
    if isinstance(a, dict):
        assert list(a.keys()) == list(b.keys()), where
        for k in a:
            same_values(a[k], b[k], f"{where}.{k}")
    elif isinstance(a, list):
        assert len(a) == len(b), where
        for i, (x, y) in enumerate(zip(a, b)):
            same_values(x, y, f"{where}[{i}]")
    else:
        assert a == b, where


@pytest.fixture(scope="session")
def poiparser():
    import poiparser as module

    return module
