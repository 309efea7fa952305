"""Writes tables into the marked blocks of docs/performance.md, and pictures beside it.

A block is what stands between `<!-- bench NAME -->` and `<!-- /bench NAME -->`, each on a line of its own.
"""

import shutil

from bench_lib.process import BenchError


def replace_block(text, name, content):
    begin, end = f"<!-- bench {name} -->\n", f"<!-- /bench {name} -->\n"
    if text.count(begin) != 1 or text.count(end) != 1 or text.index(begin) > text.index(end):
        raise BenchError(f"the document has no block between <!-- bench {name} --> and <!-- /bench {name} -->")
    before, rest = text.split(begin)
    return f"{before}{begin}\n{content.strip()}\n\n{end}{rest.split(end)[1]}"


def write(document, blocks, pictures):
    """`blocks` is {name: Markdown}. `pictures` is {file: title}; they go to a folder with the document's name, and
    are shown in the block `pictures`. The document changes only if it has all the blocks."""
    folder = document.with_suffix("")
    text = document.read_text()
    shown = "\n\n".join(f"![{title}]({folder.name}/{file.name})" for file, title in pictures.items())
    for name, content in {**blocks, **({"pictures": shown} if pictures else {})}.items():
        text = replace_block(text, name, content)
    for file in pictures:
        folder.mkdir(exist_ok=True)
        shutil.copyfile(file, folder / file.name)
    document.write_text(text)
