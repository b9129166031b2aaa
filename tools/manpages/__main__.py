"""manpages: writes the manual of a program from what its --help says, commands included.

    python3 tools/manpages PROGRAM SECTION FILE

Exit code: 0 done, 1 the program has no usable --help.
"""

import argparse
import pathlib
import re
import subprocess
import sys

HEADING = re.compile(r"^(Usage|Positionals|Options|Subcommands|Examples?|Exit codes|[A-Z][A-Za-z ]*):(.*)$")
ENTRY = re.compile(r"^  (\S.*?)(?: {2,}(\S.*))?$")
LISTS = ("Positionals", "Options", "Subcommands")


def help_of(program, *commands):
    # The defaults in the manual are those of the program, whatever stands in this environment.
    result = subprocess.run([program, *commands, "--help"], capture_output=True, text=True, timeout=60,
                            env={"LC_ALL": "C.UTF-8"})
    if result.returncode != 0 or "Usage:" not in result.stdout:
        sys.exit(f"manpages: {program} {' '.join(commands)} --help: exit code {result.returncode}, {result.stderr}")
    return result.stdout.splitlines()


def escape(text):
    text = text.replace("\\", "\\e").replace("-", "\\-").replace("'", "\\(aq").replace("`", "\\(ga").replace("^", "\\(ha")
    text = text.replace("~", "\\(ti")
    return "\\&" + text if text.startswith((".", "\\(aq")) else text


def split_help(lines):
    """The description, and a list of (heading, lines behind it); of the usage the text stands behind the colon."""
    description, sections = [], []
    for line in lines:
        heading = HEADING.match(line)
        if heading and (heading[1] == "Usage" or not heading[2]):
            sections.append((heading[1], [heading[2].strip()] if heading[2] else []))
        elif sections:
            sections[-1][1].append(line)
        else:
            description.append(line)
    return " ".join(description).strip(), sections


def split_list(lines):
    """The entries of a list of options, and what follows the list: the beginning of the footer."""
    entries = []
    for number, line in enumerate(lines):
        entry = ENTRY.match(line)
        if entry:
            entries.append([entry[1], entry[2] or ""])
        elif line.startswith("   ") and entries:
            entries[-1][1] += " " + line.strip()
        elif line.strip():
            return entries, lines[number:]
    return entries, []


def write_list(title, lines):
    out = []
    entries, footer = split_list(lines)
    for name, text in entries:
        if name != "-h,--help":  # that of every command
            out += [".TP", f"\\fB{escape(name)}\\fR", escape(text.strip()) or "\\&"]
    return ([title] + out if out else []) + write_text(footer)


def write_text(lines):
    """Paragraphs as they stand: examples and tables are in there."""
    while lines and not lines[-1].strip():
        lines = lines[:-1]
    if not lines:
        return []
    return [".PP", ".nf", *(escape(line) if line.strip() else ".sp" for line in lines), ".fi"]


def write_sections(sections, is_command=False):
    out = []
    for heading, lines in sections:
        if heading in ("Usage", "Subcommands"):
            continue
        title = f".PP\n\\fI{escape(heading)}\\fR" if is_command else f".SH {escape(heading.upper())}"
        out += write_list(title, lines) if heading in LISTS else [title, *write_text(lines)]
    return out


def command_names(sections):
    entries = [split_list(lines)[0] for heading, lines in sections if heading == "Subcommands"]
    return [name for names in entries for name, _ in names]


def write_command(program, path):
    description, sections = split_help(help_of(program, *path))
    usage = next(lines[0] for heading, lines in sections if heading == "Usage")
    out = [f".SS {escape(' '.join(path))}", escape(description) or "\\&", ".PP", f"\\fB{escape(usage)}\\fR"]
    out += write_sections(sections, is_command=True)
    for name in command_names(sections):
        out += write_command(program, [*path, name])
    return out


def manual(program, section):
    name = pathlib.Path(program).name
    description, sections = split_help(help_of(program))
    usage = next((lines[0] for heading, lines in sections if heading == "Usage"), name)
    summary = re.split(r"[.:]", description)[0]
    out = [f'.TH {escape(name).upper()} {section}', ".SH NAME", f"{escape(name)} \\- {escape(summary)}",
           ".SH SYNOPSIS", f"\\fB{escape(usage)}\\fR", ".SH DESCRIPTION", escape(description)]
    out += write_sections(sections)
    names = command_names(sections)
    if names:
        out += [".SH COMMANDS"]
        for command in names:
            out += write_command(program, [command])
    return "\n".join(out) + "\n"


def main():
    parser = argparse.ArgumentParser(prog="manpages", description="Writes a manual from a program's --help.")
    parser.add_argument("program")
    parser.add_argument("section")
    parser.add_argument("file", type=pathlib.Path)
    options = parser.parse_args()
    options.file.parent.mkdir(parents=True, exist_ok=True)
    options.file.write_text(manual(options.program, options.section), encoding="utf-8")


if __name__ == "__main__":
    main()
