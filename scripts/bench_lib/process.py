"""Runs a program line by line, so that its progress can be shown, and ends it with all it has started."""

import os
import select
import signal
import subprocess

TAIL_LINES = 40


class BenchError(Exception):
    """What a person has to be told, and nothing else."""


def clean_environment():
    """What somebody has set for the own shell must not decide a result."""
    foreign = {"ANDROID_LOG_TAGS", "BINDER_HOST_DIR", "BINDER_HOST_END_FD"}
    return {key: value for key, value in os.environ.items() if key not in foreign}


def run(command, log, on_line=lambda line: None, on_tick=lambda: None, merge_errors=False):
    """Calls `on_line` for each line of standard output, `on_tick` once a second, and returns the lines.

    Standard error goes to the file `log`; with `merge_errors` it is read like the output, and `log` holds both.
    Raises BenchError with the end of the log if the program fails or is not there.
    """
    lines = []
    log.parent.mkdir(parents=True, exist_ok=True)
    # Not buffered: people follow it.
    with open(log, "wb", buffering=0) as errors:
        try:
            child = subprocess.Popen(
                [str(part) for part in command], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                stderr=subprocess.STDOUT if merge_errors else errors, env=clean_environment(),
                start_new_session=True)
        except OSError as error:
            raise BenchError(f"cannot run {command[0]}: {error.strerror}") from error
        try:
            for raw in _lines_of(child.stdout.fileno(), on_tick):
                if merge_errors:
                    errors.write(raw + b"\n")
                lines.append(raw.decode(errors="replace"))
                on_line(lines[-1])
            status = child.wait()
        except BaseException:
            _end(child)
            raise
        finally:
            child.stdout.close()
    if status != 0:
        tail = log.read_text(errors="replace").splitlines()[-TAIL_LINES:]
        raise BenchError("\n".join([*tail, f"{command[0]} failed with status {status}; its log: {log}"]))
    return lines


def _end(child):
    """With all that it has started: it leads a group of its own."""
    try:
        os.killpg(child.pid, signal.SIGTERM)
        child.wait(timeout=10)
    except ProcessLookupError:
        pass
    except subprocess.TimeoutExpired:
        os.killpg(child.pid, signal.SIGKILL)
    child.wait()


def _lines_of(fd, on_tick):
    pending = b""
    while True:
        readable, _, _ = select.select([fd], [], [], 1)
        on_tick()
        if not readable:
            continue
        data = os.read(fd, 65536)
        if not data:
            break
        *whole, pending = (pending + data).split(b"\n")
        yield from whole
    if pending:
        yield pending
