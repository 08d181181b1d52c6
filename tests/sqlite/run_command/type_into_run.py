"""Types into ./run on a terminal of its own and checks what a person would see.

Usage: type_into_run.py RUN
"""

import os
import pathlib
import pty
import pwd
import re
import select
import stat
import sys
import time

PROMPT = "sqlite> "
SECRET = "a secret that is typed"


class Session:
    """A program on a pseudo-terminal."""

    def __init__(self, arguments):
        self.pid, self.terminal = pty.fork()
        if self.pid == 0:
            os.environ["TERM"] = "dumb"
            os.execv(arguments[0], arguments)
        self.unread = ""

    def read_until(self, text, seconds=120):
        """Returns what appears up to and with the text."""
        end = time.monotonic() + seconds
        while text not in self.unread:
            ready, _, _ = select.select([self.terminal], [], [], end - time.monotonic())
            if not ready:
                raise SystemExit(f"waited in vain for {text!r}; saw: {self.unread!r}")
            try:
                self.unread += os.read(self.terminal, 4096).decode(errors="replace")
            except OSError:
                raise SystemExit(f"the program ended before {text!r}; saw: {self.unread!r}") from None
        end_of_text = self.unread.index(text) + len(text)
        seen, self.unread = self.unread[:end_of_text], self.unread[end_of_text:]
        return seen

    def type(self, line):
        os.write(self.terminal, (line + "\n").encode())

    def end(self):
        """Types the end of input and returns the exit status."""
        os.write(self.terminal, b"\x04")
        while True:
            try:
                if not os.read(self.terminal, 4096):
                    break
            except OSError:
                break
        return os.waitstatus_to_exitcode(os.waitpid(self.pid, 0)[1])


def check(condition, what, seen):
    if not condition:
        raise SystemExit(f"{what}; saw: {seen!r}")


def state_of(path):
    """What changes if somebody writes to the file."""
    try:
        status = path.stat()
    except FileNotFoundError:
        return None
    return status.st_ino, status.st_size, status.st_mtime_ns


def main():
    history = pathlib.Path(pwd.getpwuid(os.getuid()).pw_dir, ".sqlite_history")
    history_before = state_of(history)
    os.environ.pop("HALVEX_LOG_STDERR", None)

    session = Session([sys.argv[1]])
    seen = session.read_until(PROMPT)
    check("create_asymmetric_priv_key(algorithm, bits)" in seen, "no list of the functions", seen)
    check("Three things to try" in seen, "no examples", seen)
    check("Loading resources" not in seen, "a line of no use to anybody", seen)

    session.type(f"SELECT hex(create_digest('sha256', 'abc')), '{SECRET}';")
    session.read_until("BA7816BF8F01CFEA414140DE5DAE2223B00361A396177A9CB410FF61F20015AD|" + SECRET)
    session.read_until(PROMPT)

    session.type("SELECT create_asymmetric_priv_key('RSA', 1024);")
    seen = session.read_until(PROMPT)
    check(re.search(r"Z error 13921 .*1024.*Hint: ", seen), "no record as it happened", seen)
    check(re.search(r"^NULL\r$", seen, re.MULTILINE), "no NULL", seen)

    session.type("SELECT create_digest('SHA256');")
    session.read_until("Runtime error: Mismatch in number of arguments to the function. Expected 2")
    session.read_until(PROMPT)

    status = session.end()
    check(status in (0, 1), f"exit status {status}", "")
    check(state_of(history) == history_before, "the shell wrote a history file", str(history))
    check(stat.S_ISCHR(os.stat("/dev/null").st_mode), "/dev/null is no device any more", "")


main()
