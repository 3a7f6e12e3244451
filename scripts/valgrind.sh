#!/usr/bin/env bash
# Builds a plain Debug tree (no sanitizers) in build/valgrind and runs every test program under
# valgrind's memcheck, with the small-block pool switched off so that each block is its own
# allocation.
#
#   scripts/valgrind.sh [REGEX...]   only the runs whose name matches one of the regexes
#
# A test program runs once per environment it is registered with (code page variants and the
# like), all of its tests in one valgrind process; other programs that CTest runs directly run
# once per test. Tests that CTest runs through a CMake script are left out and listed.
# A run is clean when valgrind reports no error (leaks included) and the program passes.
# Logs: build/valgrind/valgrind-logs/<run>.{out,vg}. Exit status 0 when every run is clean.
#
# Environment: VALGRIND_JOBS runs at once (default 2), VALGRIND_TIMEOUT seconds per run (3600).
set -euo pipefail
cd "$(dirname "$0")/.."

command -v valgrind >/dev/null || { echo "valgrind.sh: valgrind is not installed" >&2; exit 1; }
command -v python3 >/dev/null || { echo "valgrind.sh: python3 is not installed" >&2; exit 1; }

build=build/valgrind
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DKBASE_SANITIZE=OFF -DKBASE_WERROR=ON \
  >/dev/null
cmake --build "$build" -j "${VALGRIND_JOBS:-2}"

ctest --test-dir "$build" --show-only=json-v1 > "$build/tests.json"

exec python3 - "$build" "$@" <<'PY'
import concurrent.futures
import json
import os
import re
import signal
import subprocess
import sys

build = os.path.abspath(sys.argv[1])
patterns = [re.compile(p) for p in sys.argv[2:]]
logs = os.path.join(build, "valgrind-logs")
os.makedirs(logs, exist_ok=True)

VALGRIND = [
    "valgrind", "--error-exitcode=1", "--leak-check=full",
    # gtest death tests fork; the child ends by a signal, which is what they test.
    "--child-silent-after-fork=yes",
    # Keep a test program's own operator new[] (ptrlist_tests refuses growth through it).
    "--soname-synonyms=somalloc=nouseroverride",
]

def prop(test, name, default=None):
    for p in test.get("properties", []):
        if p["name"] == name:
            return p["value"]
    return default

runs = {}     # (program, environment) or test name -> run
skipped = []  # (test, reason)
for test in json.load(open(os.path.join(build, "tests.json")))["tests"]:
    command = test.get("command")
    if not command:
        skipped.append((test["name"], "not built"))
        continue
    program = command[0]
    if not (program.startswith(build + os.sep) and os.access(program, os.X_OK)):
        skipped.append((test["name"], "runs through " + os.path.basename(program)))
        continue
    env = prop(test, "ENVIRONMENT", [])
    gtest = [a for a in command[1:] if a.startswith("--gtest_filter=")]
    if gtest:
        # One run per program and environment. A registration under another environment has
        # its test names prefixed ("utf8.Suite.Case"); the run takes the prefix as its name.
        case = gtest[0][len("--gtest_filter="):]
        at = test["name"].find(case)
        prefix = test["name"][: at - 1] if at > 0 and test["name"][at - 1] == "." else ""
        key = (program, tuple(env))
        name = os.path.basename(program) + ("." + prefix if prefix else "")
        args, expect = [], "gtest"
    else:
        key = name = test["name"]
        args, expect = command[1:], prop(test, "PASS_REGULAR_EXPRESSION")
    runs.setdefault(key, {"name": name, "program": program, "args": args, "env": env,
                          "cwd": prop(test, "WORKING_DIRECTORY", build), "expect": expect})

def wanted(name):
    return not patterns or any(p.search(name) for p in patterns)

running = set()
stopping = []

def stop(signum, frame):
    stopping.append(signum)  # no run starts any more
    for child in list(running):
        child.kill()
    sys.exit(128 + signum)

signal.signal(signal.SIGTERM, stop)
signal.signal(signal.SIGINT, stop)

def run(r):
    if stopping:
        return r["name"], "not run", None
    env = dict(os.environ, KBASE_SMALL_BLOCKS="0")  # a test's own setting wins
    env.update(v.split("=", 1) for v in r["env"])
    base = os.path.join(logs, r["name"])
    with open(base + ".out", "w") as out:
        child = subprocess.Popen(VALGRIND + ["--log-file=" + base + ".vg", r["program"]] + r["args"],
                                 cwd=r["cwd"], env=env, stdout=out, stderr=subprocess.STDOUT)
        running.add(child)
        try:
            rc = child.wait(timeout=int(os.environ.get("VALGRIND_TIMEOUT", "3600")))
        except subprocess.TimeoutExpired:
            child.kill()
            child.wait()
            return r["name"], "timed out", None
        finally:
            running.discard(child)
    log = open(base + ".vg", errors="replace").read()
    found = re.findall(r"ERROR SUMMARY: (\d+) errors", log)
    errors = int(found[-1]) if found else None
    text = open(base + ".out", errors="replace").read()
    if r["expect"] == "gtest":
        passed = "[  PASSED  ]" in text and "[  FAILED  ]" not in text
    elif r["expect"] is not None:
        passed = any(re.search(p, text) for p in r["expect"])
    else:
        passed = rc == 0 or (rc == 1 and bool(errors))  # 1 with errors is valgrind's own status
    if errors is None:
        verdict = "no valgrind summary (status %d)" % rc
    elif errors or not passed:
        verdict = "%d valgrind errors%s" % (errors, "" if passed else ", test failed")
    else:
        verdict = "clean"
    return r["name"], verdict, errors

selected = [r for r in runs.values() if wanted(r["name"])]
# The longest runs first, so that the two workers finish together.
selected.sort(key=lambda r: -os.path.getsize(r["program"]))
bad = 0
with concurrent.futures.ThreadPoolExecutor(int(os.environ.get("VALGRIND_JOBS", "2"))) as pool:
    for done in concurrent.futures.as_completed([pool.submit(run, r) for r in selected]):
        name, verdict, _ = done.result()
        print("%-40s %s" % (name, verdict), flush=True)
        bad += verdict != "clean"
for name, reason in skipped:
    if wanted(name):
        print("%-40s not run under valgrind: %s" % (name, reason))
print("valgrind.sh: %d of %d runs clean; logs in %s" % (len(selected) - bad, len(selected), logs))
sys.exit(1 if bad else 0)
PY
