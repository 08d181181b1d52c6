"""Rows in SQLite, in processes of their own: what they cost, with threads, at first use, in memory and in failure."""

import concurrent.futures
import multiprocessing
import os
import pathlib
import sqlite3
import tempfile
import threading
import time

from figures import (Figure, as_number, as_ratio, as_size, as_time, bar_chart, in_turn, number, rows_that_take, table,
                     timed)

FIXTURES = pathlib.Path(__file__).resolve().parents[1] / "tests/fixtures"
CALLS = {
    "asymmetric_verify": "asymmetric_verify('RSA', content, signature, public_key, 'SHA256')",
    "asymmetric_encrypt": "asymmetric_encrypt('RSA', content, public_key)",
    "create_asymmetric_pub_key": "create_asymmetric_pub_key('RSA', private_key)",
    "asymmetric_decrypt": "asymmetric_decrypt('RSA', ciphertext, private_key)",
    "asymmetric_sign": "asymmetric_sign('RSA', content, private_key, 'SHA256')",
}
MOST_ROWS = 100000
CONTEXTS = {"default": "off", "small": "on"}
CONTENT = "What is signed, encrypted and hashed in every row: 64 bytes ...."


def in_child(function, *arguments, **environment):
    """Calls the function in a new process, whose environment has these variables besides."""
    context = multiprocessing.get_context("fork")
    with concurrent.futures.ProcessPoolExecutor(1, context, os.environ.update, (environment,)) as executor:
        return executor.submit(function, *arguments).result()


def load(connection, options, minimal=False):
    connection.enable_load_extension(True)
    connection.load_extension(str(options.build_dir / "components/halvex_encryption/halvex_sqlite"))
    if minimal:
        connection.execute("SELECT load_extension(?, 'sqlite3_minimaldigest_init')",
                           (str(options.build_dir / "bench/minimal_digest"),))


def connect(options, bits=2048, minimal=False):
    """A connection with the extension, a table `input` of one row, and one of many rows to count."""
    connection = sqlite3.connect(":memory:", check_same_thread=False, isolation_level=None)
    load(connection, options, minimal)
    private_key, public_key = ((FIXTURES / f"rsa{bits}{kind}.pem").read_text() for kind in ("", "-public"))
    connection.execute("CREATE TABLE input AS SELECT :content AS content, :private AS private_key, :public AS "
                       "public_key, asymmetric_sign('RSA', :content, :private, 'SHA256') AS signature, "
                       "asymmetric_encrypt('RSA', :content, :public) AS ciphertext",
                       {"content": CONTENT, "private": private_key, "public": public_key})
    connection.execute("CREATE TABLE times (i INTEGER PRIMARY KEY)")
    connection.execute("INSERT INTO times WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n "
                       f"WHERE i < {MOST_ROWS}) SELECT i FROM n")
    return connection


def row_runner(connection, call):
    """A function that computes so many rows and returns the seconds."""
    def run(rows):
        begin = time.perf_counter()
        counted, = connection.execute(f"SELECT count({call}) FROM times CROSS JOIN input WHERE i <= ?", (rows,)).fetchone()
        taken = time.perf_counter() - begin
        if counted != min(rows, MOST_ROWS):
            raise RuntimeError(f"{call} gave NULL")
        return taken
    return run


def on_threads(runs):
    """Runs functions at the same time; returns the seconds until the last has ended."""
    start = threading.Barrier(len(runs) + 1)
    threads = [threading.Thread(target=lambda run=run: (start.wait(), run())) for run in runs]
    for thread in threads:
        thread.start()
    start.wait()
    begin = time.perf_counter()
    for thread in threads:
        thread.join()
    return time.perf_counter() - begin


class Peer:
    """A process that computes rows with a connection of its own, when asked."""

    def __init__(self, options, bits):
        context = multiprocessing.get_context("fork")
        self.pipe, end_of_process = context.Pipe()
        self.process = context.Process(target=self.serve, args=(end_of_process, options, bits), daemon=True)
        self.process.start()
        # So that reading from the pipe fails when the process ends.
        end_of_process.close()

    @staticmethod
    def serve(pipe, options, bits):
        connection = connect(options, bits)
        while True:
            call, rows = pipe.recv()
            row_runner(connection, call)(rows)
            pipe.send(rows)


def on_processes(peers, call, rows):
    """Runs the rows in every process at the same time; returns the seconds until the last has ended."""
    begin = time.perf_counter()
    for peer in peers:
        peer.pipe.send((call, rows))
    for peer in peers:
        peer.pipe.recv()
    return time.perf_counter() - begin


def rsa_rows(options, bits):
    """Rows a second by (function, number of threads), and by (function, "processes") of two processes."""
    # Before this process has a library context.
    peers = [Peer(options, bits), Peer(options, bits)]
    connections = [connect(options, bits), connect(options, bits)]
    figures = {}
    for function, call in CALLS.items():
        runs = [row_runner(connection, call) for connection in connections]
        rows = rows_that_take(options.seconds, runs[0], MOST_ROWS)
        seconds = in_turn(options.rounds, {
            1: lambda: on_threads([lambda: runs[0](rows)]),
            2: lambda: on_threads([lambda run=run: run(rows) for run in runs]),
            "processes": lambda: on_processes(peers, call, rows)})
        figures |= {(function, count): figure.rate(rows if count == 1 else 2 * rows) for count, figure in seconds.items()}
    for peer in peers:
        peer.process.kill()
    return figures


DIGESTS = {"no function": "content", "minimal": "minimal_digest('SHA256', content)",
           "constant": "create_digest('SHA256', content)", "columns": "create_digest(digest_type, content)"}


def digest_rows(options):
    """Seconds per digest of 64 bytes, in turn, by (kind, number of threads)."""
    connections = [connect(options, minimal=True), connect(options, minimal=True)]
    rows = 1000 if options.quick else 300000
    for connection in connections:
        connection.execute("CREATE TABLE contents AS SELECT printf('%064d', i) AS content, 'SHA256' AS digest_type "
                           "FROM times WHERE i <= 300")

    def run(connection, expression):
        connection.execute(f"SELECT sum(length({expression})) FROM times CROSS JOIN contents WHERE times.i <= ?",
                           (rows // 300,)).fetchone()

    seconds = in_turn(2 * options.rounds, {
        (kind, threads): lambda used=connections[:threads], expression=expression: on_threads(
            [lambda connection=connection: run(connection, expression) for connection in used])
        for kind, expression in DIGESTS.items() for threads in (1, 2)})
    return {(kind, threads): Figure(run / (rows // 300 * 300 * threads) for run in figure.runs)
            for (kind, threads), figure in seconds.items()}


def digests_by_size(options, sizes):
    """Seconds per digest of one content, by (size, name of the function)."""
    connection = connect(options, minimal=True)
    figures = {}
    for size in sizes:
        connection.execute("CREATE TEMP TABLE one AS SELECT ? AS content", (b"x" * size,))
        runs = {name: row_runner(connection, f"{name}('SHA256', (SELECT content FROM one))")
                for name in ("minimal_digest", "create_digest")}
        rows = rows_that_take(options.seconds, runs["create_digest"], MOST_ROWS)
        for name, seconds in in_turn(options.rounds, {name: lambda run=run: run(rows) for name, run in runs.items()}).items():
            figures[size, name] = Figure(run / rows for run in seconds.runs)
        connection.execute("DROP TABLE one")
    return figures


VERIFY = "SELECT asymmetric_verify('RSA', ?, ?, ?, 'SHA256')"


def signed(options):
    """The arguments that VERIFY takes."""
    return connect(options).execute("SELECT content, signature, public_key FROM input").fetchone()


def first_use(options, arguments):
    """Seconds of what a process and a connection do for the first time."""
    connections = [sqlite3.connect(":memory:", check_same_thread=False) for _ in range(2)]

    def run(sql, values=()):
        return timed(lambda: connections[0].execute(sql, values).fetchone())

    taken = {"loading the extension, first connection": timed(lambda: load(connections[0], options)),
             "loading the extension, second connection": timed(lambda: load(connections[1], options))}
    digest = "SELECT create_digest('SHA256', 'x')"
    taken |= {"`create_digest`, first row": run(digest), "`create_digest`, second row": run(digest),
              "`asymmetric_verify`, first row": run(VERIFY, arguments),
              "`asymmetric_verify`, second row": run(VERIFY, arguments)}
    in_thread = []
    on_threads([lambda: in_thread.extend(run(VERIFY, arguments) for _ in range(2))])
    taken["`asymmetric_verify`, first row of a second thread"], _ = in_thread
    return taken


def private_memory():
    """Bytes of this process that it shares with no other and cannot drop."""
    for line in pathlib.Path("/proc/self/smaps_rollup").read_text().splitlines():
        if line.startswith("Private_Dirty:"):
            return int(line.split()[1]) * 1024
    raise RuntimeError("the system reports no private memory")


def memory(options, arguments):
    """KiB of a connection and of a thread, the mean of a number of them."""
    count = 20
    kept = []

    def grown(action):
        before = private_memory()
        action()
        return (private_memory() - before) / 1024 / count

    def open_connection(loaded):
        kept.append(sqlite3.connect(":memory:", check_same_thread=False))
        if loaded:
            load(kept[-1], options)
            kept[-1].execute("SELECT create_digest('SHA256', 'x')").fetchone()

    def threads(sql, values):
        computed, end = threading.Barrier(count + 1), threading.Event()

        def compute(connection):
            connection.execute(sql, values).fetchone()
            computed.wait()
            end.wait()
        running = [threading.Thread(target=compute, args=(connection,)) for connection in kept[-count:]]
        for thread in running:
            thread.start()
        computed.wait()
        return lambda: (end.set(), [thread.join() for thread in running])

    open_connection(True)
    kept[0].execute(VERIFY, arguments).fetchone()
    sizes = {"a connection without the extension": grown(lambda: [open_connection(False) for _ in range(count)]),
             "a connection with it, after a digest": grown(lambda: [open_connection(True) for _ in range(count)])}
    ends = []
    sizes["a thread, after `SELECT 1`"] = grown(lambda: ends.append(threads("SELECT 1", ())))
    ends.pop()()
    sizes["a thread, after `asymmetric_verify`"] = grown(lambda: ends.append(threads(VERIFY, arguments)))
    ends.pop()()
    return sizes


def failing_rows(options, log):
    """Seconds of a good row and of one with a broken key, and the bytes that the latter logs."""
    connection = connect(options)
    connection.execute("CREATE TABLE broken AS SELECT ? AS broken_key",
                       ((FIXTURES / "rsa2048-public-bad-base64.pem").read_text(),))
    good = CALLS["asymmetric_verify"]
    bad = good.replace("public_key", "(SELECT broken_key FROM broken)") + " IS NULL OR NULL"
    runs = {name: row_runner(connection, call) for name, call in (("good", good), ("broken key", bad))}
    rows = rows_that_take(options.seconds, runs["good"], MOST_ROWS)
    figures = {name: Figure(run / rows for run in figure.runs) for name, figure in in_turn(
        options.rounds, {name: lambda run=run: run(rows) for name, run in runs.items()}).items()}
    return figures, pathlib.Path(log).stat().st_size / ((options.rounds + 1) * rows)


def create_keys(options, bits, budget, most):
    """Processor seconds of single keys: at most so many, and none is begun after the budget is used up."""
    connection = sqlite3.connect(":memory:")
    load(connection, options)
    connection.execute("UPDATE dovrin_variables SET value = ? WHERE name = "
                       "'component_halvex_encryption.maximum_rsa_key_size'", (bits,))
    taken = []
    while len(taken) < most and sum(taken) < budget:
        begin = time.thread_time()
        key, = connection.execute("SELECT create_asymmetric_priv_key('RSA', ?)", (bits,)).fetchone()
        taken.append(time.thread_time() - begin)
        if key is None:
            raise RuntimeError(f"no key of {bits} bits was created")
    return taken


def merged(samples):
    return {name: Figure(sample[name] for sample in samples) for name in samples[0]}


def measure(options):
    sizes, bits = ((16, 1024), (2048,)) if options.quick else ((16, 64, 1024, 65536, 1 << 20, 10**8), (2048, 3072, 4096))
    quiet = {"HALVEX_LOG_STDERR": "0"}
    rsa = {(context, length): in_child(rsa_rows, options, length, HALVEX_ROW_CONTEXT=variable, **quiet)
           for context, variable in CONTEXTS.items() for length in bits}
    digests = in_child(digest_rows, options, **quiet)
    by_size = in_child(digests_by_size, options, sizes, **quiet)
    arguments = in_child(signed, options, **quiet)
    started = merged([in_child(first_use, options, arguments, **quiet) for _ in range(2 * options.rounds)])
    sizes_of = {context: merged([in_child(memory, options, arguments, HALVEX_ROW_CONTEXT=variable, **quiet)
                                 for _ in range(options.rounds)]) for context, variable in CONTEXTS.items()}
    with tempfile.NamedTemporaryFile() as log:
        failing, logged = in_child(failing_rows, options, log.name, HALVEX_LOG_FILE=log.name, **quiet)

    def row(function, length):
        default, small = ([rsa[context, length][function, count] for count in (1, 2, "processes")] for context in CONTEXTS)
        return [f"`{function}`", str(length), as_number(default[0]), as_number(default[1]), as_number(small[0]),
                as_number(small[1]), as_ratio(small[1] / small[0]), as_ratio(small[2] / small[0])]

    rows = table(["rows a second", "bits", "default context", "2 threads", "small context", "2 threads",
                  "2 threads / 1 thread, small", "2 processes / 1 thread, small"],
                 [row(function, length) for function in CALLS for length in bits])
    kinds = table(["64 bytes, SHA256", "1 thread", "ratio to the minimal function", "2 threads / 1 thread"], [
        [f"`SELECT sum(length({expression}))`", as_time(digests[kind, 1]), as_ratio(digests[kind, 1] / digests["minimal", 1]),
         as_ratio(digests[kind, 1] / digests[kind, 2])] for kind, expression in DIGESTS.items()])
    contents = table(["content", "`minimal_digest`", "`create_digest`", "ratio"], [
        [as_size(size), as_time(by_size[size, "minimal_digest"]), as_time(by_size[size, "create_digest"]),
         as_ratio(by_size[size, "create_digest"] / by_size[size, "minimal_digest"])] for size in sizes])
    uses = table(["first use in a process", "time"], [[name, as_time(figure)] for name, figure in started.items()])
    room = table(["private memory in KiB", "default context", "small context"], [
        [name, as_number(sizes_of["default"][name]), as_number(sizes_of["small"][name])] for name in sizes_of["default"]])
    text = f"""RSA rows of one connection, and of two threads with a connection each. Two processes share nothing, so the last column
is what this machine's two processors can do:

{rows}

Digests of one connection. `minimal_digest` is a C function with the same OpenSSL calls and nothing else
(`bench/minimal_digest.c`); the first line is the statement without any function:

{kinds}

Digests of one content that lies ready:

{contents}

{uses}

{room}

A row of `asymmetric_verify` whose key is broken takes {as_time(failing["broken key"])}, a good one {as_time(failing["good"])},
and adds {logged:.0f} bytes to a log file (`HALVEX_LOG_FILE`)."""
    chart = bar_chart("Rows a second in SQLite, RSA 2048 bits", list(CALLS), {
        f"{context}, {count} thread{'s'[:count - 1]}":
            [rsa[context, 2048][function, count].median for function in CALLS]
        for context in CONTEXTS for count in (1, 2)})
    return {"sqlite": text}, {"sqlite": chart}


def measure_keys(options):
    with concurrent.futures.ThreadPoolExecutor(len(os.sched_getaffinity(0))) as executor:
        lengths = {bits: executor.submit(in_child, create_keys, options, bits, budget, most)
                   for bits, budget, most in options.keys}

    def row(bits, seconds):
        figure, ordered = Figure(seconds), sorted(seconds)
        ninth = ordered[max(0, -(-len(ordered) * 9 // 10) - 1)]
        return [str(bits), str(len(ordered)), f"{number(figure.median)} s", f"{number(ninth)} s",
                f"{number(ordered[0])} to {number(ordered[-1])} s"]

    text = table(["bits", "keys", "median", "90 % took at most", "shortest to longest"],
                 [row(bits, lengths[bits].result()) for bits in sorted(lengths)])
    return {"keys": "Processor time of `create_asymmetric_priv_key`:\n\n" + text}, {}
