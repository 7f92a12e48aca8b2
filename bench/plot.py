"""Draws the ratios on a logarithmic scale."""
import math
from xml.sax.saxutils import escape

from measurements import HIGH_IS_GOOD, OUR

WIDTH, MIDDLE, OCTAVE, REACH = 900, 520, 45, 4


def bars(medians, figures):
    """Per row: its title, and for each peer the factor by which our figure is better."""
    for name, peers in medians.items():
        for figure in figures[name]:
            ours = peers.get(OUR, {}).get(figure)
            if ours is None or ours <= 0:
                continue
            better = [(p, ours / f[figure] if figure in HIGH_IS_GOOD else f[figure] / ours)
                      for p, f in peers.items() if p != OUR and f[figure] > 0]
            if better:
                yield f"{name} [{figure}]", better


def text(x, y, words, more=""):
    return f'<text x="{x}" y="{y}" {more}>{escape(words)}</text>'


def bar(y, peer, factor):
    length = max(-REACH, min(REACH, math.log2(factor))) * OCTAVE
    colour = "#2a7a4b" if factor >= 1 else "#c0603a"
    return (text(MIDDLE - REACH * OCTAVE - 12, y + 10, peer, 'text-anchor="end"') +
            f'<rect x="{MIDDLE + min(0, length):.1f}" y="{y}" width="{abs(length):.1f}" '
            f'height="11" fill="{colour}"/>' +
            text(MIDDLE + REACH * OCTAVE + 12, y + 10, f"{factor:.2f}"))


def plot(medians, figures, path):
    out, y = [text(10, 22, "Our loop beside others: right of the line ours is better, by the factor "
                   "that stands there", 'font-size="14"')], 50
    top = y
    for words, peers in bars(medians, figures):
        out.append(text(10, y + 10, words, 'font-weight="bold"'))
        y += 16
        for peer, factor in peers:
            out.append(bar(y, peer, factor))
            y += 14
        y += 6
    for octave in range(-REACH, REACH + 1):
        x = MIDDLE + octave * OCTAVE
        out.append(f'<line x1="{x}" y1="{top}" x2="{x}" y2="{y}" stroke="black" '
                   f'stroke-opacity="{1 if octave == 0 else 0.15}"/>')
        out.append(text(x, top - 6, f"{2 ** octave:g}", 'text-anchor="middle" fill="#555"'))
    with open(path, "w", encoding="utf-8") as svg:
        svg.write(f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{y + 10}" '
                  f'font-family="sans-serif" font-size="11">\n'
                  f'<rect width="{WIDTH}" height="{y + 10}" fill="white"/>\n' +
                  "\n".join(out) + "\n</svg>\n")
