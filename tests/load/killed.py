"""killed.py VICTIM FOLDER ROUNDS [SEED] -- RUN...: starts the victim (see EditUntilKilled.cpp) with the words of RUN, ends it at a
random moment, and looks at what it left, ROUNDS times. Each container must open with 7-Zip and hold a whole version; no
document may be missing or go back behind its last save; an edit that was being closed is in its container or is found by
its tracking file. Where a file was being moved to, an empty file may hold its place. A seed repeats the victim's work and the moment, as far as the machine's pace allows."""

import os
import random
import re
import shutil
import signal
import subprocess
import sys
import time

PLACES = {"Docs": "first secret", "Docs/sub": "first secret", "Other": "second secret"}
CONFIGURATION = """{
  "folders": [
    {"name": "Docs", "path": "Docs", "owner": "O1", "policy": "encrypt", "targetKey": "K1"},
    {"name": "Other", "path": "Other", "owner": "O1", "policy": "encrypt", "targetKey": "K2"},
    {"name": "Plain", "path": "Plain"}
  ],
  "passwords": {"K1": "first secret", "K2": "second secret"}
}"""
DOCUMENTS = 3
LONGEST_LIFE = 1.2  # seconds


def version(document, number):
    head = f"document {document} version {number};"
    return (head + chr(ord("a") + number % 26) * (1000 + number * 7919 % 90000) + ".").encode()


def version_of(document, content):
    match = re.match(rb"document (\d+) version (\d+);", content)
    if not match or int(match[1]) != document or content != version(document, int(match[2])):
        return None
    return int(match[2])


def unpacked(container, password):
    """The content, or None when 7-Zip does not take it."""
    result = subprocess.run(["7z", "x", "-so", "-y", "-p" + password, container], stdin=subprocess.DEVNULL, capture_output=True)
    return result.stdout if result.returncode == 0 else None


def make_start(folder, start):
    """Containers of version 0, made by the independent program too; the volume has to read them."""
    for place in (*PLACES, "Plain", "temp"):
        os.makedirs(f"{start}/{place}")
    with open(f"{start}/quelcrypt.json", "w", encoding="utf-8") as file:
        file.write(CONFIGURATION)
    for document in range(DOCUMENTS):
        plain = f"{folder}/d{document}.txt"
        with open(plain, "wb") as file:
            file.write(version(document, 0))
        subprocess.run(["7z", "a", "-tzip", "-mem=AES256", "-pfirst secret", f"{start}/Docs/d{document}.txt.zip", plain],
                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, check=True)


def windows_path(path):
    return "Z:" + os.path.abspath(path).replace("/", "\\")


def run_victim(run, victim, root, seed, life):
    """Its lines until it was ended."""
    environment = dict(os.environ, QUELCRYPT_CONFIG=windows_path(f"{root}/quelcrypt.json"))
    process = subprocess.Popen([*run, victim, str(seed), windows_path(f"{root}/temp")], env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                               stderr=subprocess.DEVNULL)
    first = process.stdout.readline().strip()
    if first != b"ready":
        raise SystemExit(f"the victim says {first!r}")
    time.sleep(life)
    os.kill(process.pid, signal.SIGKILL)
    lines = process.stdout.read().decode().split("\n")
    process.wait()
    # A line that was cut short says nothing; what it would have announced had not begun.
    return [line.strip().split() for line in lines[:-1]]


def tracked(root):
    """What tracking files tell of: the container's name to the bytes beside the tracking file."""
    found = []
    for folder, _, names in os.walk(f"{root}/temp"):
        for name in names:
            path = f"{folder}/{name}"
            if not name.endswith(".hvf") or not os.path.exists(path[:-4]):
                continue
            with open(path, "rb") as file:
                source = re.search(rb"<srcfile>\s*<name><!\[CDATA\[(.*?)\]\]>", file.read())
            with open(path[:-4], "rb") as file:
                found.append((source[1].decode("latin-1") if source else "", file.read()))
    return found


class Findings(list):
    def check(self, holds, text):
        if not holds:
            self.append(text)


def look(root, lines):
    findings = Findings()
    saved = dict.fromkeys(range(DOCUMENTS), 0)
    announced = dict.fromkeys(range(DOCUMENTS), 0)
    closing = moving = None
    for what, document, *more in ((line[0], *map(int, line[1:])) for line in lines):
        if what == "edit":
            announced[document] = more[0]
        elif what == "close":
            closing = (document, *more)
        elif what == "closed":
            saved[document] = more[0]
            closing = None
        elif what in ("move", "moved"):
            moving = document if what == "move" else None
    edits = tracked(root)

    for document in range(DOCUMENTS):
        found = []
        for place, password in PLACES.items():
            container = f"{root}/{place}/d{document}.txt.zip"
            if not os.path.exists(container) or (moving == document and os.path.getsize(container) == 0):
                continue
            content = unpacked(container, password)
            number = None if content is None else version_of(document, content)
            # A container under a lock is written where it stands: what is whole then is what it is written from.
            torn = number is None and closing and closing[0] == document and closing[2]
            findings.check(number is not None or torn, f"{container} holds {(content or b'nothing readable')[:40]!r}")
            if number is not None:
                found.append(number)
        plain = f"{root}/Plain/d{document}.txt"
        if os.path.exists(plain):
            with open(plain, "rb") as file:
                content = file.read()
            number = version_of(document, content)
            findings.check(number is not None, f"{plain} holds {content[:40]!r} of {len(content)}")
            if number is not None:
                found.append(number)
        waiting = [version_of(document, content) for source, content in edits
                   if source.endswith(f"\\d{document}.txt.zip") and version_of(document, content) is not None]
        whole = found + waiting if closing and closing[0] == document and closing[2] else found
        findings.check(whole and max(whole) >= saved[document], f"document {document}: {found} of {saved[document]} saved")
        findings.check(all(number <= announced[document] for number in whole), f"document {document}: {whole} was never written")
        if closing and closing[0] == document:
            findings.check(closing[1] in found + waiting, f"the edit {closing[1]} of document {document} is lost")
    names = {name for place in ("Docs", "Docs/sub", "Other", "Plain") for name in os.listdir(f"{root}/{place}")}
    strange = {name for name in names if not re.fullmatch(r"d\d\.txt(\.zip)?|sub|\.HalvaneCloud|~\{.*\}\.tmp", name)}
    findings.check(not strange, f"nobody made {strange}")
    return findings, closing is not None, moving is not None


def main():
    words = sys.argv[1:]
    run = words[words.index("--") + 1:]
    victim, folder, rounds, *given = words[:words.index("--")]
    seed = int(given[0]) if given else int(os.environ.get("QUELCRYPT_TEST_SEED", time.time_ns() % 1_000_000))
    shutil.rmtree(folder, ignore_errors=True)
    os.makedirs(folder)
    make_start(folder, f"{folder}/start")
    failed = during_save = during_move = steps = 0
    for number in range(seed, seed + int(rounds)):
        chance = random.Random(number)
        root = f"{folder}/{number}"
        shutil.copytree(f"{folder}/start", root)
        lines = run_victim(run, victim, root, number, chance.uniform(0, LONGEST_LIFE))
        findings, saving, moving = look(root, lines)
        steps += len(lines)
        during_save += saving
        during_move += moving
        for finding in findings:
            print(f"seed {number}: {finding}; last: {[' '.join(line) for line in lines[-3:]]}", flush=True)
        failed += bool(findings)
        if not findings:
            shutil.rmtree(root)
    print(f"seeds {seed} to {seed + int(rounds) - 1}: {steps} lines, {during_save} ended during a save, {during_move} during a move, "
          f"{failed} rounds failed")
    sys.exit(failed != 0)


main()
