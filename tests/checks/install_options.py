#!/usr/bin/env python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""Compares what --help of orva-si tells with its manual page, and both with the completion for bash.

install_options.py TOOL MANUAL COMPLETION

Of every command: the options with the names of their values, nothing missing and nothing left over; the commands
themselves and the exit statuses; and every value that the completion offers is one that the tool takes.
"""
import os
import pty
import re
import select
import shlex
import subprocess
import sys
import tempfile
import time

tool, manual, completion = map(os.path.abspath, sys.argv[1:])
faults = []


def same(what, expected, found):
    for name in sorted(expected - found):
        faults.append(f"{what}: {name} is missing")
    for name in sorted(found - expected):
        faults.append(f"{what}: {name} is not known to --help")
    if not expected:
        faults.append(f"{what}: --help tells nothing")


def help_text(*command):
    return subprocess.run([tool, *command, "--help"], check=True, capture_output=True, text=True).stdout


def section(text, title):
    found = re.search(rf"^{title}:\n((?:  .*\n)+)", text, re.M)
    return found.group(1) if found else ""


def first_column(lines):
    return {re.split(r"\s{2,}", line.strip())[0] for line in lines.splitlines() if re.match(r"  \S", line)}


# {"--for SECONDS", "-h,--help", ...} of a command, of the tool itself without one.
def options_of_help(*command):
    return first_column(section(help_text(*command), "Options"))


commands = first_column(section(help_text(), "Subcommands"))
helped = {command: options_of_help(command) for command in commands}


# The manual page: titles of its sections, and the first line of each item below them.
def manual_items():
    heading = sub = ""
    expect_item = False
    with open(manual, encoding="utf-8") as page:
        for line in page:
            line = line.rstrip("\n")
            if line.startswith(".SH "):
                heading, sub = line[4:], ""
            elif line.startswith(".SS "):
                sub = line[4:]
            elif expect_item:
                text = re.sub(r"\\f[A-Z]", "", line.removeprefix(".B ").removeprefix(".I ")).replace("\\-", "-")
                yield heading, sub, text.replace(", ", ",")
            expect_item = line == ".TP"


described = {command: set() for command in commands}
statuses = set()
in_manual = set()
for heading, sub, item in manual_items():
    if heading == "OPTIONS":
        whose = re.fullmatch(r"Options of (.+)", sub).group(1)
        for command in commands if whose == "every command" else re.split(r", | and ", whose):
            described[command].add(item)
    elif heading == "EXIT STATUS":
        statuses.add(item)
    elif heading == "COMMANDS":
        in_manual.add(item)

same("commands of the manual page", commands, in_manual)
for command in commands:
    same(f"manual page, {command}", helped[command], described[command])
    told = help_text(command).partition("Exit status: ")[2]
    same(f"manual page, exit status of {command}", set(re.findall(r"(?:^|[ \n])(\d+) ", told)), statuses)
same("options without a command", options_of_help(), {"-h,--help", "--version"})


# What bash would offer at the end of a line, as the function answers it; [] where it leaves that to the shell.
def offered(line):
    words = [word for word in re.split(r"(=)| ", line) if word is not None]
    script = f"""source {shlex.quote(completion)}
        compopt() {{ :; }}
        COMP_WORDS=({" ".join(map(shlex.quote, words))}) COMP_CWORD={len(words) - 1}
        _orva_si
        printf '%s\\n' "${{COMPREPLY[@]}}" """
    told = subprocess.run(["bash", "--norc", "-c", script], check=True, capture_output=True, text=True)
    if told.stderr:
        faults.append(f"completion of '{line}': {told.stderr}")
    return told.stdout.split()


same("completion without a command", commands | {"-h", "--help", "--version"}, set(offered("orva-si ")))
value_options = set()
for command in commands:
    names = {name for option in helped[command] for name in option.split(" ")[0].split(",")}
    same(f"completion, {command}", names, set(offered(f"orva-si {command} -")))
    value_options |= {(command, option.split(" ")[0]) for option in helped[command] if " " in option}

# An input that is not there is what the tool finds wrong last: before, the value was right.
NO_INPUT = 3


def expect_taken(command, option, value):
    ran = subprocess.run([tool, command, option, value, "/no-such.ts"], capture_output=True, text=True)
    if ran.returncode != NO_INPUT:
        faults.append(f"completion offers {option} {value}: {ran.stderr}")


without_choice = {"--for", "--program", "--service", "--from", "--to"}
for command, option in sorted(value_options):
    values = offered(f"orva-si {command} {option} ")
    if (not values) != (option in without_choice):
        faults.append(f"completion offers {len(values)} values of {option}")
    for value in values if option != "--tz" else offered(f"orva-si {command} --tz Europe/B"):
        expect_taken(command, option, value)
    if values and option != "--tz":
        some = values[-1][:-1]
        same(f"{option}=", {v for v in values if v.startswith(some)}, set(offered(f"orva-si {command} {option}={some}")))
        same(f"{option} of no known value", {"x"}, {"x", *offered(f"orva-si {command} {option} ?")})

same("second language", {"deu,ell", "deu,eng", "deu,est", "deu,eus"}, set(offered("orva-si guide --lang deu,e")))
same("folders of time zones", {"Europe/"}, set(offered("orva-si guide --tz Europ")))


# What stands behind the prompt of a bash with the completion, after these keys.
def typed(keys, folder, expected):
    environment = dict(os.environ, PS1="$ ", TERM="dumb", INPUTRC="/dev/null")
    child, terminal = pty.fork()
    if child == 0:
        os.chdir(folder)
        os.execvpe("bash", ["bash", "--norc", "--noprofile", "-i"], environment)
    seen = ""
    os.write(terminal, f"source {shlex.quote(completion)}; echo rea''dy\n".encode())
    sent = False
    end = time.monotonic() + 20
    while time.monotonic() < end and not (sent and expected in seen):
        if select.select([terminal], [], [], 0.1)[0]:
            seen += os.read(terminal, 4096).decode(errors="replace")
        if not sent and "\nready" in seen:
            sent, seen = True, ""
            os.write(terminal, keys.encode())
    os.close(terminal)
    os.waitpid(child, 0)
    if expected not in seen:
        faults.append(f"bash, {keys!r}: {seen!r} does not show {expected!r}")


with tempfile.TemporaryDirectory() as folder:
    with open(os.path.join(folder, "evening news.ts"), "wb"):
        pass
    typed("orva-si gu\t--rea\teve\t", folder, "orva-si guide --realtime evening\\ news.ts ")
    typed("orva-si guide --tz Europe/Berl\t", folder, "--tz Europe/Berlin ")

print("\n".join(faults))
sys.exit(1 if faults else 0)
