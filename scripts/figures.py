"""Tables of figures: printed, as JSON, and in the pages of docs/, where none is written by hand."""
import json
import os
import re
import subprocess

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def run(command, **options):
    return subprocess.run(command, check=True, cwd=ROOT, **options)


def print_table(table, left=2):
    """The first line is the headings; the first `left` columns are aligned to the left."""
    widths = [max(map(len, column)) for column in zip(*table)]
    for line in table:
        first = "  ".join(cell.ljust(width) for cell, width in zip(line[:left], widths))
        rest = "  ".join(cell.rjust(width) for cell, width in zip(line[left:], widths[left:]))
        print(f"{first}  {rest}".rstrip())


def markdown(table):
    """Without the columns that are empty."""
    headings, *lines = zip(*(column for column in zip(*table) if any(column[1:])))
    return "\n".join("| " + " | ".join(line) + " |" for line in (headings, ["---"] * len(headings), *lines))


def machine():
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        cpu = re.search(r"^model name\s*:\s*(.*)$", file.read(), re.M)
    return (f"{os.cpu_count()} processors ({cpu.group(1) if cpu else os.uname().machine}), "
            f"{os.uname().sysname} {os.uname().release.split('-')[0]}")


def write_json(rows, path):
    os.makedirs(os.path.dirname(os.path.abspath(path)), exist_ok=True)
    with open(path, "w", encoding="utf-8") as out:
        json.dump({"rows": rows}, out, indent=1, ensure_ascii=False)
        out.write("\n")


def write_page(page, table_of, charts, json_path):
    """
    Rewrites what stands between `<!-- figures PATTERN -->` and `<!-- end -->` in a page, a table of the rows
    that match, and draws its charts: by name, the options of scripts/chart.
    """
    def replaced(match):
        pattern = match.group(1)
        text = f"Measured on {machine()}." if pattern == "machine" else markdown(table_of(pattern))
        return f"<!-- figures {pattern} -->\n{text}\n<!-- end -->"

    run(["scripts/setup", "gnuplot-nox"])
    path = os.path.join(ROOT, "docs", page)
    with open(path, encoding="utf-8") as file:
        text = file.read()
    text = re.sub(r"<!-- figures (.*?) -->.*?<!-- end -->", replaced, text, flags=re.S)
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)
    for name, options in charts.items():
        run(["scripts/chart", json_path, f"docs/images/{name}.svg", *options])
