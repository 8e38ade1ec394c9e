"""What fuzz-run, fuzz-campaign and fuzz-prove share: the corpora as text, and one run of a target."""
import json
import os
import re
import shutil
import signal
import subprocess
import tempfile
from collections import namedtuple
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
CORPORA = ROOT / "testdata/corpus"
TARGETS = sorted(file.stem for file in CORPORA.glob("*.hex"))
# Sanitizers of older compilers cannot place their shadow where the kernel randomises many bits.
FIXED = ["setarch", "-R"] if subprocess.run(["setarch", "-R", "true"], check=False, capture_output=True).returncode == 0 else []

Run = namedtuple("Run", "failed executions seconds output")


def decode(target, folder):
    """Writes the corpus of the target into the folder, an input a file."""
    for number, line in enumerate((CORPORA / f"{target}.hex").read_text().split()):
        (Path(folder) / f"{number:03}").write_bytes(bytes.fromhex(line))


def run(build, target, options, findings=None, folders=None, limit="unlimited"):
    """Runs the target from its corpus, or from the folders; what it finds goes into `findings`.
    Seconds are those of a processor, which do not depend on what else runs; `limit` is theirs."""
    findings = Path(findings or build / "findings").resolve()
    findings.mkdir(parents=True, exist_ok=True)
    with tempfile.TemporaryDirectory() as work:
        corpus = Path(work) / "corpus"
        corpus.mkdir()
        decode(target, corpus)
        environment = dict(os.environ, BINDER_RUNTIME_DIR=work, UBSAN_OPTIONS="print_stacktrace=1")
        words = ["prlimit", f"--cpu={limit}:", *FIXED, (build / "bin" / target).resolve(), "-max_len=2048",
                 "-timeout=60", "-entropic=0", "-print_final_stats=1",
                 f"-artifact_prefix={findings}/{target}-", *options, *(folders or [corpus])]
        words += [f"-dict={words_of}" for words_of in CORPORA.glob(f"{target}.dict")]
        with subprocess.Popen(words, cwd=work, env=environment, text=True, errors="replace",
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT) as process:
            output = process.stdout.read()
            _, status, usage = os.wait4(process.pid, 0)
            process.returncode = os.waitstatus_to_exitcode(status)
    executed = re.findall(r"number_of_executed_units: (\d+)|^#(\d+)\b", output, re.MULTILINE)
    executions = max((int(a or b) for a, b in executed), default=0)
    failed = process.returncode not in (0, -signal.SIGXCPU)
    return Run(failed, executions, usage.ru_utime + usage.ru_stime, output)


def plain(value):
    """Without what a record's fields are anyhow."""
    if isinstance(value, list):
        return [plain(it) for it in value]
    if isinstance(value, dict):
        return {name: plain(it) for name, it in value.items() if it not in (0, "", [], False, None)}
    return value


def parts(recording, folder):
    """Writes an input of fuzz_texts for each operation and event of the recording: its first call and what that needs."""
    velactl = ROOT / "build/release/bin/velactl"
    taken = set()
    for line in Path(recording).read_text(encoding="utf-8").splitlines():
        call = json.loads(line)
        name = (call.get("interface", "").split(" ")[0], call.get("operation", call.get("event", "gone")))
        if "n" not in call or name in taken:
            continue
        taken.add(name)
        words = [velactl, "trim", recording, str(call["n"]), str(call["n"]), "-o", "-"]
        lines = [{"recording": 1}]
        for text in subprocess.run(words, check=True, capture_output=True, text=True).stdout.splitlines()[1:]:
            part = json.loads(text)
            lines.append({key: plain(value) if key == "arguments" else value for key, value in part.items() if key not in ("time", "took")})
        text = "".join(json.dumps(it, separators=(",", ":")) + "\n" for it in lines)
        (Path(folder) / "-".join(map(str, name))).write_bytes(b"\x02" + text.encode())


def update(build, target, folder, lines=60, size=300):
    """Makes the corpus anew: of it and the folder's inputs the few that together reach most."""
    with tempfile.TemporaryDirectory() as work:
        control, merged = Path(work) / "control", Path(work) / "merged"
        merged.mkdir()
        decode(target, work)
        for file in Path(folder).iterdir():
            if file.stat().st_size <= size:
                shutil.copy(file, work)
        inputs = [file for file in Path(work).iterdir() if file.is_file()]
        result = run(build, target, ["-merge=1", f"-merge_control_file={control}"], folders=[merged, work])
        if result.failed:
            return result
        names, reached = [], {}
        for line in control.read_text().splitlines():
            words = line.split()
            if words and words[0] in ("FT", "COV"):
                reached.setdefault(int(words[1]), set()).update(words[0] + word for word in words[2:])
            elif line.startswith(work):
                names.append(line)
        chosen, covered = [], set()
        while len(chosen) < lines and reached:
            best = max(reached, key=lambda number: (len([it for it in reached[number] - covered if it[0] == "C"]),
                                                    len(reached[number] - covered)))
            if not reached[best] - covered:
                break
            covered |= reached.pop(best)
            chosen.append(Path(names[best]).read_bytes().hex())
    (CORPORA / f"{target}.hex").write_text("\n".join(sorted(chosen)) + "\n")
    print(f"{target}: {len(chosen)} of {len(inputs)} inputs")
    return result
