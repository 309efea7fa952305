"""How far a run has come: a bar on a terminal, plain lines anywhere else. Always on standard error."""

import sys


class Progress:
    """Counts the steps of one piece of work; a context. `total` may be None until it is known."""

    def __init__(self, what, total=None, stream=sys.stderr):
        self._what = what
        self._stream = stream
        self._step = None
        self._bar = None
        if stream.isatty():
            # Only here, so that reports are made without it.
            from tqdm import tqdm

            self._bar = tqdm(desc=what, total=total, file=stream, dynamic_ncols=True, leave=True)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self._bar is not None:
            self._bar.close()

    def set_total(self, total):
        if self._bar is not None:
            self._bar.total = total

    def begin(self, step, detail=""):
        """A step has begun. What changes within it often is its detail, which only a terminal shows."""
        if self._bar is not None:
            self._bar.set_postfix_str(f"{step} {detail}".strip())
        elif step != self._step:
            print(f"{self._what}: {step}", file=self._stream, flush=True)
        self._step = step

    def advance(self, to=None):
        if self._bar is not None:
            self._bar.update(1 if to is None else to - self._bar.n)

    def tick(self):
        """Moves the clock on; to be called about once a second."""
        if self._bar is not None:
            self._bar.refresh()
