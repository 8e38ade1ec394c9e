"""Tables of figures: printed, as JSON, and in the pages of docs/, where none is written by hand; and their charts."""
import html
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


# Read in light and dark; the colours of the other pictures of docs/.
CHART_STYLE = """svg{font:12.5px system-ui,sans-serif}
text{fill:#1f2328}.t{font-weight:600}.n{fill:#57606a}.e{text-anchor:end}
.measured{fill:#4c8fd6}.floor{fill:#afb8c1}.over{fill:#cf5b3c}
.bound{stroke:#1f2328;stroke-width:2}.axis{stroke:#d0d7de}
@media (prefers-color-scheme:dark){
text{fill:#e6edf3}.n{fill:#9da7b3}.measured{fill:#4493f8}.floor{fill:#57606a}.over{fill:#f0795a}
.bound{stroke:#e6edf3}.axis{stroke:#3d444d}
}"""
LABELS, BARS, PITCH, TOP = 320, 380, 22, 62


def draw(path, title, legend, bars):
    """
    Bars beside their labels: (label, value, floor or None, bound or None, text). The legend is what each part
    that is drawn means: measured, floor, bound, over.
    """
    scale = BARS / max(max(value, floor or 0, bound or 0) for _, value, floor, bound, _ in bars)
    width, height = LABELS + BARS + 90, TOP + PITCH * len(bars) + 8
    lines = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" width="{width}" '
             f'height="{height}" role="img">', f"<title>{html.escape(title)}</title>", f"<style>{CHART_STYLE}</style>",
             f'<text class="t" x="8" y="20">{html.escape(title)}</text>',
             f'<path class="axis" d="M{LABELS},{TOP - 6} V{height - 6}"/>']
    x = 8
    for part, meaning in legend.items():
        lines.append(f'<path class="bound" d="M{x + 6},32 V46"/>' if part == "bound" else
                     f'<rect class="{part}" x="{x}" y="34" width="12" height="10"/>')
        lines.append(f'<text class="n" x="{x + 18}" y="43.5">{html.escape(meaning)}</text>')
        x += 42 + 6.6 * len(meaning)
    for i, (label, value, floor, bound, text) in enumerate(bars):
        y = TOP + PITCH * i
        part = "over" if bound is not None and round(value, 2) > bound else "measured"
        lines.append(f'<text class="e" x="{LABELS - 8}" y="{y + 12.5}">{html.escape(label)}</text>')
        lines.append(f'<rect class="{part}" x="{LABELS}" y="{y + 2}" width="{value * scale:.1f}" height="{9 if floor else 14}"/>')
        if floor is not None:
            lines.append(f'<rect class="floor" x="{LABELS}" y="{y + 11}" width="{floor * scale:.1f}" height="6"/>')
        end = max(value, floor or 0)
        if bound is not None:
            at = LABELS + bound * scale
            lines.append(f'<path class="bound" d="M{at:.1f},{y} V{y + 18}"/>')
            end = max(end, bound)
        lines.append(f'<text class="n" x="{LABELS + end * scale + 6:.1f}" y="{y + 13}">{html.escape(text)}</text>')
    with open(path, "w", encoding="utf-8") as out:
        out.write("\n".join([*lines, "</svg>", ""]))


def write_page(page, table_of):
    """
    Rewrites what stands between `<!-- figures PATTERN -->` and `<!-- end -->` in a page: a table of the rows that
    match.
    """
    def replaced(match):
        pattern = match.group(1)
        text = f"Measured on {machine()}." if pattern == "machine" else markdown(table_of(pattern))
        return f"<!-- figures {pattern} -->\n{text}\n<!-- end -->"

    path = os.path.join(ROOT, "docs", page)
    with open(path, encoding="utf-8") as file:
        text = file.read()
    text = re.sub(r"<!-- figures (.*?) -->.*?<!-- end -->", replaced, text, flags=re.S)
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)
