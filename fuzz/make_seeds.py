#!/usr/bin/env python3
"""Writes the raw seed inputs of the fuzz targets, for `make fuzz-corpus`,
which minimises them into fuzz/corpus/ with libFuzzer's -merge=1.

  make_seeds.py SOURCE_DIR OUT_DIR

OUT_DIR/answer gets every example answer and every JSON text that the tests
write as a raw string literal, behind control bytes of the answer target
(see answer_fuzzer.cpp); OUT_DIR/text gets the string values of those
texts behind a buffer-size byte (see text_fuzzer.cpp).
"""
import glob
import hashlib
import json
import os
import re
import sys

# Raw string literals, adjacent ones joined: R"(a)" R"(b)" is "ab".
LITERALS = re.compile(r'R"\((.*?)\)"((?:\s*R"\(.*?\)")*)', re.S)
PIECE = re.compile(r'R"\((.*?)\)"', re.S)

OPERATIONS = 23  # kOpCount in answer_fuzzer.cpp


def test_texts(source):
    texts = []
    for path in sorted(glob.glob(os.path.join(source, "tests", "*_test.cpp"))):
        with open(path, encoding="utf-8") as f:
            code = f.read()
        for match in LITERALS.finditer(code):
            text = match.group(1) + "".join(PIECE.findall(match.group(2)))
            try:
                json.loads(text)
            except ValueError:
                continue
            texts.append(text.encode("utf-8"))
    return texts


def strings_of(value, out):
    if isinstance(value, str):
        out.add(value)
    elif isinstance(value, list):
        for v in value:
            strings_of(v, out)
    elif isinstance(value, dict):
        for k, v in value.items():
            strings_of(v, out)


def write(directory, data):
    os.makedirs(directory, exist_ok=True)
    name = hashlib.sha1(data).hexdigest()
    with open(os.path.join(directory, name), "wb") as f:
        f.write(data)


def main():
    source, out = sys.argv[1], sys.argv[2]
    examples = []
    for path in sorted(glob.glob(os.path.join(source, "examples", "*.json"))):
        with open(path, "rb") as f:
            examples.append(f.read())
    tests = test_texts(source)

    answers = os.path.join(out, "answer")
    # Every operation on the root (both text modes, and with diagnostics);
    # the tests' small texts also with each operation on every node.
    for text in examples + tests:
        for control in (0x00, 0x01, 0x05):
            write(answers, bytes([control]) + text)
    for text in tests:
        for op in range(OPERATIONS):
            write(answers, bytes([(op << 3) | 0x02]) + text)

    strings = set()
    for text in examples + tests:
        strings_of(json.loads(text), strings)
    for s in sorted(strings):
        write(os.path.join(out, "text"), bytes([79]) + s.encode("utf-8"))


if __name__ == "__main__":
    main()
