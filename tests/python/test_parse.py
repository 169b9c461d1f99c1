"""poiparser.parse and parse_many against poiparse: every example and every
answer of the C++ test tables, with every kind, types included."""
import json
import re

import pytest

from conftest import example_args, example_paths, run_tool, same_values, table_texts


@pytest.mark.parametrize("path", example_paths(), ids=lambda p: p.rsplit("/", 1)[-1])
@pytest.mark.parametrize("explain", [False, True])
def test_examples_as_the_tool_prints_them(poiparser, path, explain):
    args = example_args(path)
    with open(path, "rb") as f:
        text = f.read()
    out, err, _ = run_tool(args + ["--compact"] + (["--explain"] if explain else []) + [path], check_status=(0, 1))
    kind = args[args.index("--kind") + 1] if "--kind" in args else None
    explain = explain or "--explain" in args
    got = poiparser.parse(text, kind=kind, utf8="--utf8" in args, explain=explain)
    same_values(got, json.loads(out))
    # A str gives what its UTF-8 bytes give.
    try:
        as_str = text.decode("utf-8")
    except UnicodeDecodeError:
        return
    same_values(poiparser.parse(as_str, kind=kind, utf8="--utf8" in args, explain=explain), got)


# The leniency warning names the text's line: with --jsonl, the log's line.
LENIENCY_LINE = re.compile(r"(accepted through cJSON's leniencies: .* at line )\d+(, column \d+)$")


def expected_from_line(line):
    value = json.loads(line)
    if "error" in value:
        return value
    for d in value.get("diagnostics", []):
        d["message"] = LENIENCY_LINE.sub(r"\g<1>1\2", d["message"])
    return value


@pytest.mark.parametrize("utf8", [False, True])
def test_every_table_answer_with_every_kind(poiparser, utf8):
    texts = table_texts()
    assert len(texts) > 100
    log = b"\n".join(texts) + b"\n"
    for kind in [None] + poiparser.kinds():
        args = ["--jsonl", "--explain", "-q"] + (["--kind", kind] if kind else []) + (["--utf8"] if utf8 else [])
        out, err, status = run_tool(args, log, check_status=(0, 1, 2))
        lines = out.splitlines()
        assert len(lines) == len(texts), err
        got_many = poiparser_many(poiparser, texts, kind, utf8)
        for n, (text, line) in enumerate(zip(texts, lines), start=1):
            expected = expected_from_line(line)
            try:
                got = poiparser.parse(text, kind=kind, utf8=utf8, explain=True)
            except ValueError as error:
                assert "error" in expected, (kind, text, str(error))
                message = expected["error"]
                if message.startswith("invalid JSON: "):
                    reason, column = re.match(r"invalid JSON: (.*) at column (\d+)$", message).groups()
                    assert str(error) == f"line 1, column {column}: invalid JSON: {reason}"
                else:
                    assert str(error).startswith(message)
                assert isinstance(got_many[n - 1], ValueError)
                continue
            assert "error" not in expected, (kind, text, expected)
            same_values(got, expected)
            same_values(got_many[n - 1], got)


def poiparser_many(poiparser, texts, kind, utf8):
    """parse_many's results, with each error as the ValueError parse raises."""
    results = [None] * len(texts)
    good = []
    for i, text in enumerate(texts):
        try:
            poiparser.parse(text, kind=kind, utf8=utf8)
            good.append(i)
        except ValueError as error:
            results[i] = error
    parsed = poiparser.parse_many([texts[i] for i in good], kind=kind, utf8=utf8, explain=True, threads=3)
    for i, result in zip(good, parsed):
        results[i] = result
    return results


def test_parse_many_keeps_order_on_any_number_of_threads(poiparser):
    texts = [json.dumps({"result": {"error": 0}, "traffic_citys": {"contents": [{"code": i}]}}) for i in range(300)]
    one = [poiparser.parse(t) for t in texts]
    for threads in (0, 1, 2, 7):
        assert poiparser.parse_many(texts, threads=threads) == one
    assert [r["bundle"]["citys"][0]["code"] for r in one] == list(range(300))
    assert poiparser.parse_many([]) == []


ERRORS = [
    # text, kind, message
    (b"", None, "line 1, column 1: invalid JSON: empty text"),
    ('{"a": 1,\n}', None, "line 2, column 1: invalid JSON: member name that is not a string"),
    ('{"a": "b', None, "line 1, column 7: invalid JSON: unclosed string"),
    ("{} trailing", None, "line 1, column 4: invalid JSON: text after the JSON value"),
    (b'{"a": 1}\x00', None, "invalid JSON: NUL byte in the text"),
    ('{"a": 1}', None, "cannot tell the answer kind from its shape"),
    ("[1, 2]", None, "cannot tell the answer kind from its shape"),
    ("{}", "no-such-kind", "unknown kind 'no-such-kind'"),
]


@pytest.mark.parametrize("text,kind,message", ERRORS)
def test_errors_raise_value_error(poiparser, text, kind, message):
    with pytest.raises(ValueError, match=re.escape(message)):
        poiparser.parse(text, kind=kind)
    good = '{"result": {"error": 0}, "traffic_citys": {}}'
    prefix = "" if kind else re.escape("texts[1]: ") + ".*"  # a bad kind is no text's fault
    with pytest.raises(ValueError, match=prefix + re.escape(message)):
        poiparser.parse_many([good, text, "{"], kind=kind)


def test_wrong_types_raise_type_error(poiparser):
    with pytest.raises(TypeError):
        poiparser.parse(12)
    with pytest.raises(TypeError):
        poiparser.parse_many(["{}", 3.5])


def test_the_text_mode_flag_is_per_call(poiparser):
    # The second route-address form decodes its way point keywords as UTF-8
    # with utf8=True and widens them byte by byte without; calls of either
    # mode, from several Python threads at once, keep to their own.
    import concurrent.futures

    with open(f"{__import__('conftest').ROOT}/examples/route_addr_2.json", "rb") as f:
        text = f.read()
    plain, utf8 = poiparser.parse(text), poiparser.parse(text, utf8=True)
    assert plain != utf8
    with concurrent.futures.ThreadPoolExecutor(4) as pool:
        results = list(pool.map(lambda i: (i % 2, poiparser.parse_many([text] * 20, utf8=i % 2 == 1, threads=2)), range(16)))
    for odd, many in results:
        assert all(r == (utf8 if odd else plain) for r in many)
