"""poiparser.summary and merge_summaries against poiparse --jsonl --summary,
and the Dask replay of examples/replay_dask.py."""
import json
import os
import random
import subprocess
import sys

import pytest

from conftest import ROOT, example_paths, run_tool, table_texts


def printed(summary):
    return json.dumps(summary, indent=2, ensure_ascii=False) + "\n"


@pytest.fixture(scope="module")
def log(tmp_path_factory):
    """A log of answers: the examples on one line each and the test tables'
    answers, with blank, invalid and lenient lines among them. Returns its
    path and its lines (with their newlines, as a log reader gives them)."""
    lines = []
    for path in example_paths():
        with open(path, "rb") as f:
            lines.append(f.read().replace(b"\n", b" "))
    lines += table_texts()[:200]
    rng = random.Random(7)
    for extra in (b"", b"  \t", b'{"bad', b'{"result":{"error":0},"traffic_citys":{"contents":[{"code":01}]}}', b"[]"):
        for _ in range(3):
            lines.insert(rng.randrange(len(lines) + 1), extra)
    path = tmp_path_factory.mktemp("log") / "answers.jsonl"
    path.write_bytes(b"\n".join(lines) + b"\n")
    return str(path), [line + b"\n" for line in lines]


def test_summary_prints_what_the_tool_prints(poiparser, log):
    path, lines = log
    for args, kwargs in (([], {}), (["--utf8"], {"utf8": True}), (["--kind", "poi-list"], {"kind": "poi-list"})):
        out, err, _ = run_tool(["--jsonl", "--summary", "-q"] + args + [path], check_status=(2,))
        summary = poiparser.summary(lines, source=path, **kwargs)
        assert printed(summary) == out
        assert summary["invalid"] > 0 and summary["diagnostics"]
        # Texts without their newlines, as str, give the same.
        stripped = [line.rstrip(b"\n").decode("utf-8") for line in lines]
        assert poiparser.summary(stripped, source=path, **kwargs) == summary


def test_merging_the_parts_of_any_split_gives_the_whole(poiparser, log):
    _, lines = log
    whole = poiparser.summary(lines, source="log")
    rng = random.Random(11)
    cuts = [0, 1, len(lines) - 1, len(lines)] + [rng.randrange(len(lines) + 1) for _ in range(12)]
    for _ in range(8):
        points = sorted(rng.sample(cuts, 3))
        bounds = [0] + points + [len(lines)]
        parts = [poiparser.summary(lines[a:b], source="log") for a, b in zip(bounds, bounds[1:])]
        assert printed(poiparser.merge_summaries(parts)) == printed(whole), bounds
    # Merging is associative, and a merged summary merges again.
    a, b, c = (poiparser.summary(lines[i::3], source=f"s{i}") for i in range(3))
    assert poiparser.merge_summaries([poiparser.merge_summaries([a, b]), c]) == poiparser.merge_summaries([a, b, c])
    assert poiparser.merge_summaries([]) == poiparser.summary([], source="x") | {"sources": []}


def test_sources_of_other_names_stay_apart(poiparser):
    city = '{"result":{"error":0},"traffic_citys":{"contents":[{"code":"x"}]}}'
    merged = poiparser.merge_summaries(
        [poiparser.summary(["", city], source="a"), poiparser.summary([city, ""], source="b"),
         poiparser.summary(["", city], source="b")])
    assert merged["sources"] == [{"name": "a", "lines": 2}, {"name": "b", "lines": 4}]
    assert [(d["count"], d["first"]) for d in merged["diagnostics"]] == [(3, "a:2")]
    assert merged["answers"] == 3 and merged["kinds"] == {"city-list": 3}


BROKEN = [
    ({"answers": 1}, "has no"),
    ({**{k: 0 for k in ("answers", "accepted", "refused", "invalid", "out_of_memory")}, "kinds": {},
      "sources": [{"name": "a", "lines": 1}],
      "diagnostics": [{"path": "$", "severity": "skipped", "message": "m", "count": 1, "first": "b:1"}]},
     "names none of the summary's sources"),
    ({**{k: 0 for k in ("answers", "accepted", "refused", "invalid", "out_of_memory")}, "kinds": {},
      "sources": [{"name": "a", "lines": 1}],
      "diagnostics": [{"path": "$", "severity": "fatal", "message": "m", "count": 1, "first": "a:1"}]},
     "unknown severity"),
]


@pytest.mark.parametrize("summary,message", BROKEN)
def test_broken_summaries_raise_value_error(poiparser, summary, message):
    with pytest.raises(ValueError, match=message):
        poiparser.merge_summaries([summary])


def test_dask_replay_prints_the_tools_summary(log):
    path, _ = log
    expected, _, status = run_tool(["--jsonl", "--summary", "-q", "--kind", "poi-list", path], check_status=(2,))
    env = dict(os.environ, PYTHONPATH=os.pathsep.join(filter(None, [os.path.dirname(__import__("poiparser").__file__),
                                                                   os.environ.get("PYTHONPATH")])))
    done = subprocess.run(
        [sys.executable, os.path.join(ROOT, "examples", "replay_dask.py"), path, "--kind", "poi-list",
         "--workers", "2", "--blocksize", "20000"],
        capture_output=True, env=env, timeout=300)
    assert done.returncode == status, done.stderr.decode()
    assert done.stdout.decode("utf-8") == expected
