#!/usr/bin/python3
"""Checks poiparse --schema against what the operations do.

  check_schemas.py POIPARSE UNIT_TESTS SOURCE_DIR

- every kind's two schemas are valid JSON Schema 2020-12;
- every example answer (examples/NAME.json, read with examples/NAME.args)
  and every answer of the operations' test tables that is accepted with no
  diagnostic validates against its answer schema (a record operation
  refuses a node that is not an object without a report of its own: its
  caller reports it, so refused answers are left out);
- the same for the answer fuzz corpus, each text read as every kind;
- every bundle of the examples, the golden files and the test tables
  validates against its bundle schema (a refused answer's against
  #/$defs/keys);
- bundles with an unknown key, or with a value of another type, do not.

The test tables are taken from the unit tests themselves: UNIT_TESTS runs
with POIPARSER_CASE_LOG set and appends every case it checks. With
POIPARSER_EMULATOR set (a cross build), the programs run under it.
"""

import copy
import glob
import json
import os
import subprocess
import sys
import tempfile

import jsonschema
from jsonschema import Draft202012Validator

failures = []


def fail(message):
    failures.append(message)
    if len(failures) <= 40:
        print("FAIL: " + message, file=sys.stderr)


# A cross build's programs run under its emulator (a command prefix).
EMULATOR = os.environ.get("POIPARSER_EMULATOR", "").split()


def run(args, **kwargs):
    args = EMULATOR + list(args)
    return subprocess.run(args, stdout=subprocess.PIPE, stderr=subprocess.PIPE, check=False, **kwargs)


class KindSchemas:
    def __init__(self, poiparse, kind):
        out = run([poiparse, "--schema", kind])
        if out.returncode != 0:
            raise SystemExit("poiparse --schema %s: exit %d: %s" % (kind, out.returncode, out.stderr.decode()))
        both = json.loads(out.stdout)
        self.answer_schema = both["answer"]
        self.bundle_schema = both["bundle"]
        for name, schema in (("answer", self.answer_schema), ("bundle", self.bundle_schema)):
            try:
                Draft202012Validator.check_schema(schema)
            except jsonschema.SchemaError as error:
                fail("%s: the %s schema is not valid 2020-12: %s" % (kind, name, error.message))
        self.answer = Draft202012Validator(self.answer_schema)
        self.bundle = Draft202012Validator(self.bundle_schema)
        # A refused answer's bundle: the keys without "required".
        partial = dict(self.bundle_schema)
        partial.pop("required", None)
        partial.pop("anyOf", None)
        partial["$ref"] = "#/$defs/keys"
        self.partial = Draft202012Validator(partial)


def first_error(validator, instance):
    error = jsonschema.exceptions.best_match(validator.iter_errors(instance))
    if error is None:
        return None
    return "%s at %s" % (error.message[:300], "/".join(str(p) for p in error.absolute_path))


def check_bundle(schemas, kind, result, bundle, where):
    validator = schemas.bundle if result == 1 else schemas.partial
    error = first_error(validator, bundle)
    if error is not None:
        fail("%s: %s bundle does not validate: %s" % (where, kind, error))
        return False
    return True


def check_answer(schemas, kind, answer, where):
    error = first_error(schemas.answer, answer)
    if error is not None:
        fail("%s: %s answer read with no diagnostic does not validate: %s" % (where, kind, error))


# ---- Mutations -------------------------------------------------------------

def objects_in(value, path=()):
    """Every object of a bundle with its path, the bundle itself first."""
    if isinstance(value, dict):
        yield path, value
        for key, item in value.items():
            yield from objects_in(item, path + (key,))
    elif isinstance(value, list):
        for index, item in enumerate(value):
            yield from objects_in(item, path + (index,))


def other_type(value):
    if isinstance(value, bool):
        return 1
    if isinstance(value, int):
        return "1"
    if isinstance(value, float):
        return "1.5"
    if isinstance(value, str):
        return 1
    if isinstance(value, list):
        return {}
    return []


def at(value, path):
    for step in path:
        value = value[step]
    return value


def mutations(bundle):
    """An unknown key in each object, and each key's value of another type."""
    for path, obj in list(objects_in(bundle)):
        mutated = copy.deepcopy(bundle)
        at(mutated, path)["no_such_key"] = 1
        yield "unknown key at /" + "/".join(map(str, path)), mutated
        for key, value in obj.items():
            mutated = copy.deepcopy(bundle)
            at(mutated, path)[key] = other_type(value)
            yield "%s of another type at /%s" % (key, "/".join(map(str, path))), mutated
        if isinstance(obj, dict) and obj:
            for key, value in obj.items():
                if isinstance(value, list) and value and not isinstance(value[0], (dict, list)):
                    mutated = copy.deepcopy(bundle)
                    at(mutated, path)[key] = [other_type(value[0])]
                    yield "%s element of another type" % key, mutated


def check_mutations(schemas, kind, bundle, where):
    count = 0
    for what, mutated in mutations(bundle):
        count += 1
        if schemas.bundle.is_valid(mutated) or schemas.partial.is_valid(mutated):
            fail("%s: %s bundle with %s still validates" % (where, kind, what))
    return count


# Answers at the edges of what the readers take. Each "clean" one is read
# with result 1 and no diagnostic, so its answer schema must take it; each
# other one is refused or has a member skipped, and its answer schema states
# that it does not take it.
EDGES = [
    ("clean", "indoor", {"errNo": {}, "Msg": []}),  # unreadable status: an unknown error
    ("refused-or-skipped", "indoor", {"errNo": 2, "data": {}}),  # a page under a bad status is skipped
    ("clean", "indoor", {"errNo": "0", "data": {"page_num": True}}),
    ("clean", "route-addr-1", []),  # any root reads as an empty object
    ("clean", "route-addr-1", {"result": {"city_list": [], "prio_flag": "x", "wp_wd": 5}}),
    ("clean", "route-addr-2", {"result": {"error": "-0"}, "traffic_pois": {"option": {"prio_flag": [1], "city_list": [0, 0]},
                                                                      "content": {"start": {}, "end": []}}}),
    ("clean", "city-query", {"content": {"city_type": " 3 ", "level": False, "sup_bus": "1"}}),
    ("clean", "especial", {"content": ["1,2", "x", {}]}),
    ("clean", "indoor-poi", {"twp": " -7x"}),
    ("clean", "poi", {"ext": {"src_name": 0, "detail_info": {}}, "tel": 12, "poiType": 9.9}),
    ("refused", "city-list", {"result": {"error": 1}, "traffic_citys": {}}),
    ("refused", "city-list", {"result": {"error": "1"}, "traffic_citys": {}}),
    ("refused", "poi-list", {"result": {"error": 0}, "poi_result": {"option": {}}}),
    ("refused", "indoor", {"errNo": 0}),
    ("refused", "especial", {"content": ["1;2", "3"]}),
    ("refused", "district", {"result": {}, "content": []}),
    ("refused", "circum", {"result": {}, "center": {"poi": {}}}),
    ("refused", "area-multi", {"result": {"result_array": [1]}}),
]


def check_edges(poiparse, schemas):
    for expected, kind, answer in EDGES:
        out = run([poiparse, "--explain", "--compact", "--kind", kind], input=json.dumps(answer).encode())
        printed = json.loads(out.stdout)
        where = "edge %s" % json.dumps(answer)
        clean = printed["result"] == 1 and not printed["diagnostics"]
        if clean != (expected == "clean"):
            fail("%s: read as %s, expected %s" % (where, json.dumps(printed), expected))
        valid = schemas[kind].answer.is_valid(answer)
        if valid != (expected == "clean"):
            fail("%s: the %s answer schema %s it" % (where, kind, "takes" if valid else "does not take"))


def main():
    poiparse, unit_tests, source = sys.argv[1:4]
    kinds_text = run([poiparse, "--list-kinds"]).stdout.decode()
    kinds = [line.split()[0] for line in kinds_text.splitlines() if line.strip() and not line.startswith(" ")]
    schemas = {}
    for kind in kinds:
        schemas[kind] = KindSchemas(poiparse, kind)
    print("%d kinds: schemas valid 2020-12" % len(schemas))

    check_edges(poiparse, schemas)
    checked = {"answers": 0, "bundles": 0, "mutations": 0}
    mutated_kinds = set()

    def bundle_seen(kind, result, bundle, where):
        if kind not in schemas:
            fail("%s: unknown kind %s" % (where, kind))
            return
        checked["bundles"] += 1
        if check_bundle(schemas[kind], kind, result, bundle, where) and result == 1 and bundle:
            # Mutate a few bundles of each kind (every key of them).
            if len([k for k in mutated_kinds if k[0] == kind]) < 3:
                mutated_kinds.add((kind, where))
                checked["mutations"] += check_mutations(schemas[kind], kind, bundle, where)

    # Examples, read by the tool with their own arguments and --explain.
    for path in sorted(glob.glob(os.path.join(source, "examples", "*.json"))):
        args_path = path[:-5] + ".args"
        args = open(args_path).read().split() if os.path.exists(args_path) else []
        out = run([poiparse, "--explain", "--compact"] + [a for a in args if a != "--explain"] + [path])
        where = os.path.relpath(path, source)
        for line in out.stdout.decode().split("\n"):
            if not line.strip():
                continue
            printed = json.loads(line)
            kind = printed["kind"]
            bundle_seen(kind, printed["result"], printed["bundle"], where)
            if printed["result"] == 1 and not printed.get("diagnostics"):
                checked["answers"] += 1
                check_answer(schemas[kind], kind, json.load(open(path)), where)

    # Golden files: the tool's output, as checked in.
    for path in sorted(glob.glob(os.path.join(source, "tests", "golden", "*.out"))):
        decoder = json.JSONDecoder()
        text = open(path).read()
        index = 0
        while True:
            while index < len(text) and text[index].isspace():
                index += 1
            if index >= len(text):
                break
            printed, index = decoder.raw_decode(text, index)
            bundle_seen(printed["kind"], printed["result"], printed["bundle"], os.path.relpath(path, source))

    # The answer fuzz corpus (a control byte, then the text), every text read
    # as every kind, with and without the text mode flag.
    # Texts that Python cannot write back as the same JSON (1e400) are left out.
    texts, lines = [], []
    for path in sorted(glob.glob(os.path.join(source, "fuzz", "corpus", "answer", "*"))):
        try:
            text = json.loads(open(path, "rb").read()[1:].decode("utf-8"))
            lines.append(json.dumps(text, ensure_ascii=False, allow_nan=False) + "\n")
            texts.append(text)
        except ValueError:
            continue
    jsonl = "".join(lines).encode()
    for kind in kinds:
        for flag in ([], ["--utf8"]):
            out = run([poiparse, "--jsonl", "--explain", "-q", "--kind", kind] + flag, input=jsonl)
            for index, line in enumerate(out.stdout.decode().split("\n")):
                if not line.strip():
                    continue
                printed = json.loads(line)
                if "error" in printed:
                    fail("fuzz corpus text %d: %s" % (index, printed["error"]))
                    continue
                where = "fuzz corpus text %d (%s)" % (index, json.dumps(texts[index])[:120])
                checked["bundles"] += 1
                check_bundle(schemas[kind], kind, printed["result"], printed["bundle"], where)
                if printed["result"] == 1 and not printed.get("diagnostics"):
                    checked["answers"] += 1
                    check_answer(schemas[kind], kind, texts[index], where)

    # The operations' test tables.
    with tempfile.TemporaryDirectory() as tmp:
        log = os.path.join(tmp, "cases.jsonl")
        env = dict(os.environ, POIPARSER_CASE_LOG=log)
        out = run([unit_tests, "--gtest_filter=-ToolCli.*:ToolGolden.*"], env=env)
        if out.returncode != 0:
            fail("the unit tests failed while logging their cases:\n" + out.stdout.decode()[-2000:])
        cases = 0
        with open(log, encoding="utf-8", errors="replace") as lines:
            for number, line in enumerate(lines, 1):
                case = json.loads(line)
                cases += 1
                where = "test case %d (%s)" % (number, json.dumps(case["input"])[:120])
                bundle_seen(case["kind"], case["result"], case["bundle"], where)
                if case["clean"] and case["result"] == 1:
                    checked["answers"] += 1
                    check_answer(schemas[case["kind"]], case["kind"], case["input"], where)
        if cases < 100:
            fail("only %d test table cases were logged" % cases)

    print("%(answers)d answers and %(bundles)d bundles validated; %(mutations)d mutated bundles refused" % checked)
    if failures:
        print("%d failures" % len(failures), file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
