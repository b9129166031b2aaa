"""tablegen: writes everything that repeats per table, from the schema of the pipeline's tables.

    python3 tools/tablegen SCHEMA --write DIR  writes the checked-in files of the repository DIR: .proto, docs/tables.md
    python3 tools/tablegen SCHEMA --check DIR  compares these files, and names those that are out of date
    python3 tools/tablegen SCHEMA --cpp DIR    writes the C++ (into a build tree)

Files that are up to date are not touched. Exit code: 0 done, 1 out of date, 2 the schema can't be used.
"""

import argparse
import pathlib
import sys

import emit_cpp
import emit_docs
import emit_proto
from model import SchemaError, read_schema


def _is_current(path, text):
    return path.is_file() and path.read_text(encoding="utf-8") == text


def _write(folder, files):
    for name, text in files.items():
        path = folder / name
        if not _is_current(path, text):
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text, encoding="utf-8")


def _stale(folder, files):
    stale = [folder / name for name, text in files.items() if not _is_current(folder / name, text)]
    left_over = [
        path for path in folder.glob("proto/nyx/tables/*.proto") if path.relative_to(folder).as_posix() not in files
    ]
    return stale + left_over


def main():
    parser = argparse.ArgumentParser(prog="tablegen", description="Writes everything that repeats per table from the schema.")
    parser.add_argument("schema", type=pathlib.Path)
    parser.add_argument("--write", type=pathlib.Path, metavar="DIR", help="write what is checked in below DIR")
    parser.add_argument("--cpp", type=pathlib.Path, metavar="DIR", help="write the C++ below DIR")
    parser.add_argument("--check", type=pathlib.Path, metavar="DIR", help="compare, write nothing")
    arguments = parser.parse_args()
    try:
        tables = read_schema(arguments.schema)
    except SchemaError as error:
        print(f"tablegen: {error}", file=sys.stderr)
        return 2
    checked_in = emit_proto.emit(tables) | emit_docs.emit(tables)
    if arguments.write:
        _write(arguments.write, checked_in)
    if arguments.cpp:
        _write(arguments.cpp, emit_cpp.emit(tables))
    stale = _stale(arguments.check, checked_in) if arguments.check else []
    for path in stale:
        print(f"tablegen: {path} is out of date with {arguments.schema}: run ./dev generate", file=sys.stderr)
    return 1 if stale else 0


if __name__ == "__main__":
    sys.exit(main())
