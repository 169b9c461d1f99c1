#!/usr/bin/env python3
"""Replays a log of answers (one JSON answer per line) on a Dask cluster and
prints its summary exactly as `poiparse --jsonl --summary LOG` prints it.

  replay_dask.py LOG.jsonl --kind KIND [--utf8] [--workers N | --scheduler ADDRESS]
                 [--blocksize SIZE]

The log is read as a Dask bag of lines (dask.bag.read_text, split into
blocks of --blocksize bytes at line ends); each partition's lines become a
partial summary on a worker (poiparser.summary, positions counted from its
own first line), and the partial summaries, in log order, are merged into
the whole log's (poiparser.merge_summaries, which shifts each part's lines
past those before it). --workers N starts a local cluster of N worker
processes; --scheduler connects to a running one, whose workers must be
able to import poiparser. The exit status is the tool's: 0 when every
answer was accepted, 1 when one was refused, 2 when a line gave no answer.
"""
import argparse
import json
import sys


def summarise(lines, kind, utf8, source):
    """The partial summary of one partition: a list of one dict."""
    import poiparser

    # Lines come decoded as Latin-1: their bytes exactly, back.
    texts = [line.encode("latin-1") for line in lines]
    return [poiparser.summary(texts, kind=kind, utf8=utf8, source=source)]


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("log", help="the log, one JSON answer per line")
    parser.add_argument("--kind", help="the answers' kind (poiparse --list-kinds); told from each answer's shape when omitted")
    parser.add_argument("--utf8", action="store_true", help="the answers' texts are UTF-8 (poiparse --utf8)")
    where = parser.add_mutually_exclusive_group()
    where.add_argument("--workers", type=int, default=2, help="start a local cluster of N workers (default 2)")
    where.add_argument("--scheduler", metavar="ADDRESS", help="use the running cluster at ADDRESS")
    parser.add_argument("--blocksize", default="32MB", help="bytes of the log per partition (default 32MB)")
    args = parser.parse_args()

    import dask.bag
    import poiparser
    from distributed import Client, LocalCluster

    if args.kind is not None and args.kind not in poiparser.kinds():
        parser.error(f"unknown kind '{args.kind}' (see poiparse --list-kinds)")
    blocksize = int(args.blocksize) if args.blocksize.isdigit() else args.blocksize
    if args.scheduler:
        client = Client(args.scheduler)
        cluster = None
    else:
        cluster = LocalCluster(n_workers=args.workers, threads_per_worker=1, processes=True,
                               dashboard_address=None)
        client = Client(cluster)
    try:
        # linedelimiter "\n": lines end where poiparse's do ("\r" stays in
        # them). Latin-1 maps each byte to one character and back: the
        # answers' bytes reach the parser as they are, whatever their
        # encoding, and cost half the time of UTF-8 with surrogateescape.
        lines = dask.bag.read_text(args.log, blocksize=blocksize, linedelimiter="\n", encoding="latin-1")
        parts = lines.map_partitions(summarise, args.kind, args.utf8, args.log).compute()
    finally:
        client.close()
        if cluster is not None:
            cluster.close()
    summary = poiparser.merge_summaries(parts)
    sys.stdout.write(json.dumps(summary, indent=2, ensure_ascii=False) + "\n")
    if summary["invalid"] or summary["out_of_memory"]:
        return 2
    return 1 if summary["refused"] else 0


if __name__ == "__main__":
    sys.exit(main())
