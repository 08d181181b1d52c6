"""Rows in PostgreSQL, in servers of the report's own: beside what Debian ships, with workers, and on two shards."""

import contextlib
import pathlib
import re
import subprocess
import time

import psycopg2

from figures import Figure, as_number, as_ratio, as_size, as_time, bar_chart, in_turn, number, rows_that_take, table, timed
from measure_sqlite import CALLS, CONTENT, CONTEXTS, FIXTURES

ROOT = pathlib.Path(__file__).resolve().parents[1]
# Made with `gpg --batch --generate-key`; its private half is gone.
OPENPGP_KEY = ROOT / "bench/openpgp-rsa2048-public.asc"

# Runs the servers whose commands it is given until its input ends.
RUN_SERVERS = """
set -euo pipefail
build=$1
source hosts/postgresql/clusters/clusters.bash
open_clusters
eval "$2"
printf '%s\\n' "$clusters_folder"
read -r || true
"""
START_BOTH = "".join(f"server_environment=(HALVEX_ROW_CONTEXT={variable}); start_cluster {context}; "
                     for context, variable in CONTEXTS.items())
START_SHARDS = "server_environment=(HALVEX_ROW_CONTEXT=on); start_shards 2; "


class Servers:
    """Servers by their names, as hosts/postgresql/clusters/clusters.bash starts them, until closed."""

    def __init__(self, options, commands):
        self.process = subprocess.Popen(["bash", "-c", RUN_SERVERS, "bash", options.build_dir, commands], cwd=ROOT,
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.folder = pathlib.Path(self.process.stdout.readline().strip())
        if not self.folder.name:
            raise RuntimeError("the servers did not start")

    def close(self):
        self.process.communicate()

    def log(self, name):
        return self.folder / name / "server.log"

    def session(self, name):
        return Session(psycopg2.connect(host=str(self.folder / name), user="postgres", dbname="halvex"))


class Session:
    """A connection whose statements are no transactions, without the just-in-time compiler or parallel workers."""

    def __init__(self, connection):
        connection.autocommit = True
        self.connection = connection
        self.cursor = connection.cursor()
        self.run("SET jit = off; SET max_parallel_workers_per_gather = 0")

    def run(self, sql, values=None):
        self.cursor.execute(sql, values)
        return self.cursor.fetchall() if self.cursor.description else None

    def seconds(self, sql, values=None):
        return timed(lambda: self.run(sql, values))

    def status(self, field):
        """A figure in KiB of the process behind the session."""
        for path in ("smaps_rollup", "status"):
            text = pathlib.Path(f"/proc/{self.connection.get_backend_pid()}/{path}").read_text()
            if found := re.search(rf"^{field}:\s*(\d+) kB", text, re.MULTILINE):
                return int(found[1])
        raise RuntimeError(f"the system does not report {field}")


def fill(session, rows):
    """Tables `input`, of one row, and `payloads`, of many, with everything that a call needs."""
    private_key, public_key = ((FIXTURES / f"rsa2048{kind}.pem").read_text() for kind in ("", "-public"))
    broken_key = (FIXTURES / "rsa2048-public-bad-base64.pem").read_text()
    session.run("""
        CREATE EXTENSION pgcrypto;
        CREATE TABLE input AS SELECT %(content)s::text AS content, %(private)s::text AS private_key,
          %(public)s::text AS public_key, %(broken)s::text AS broken_key, dearmor(%(openpgp)s) AS openpgp_key,
          asymmetric_sign('RSA', %(content)s, %(private)s, 'SHA256') AS signature,
          asymmetric_encrypt('RSA', %(content)s, %(public)s) AS ciphertext;
        CREATE TABLE payloads AS SELECT i, content, signature, ciphertext FROM generate_series(1, %(rows)s) AS i, input;
        CREATE TABLE contents AS SELECT i, lpad(i::text, 64, '0') AS content,
          convert_to(lpad(i::text, 64, '0'), 'UTF8') AS bytes FROM generate_series(1, 20 * %(rows)s) AS i;
        ANALYZE""",
        {"content": CONTENT, "private": private_key, "public": public_key, "broken": broken_key, "rows": rows,
         "openpgp": OPENPGP_KEY.read_text()})


def with_keys(call):
    """The call with the keys of the table `input`, as one value for the whole statement."""
    return re.sub(r"\b(\w+_key)\b(?!\()", r"(SELECT \1 FROM input)", call)


def count_rows(session, call, source="payloads"):
    """A function that computes so many rows of a table, with keys of the table `input`, and returns the seconds."""
    call = with_keys(call)

    def run(rows):
        begin = time.perf_counter()
        (counted,), = session.run(f"SELECT count({call}) FROM {source} WHERE i <= {rows}")
        taken = time.perf_counter() - begin
        if counted != rows:
            raise RuntimeError(f"{call} gave NULL")
        return taken
    return run


def per_row(options, runs, limit, rows=None):
    """Seconds per row by name, of functions as count_rows() gives them, run in turn."""
    rows = rows or rows_that_take(options.seconds, max(runs.values(), key=lambda run: run(1)), limit)
    return {name: Figure(run / rows for run in figure.runs) for name, figure in in_turn(
        options.rounds, {name: lambda run=run: run(rows) for name, run in runs.items()}).items()}


DIGESTS = {"`create_digest`": "create_digest('SHA256', {0})", "pgcrypto's `digest`": "digest({0}, 'sha256')",
           "built-in `sha256`": "sha256({0})"}


def digests_by_size(options, session, rows):
    """Seconds per digest without the scan, by content and name of the function."""
    figures = {}

    def measure(content, column, source, count):
        runs = per_row(options, {"scan": count_rows(session, column, source), **{
            name: count_rows(session, call.format(column), source) for name, call in DIGESTS.items()
            if column == "bytes" or "sha256({0})" != call}}, count, count)
        figures[content] = {name: figure - runs["scan"] for name, figure in runs.items() if name != "scan"}

    measure("64 B of text", "content", "contents", 20 * rows)
    measure("64 B", "bytes", "contents", 20 * rows)
    for size, count in ((16, 2000), (1024, 200)) if options.quick else (
            (16, 100000), (1024, 50000), (65536, 1000), (1 << 20, 100), (10**8, 1)):
        session.run("DROP TABLE IF EXISTS sized; CREATE TABLE sized (i integer, bytes bytea); "
                    "ALTER TABLE sized ALTER bytes SET STORAGE EXTERNAL; "
                    "INSERT INTO sized SELECT i, convert_to(repeat('x', %s), 'UTF8') FROM generate_series(1, %s) AS i",
                    (size, count))
        measure(as_size(size), "bytes", "sized", count)
    return figures


def first_use(servers, context):
    """Seconds of what a session does for the first time."""
    begin = time.perf_counter()
    session = servers.session(context)
    digest = "SELECT create_digest('SHA256', 'x')"
    verify = f"SELECT {CALLS['asymmetric_verify']} FROM input"
    return {"connecting": time.perf_counter() - begin,
            "`create_digest`, first row": session.seconds(digest), "`create_digest`, second row": session.seconds(digest),
            "`asymmetric_verify`, first row": session.seconds(verify),
            "`asymmetric_verify`, second row": session.seconds(verify)}


def memory(servers, context, size):
    """Private KiB of a backend, in all and after each step, and its peak with a long text."""
    session = servers.session(context)
    steps = {"after `SELECT 1`": "SELECT 1", "after `create_digest`": "SELECT create_digest('SHA256', 'x')",
             "after `asymmetric_verify`": f"SELECT {CALLS['asymmetric_verify']} FROM input"}
    taken = {}
    for step, sql in steps.items():
        session.run(sql)
        taken[step] = session.status("Private_Dirty")
    session.run("CREATE TEMP TABLE long_text (content text); ALTER TABLE long_text ALTER content SET STORAGE EXTERNAL; "
                "INSERT INTO long_text SELECT repeat('x', %s)", (size,))
    fresh = servers.session(context)
    session.run("CREATE TABLE kept_text AS TABLE long_text")
    fresh.run("SELECT create_digest('SHA256', 'x')")
    before = fresh.status("VmHWM")
    fresh.run("SELECT create_digest('SHA256', content) FROM kept_text")
    taken[f"peak of `create_digest` of {as_size(size)} of text, beyond the former"] = fresh.status("VmHWM") - before
    session.run("DROP TABLE kept_text")
    return taken


def merged(samples):
    return {name: Figure(sample[name] for sample in samples) for name in samples[0]}


def failing_rows(options, servers, session, rows):
    """Seconds of a good row and of one with a broken key, and the bytes that the latter logs."""
    good = CALLS["asymmetric_verify"]
    bad = good.replace("public_key", "broken_key") + " IS NULL"
    runs = {name: count_rows(session, call) for name, call in (("good", good), ("broken", bad))}
    count = rows_that_take(options.seconds, runs["broken"], rows)
    session.run("SET log_statement = 'none'")
    before = servers.log("small").stat().st_size
    figures = per_row(options, runs, rows, count)
    return figures, (servers.log("small").stat().st_size - before) / ((options.rounds + 1) * count)


def measure(options):
    rows = 100 if options.quick else 10000
    with contextlib.closing(Servers(options, START_BOTH)) as servers:
        sessions = {context: servers.session(context) for context in CONTEXTS}
        for session in sessions.values():
            fill(session, rows)
        calls = {**CALLS, "pgcrypto's `pgp_pub_encrypt`": "pgp_pub_encrypt(content, openpgp_key)"}
        rsa = {function: per_row(options, {context: count_rows(session, call) for context, session in sessions.items()}, rows)
               for function, call in calls.items()}
        digests = digests_by_size(options, sessions["small"], rows)
        costs = dict(sessions["small"].run("SELECT proname, max(procost) FROM pg_proc WHERE proname IN %s GROUP BY 1",
                                           ((*CALLS, "create_digest"),)))
        used = merged([first_use(servers, "small") for _ in range(2 * options.rounds)])
        room = {context: merged([memory(servers, context, 10**5 if options.quick else 10**8) for _ in range(2)])
                for context in CONTEXTS}
        failing, logged = failing_rows(options, servers, sessions["small"], rows)

    def cost_unit(name, figure):
        return Figure(run / costs[name] for run in figure.runs)

    encryption = rsa["asymmetric_encrypt"]["small"]
    by_function = table(["seconds a row, RSA 2048 bits", "default context", "small context", "ratio"], [
        [name if " " in name else f"`{name}`", as_time(figures["default"]), as_time(figures["small"]),
         as_ratio(figures["default"] / figures["small"])] for name, figures in rsa.items()])
    by_content = table(["content, scan subtracted", *DIGESTS, "`create_digest` / pgcrypto's"], [
        [content, *(as_time(figures[name]) if name in figures else "-" for name in DIGESTS),
         as_ratio(figures["`create_digest`"] / figures["pgcrypto's `digest`"])] for content, figures in digests.items()])
    units = {name: {context: cost_unit(name, figures[context]) for context in CONTEXTS}
             for name, figures in rsa.items() if name in costs}
    units["create_digest"] = dict.fromkeys(CONTEXTS, cost_unit("create_digest", digests["64 B of text"]["`create_digest`"]))
    by_cost = table(["time of a unit of COST", "COST", *(f"{context} context" for context in CONTEXTS)], [
        [f"`{name}`", f"{costs[name]:,.0f}", *(as_time(figures[context]) for context in CONTEXTS)]
        for name, figures in units.items()])
    uses = table(["first use in a session, small context", "time"], [[name, as_time(figure)] for name, figure in used.items()])
    sizes = table(["private memory of a backend in KiB", "default context", "small context"], [
        [name, as_number(room["default"][name]), as_number(room["small"][name])] for name in room["default"]])
    text = f"""One process:

{by_function}

`asymmetric_encrypt` in the small context takes {as_ratio(encryption / rsa["pgcrypto's `pgp_pub_encrypt`"]["small"])} times as long as pgcrypto's hybrid encryption of
the same 64 bytes with an OpenPGP key of 2048 bits.

{by_content}

{by_cost}

{uses}

{sizes}

A row of `asymmetric_verify` whose key is broken takes {as_time(failing["broken"])}, a good one {as_time(failing["good"])}, and
adds {logged:.0f} bytes to the server's log."""
    return {"postgresql": text}, {}


def workers(count):
    return (f"SET max_parallel_workers_per_gather = {count}; SET min_parallel_table_scan_size = 0; "
            "SET parallel_setup_cost = 0; SET parallel_tuple_cost = 0; SET parallel_leader_participation = off")


def rows_with_workers(options, servers, rows):
    """Rows a second by (function, context, workers); 0 is the session's own process."""
    figures = {}
    for context in CONTEXTS:
        sessions = {count: servers.session(context) for count in (0, 1, 2)}
        for count, session in sessions.items():
            session.run(workers(count))
        for function, call, source, limit in (
                ("create_digest", "create_digest('SHA256', content)", "contents", 20 * rows),
                *((name, call, "payloads", rows) for name, call in CALLS.items())):
            runs = {count: count_rows(session, call, source) for count, session in sessions.items()}
            # Two processes shall both have work for long enough.
            used = rows_that_take(2 * options.seconds, runs[0], limit)
            for count, figure in per_row(options, runs, limit, used).items():
                figures[function, context, count] = figure.rate()
    return figures


def rows_on_shards(options, servers, rows):
    """Rows a second by function, of two shards that a coordinator asks."""
    coordinator = servers.session("coordinator")
    coordinator.run("INSERT INTO payloads (shard, id, content) SELECT 1 + i %% 2, i, lpad(i::text, 64, '0') "
                    "FROM generate_series(1, %s) AS i", (20 * rows,))
    coordinator.run("UPDATE payloads SET digest = create_digest(digest_type, content)")
    coordinator.run("SELECT make_signing_key('main', 2048)")

    def count(expected, sql):
        begin = time.perf_counter()
        counted = sum(row[-1] for row in coordinator.run(sql))
        taken = time.perf_counter() - begin
        if counted != expected:
            raise RuntimeError(f"{sql}: {counted} rows")
        return taken

    digest = "SELECT shard, count(*) FROM payloads WHERE digest = create_digest(digest_type, content) GROUP BY shard"
    figures = {"create_digest": in_turn(options.rounds, {0: lambda: count(20 * rows, digest)})[0].rate(20 * rows)}
    few = rows if options.quick else 1000
    shards = [servers.session(f"shard_{shard}") for shard in (1, 2)]
    for shard in shards:
        shard.run(f"DELETE FROM payloads WHERE id > {few}")
        shard.run("VACUUM FULL payloads")

    def sign():
        for shard in shards:
            shard.run("UPDATE payloads SET signature = NULL")
        begin = time.perf_counter()
        signed = sum(row[-1] for row in coordinator.run("SELECT * FROM sign_payloads('main')"))
        taken = time.perf_counter() - begin
        if signed != few:
            raise RuntimeError(f"{signed} rows signed")
        return taken

    verify = "SELECT shard, count(*) FROM checked_payloads WHERE signature_holds GROUP BY shard"
    seconds = in_turn(options.rounds, {"asymmetric_sign": sign, "asymmetric_verify": lambda: count(few, verify)})
    held = [shard.run("SELECT count(*) FROM pg_stat_activity WHERE backend_type = 'client backend' "
                      "AND pid <> pg_backend_pid()")[0][0] for shard in shards]
    return figures | {name: figure.rate(few) for name, figure in seconds.items()}, held


def many_partitions(options, servers):
    """Seconds to plan and to execute a lookup over many foreign partitions, and one of a single partition."""
    count = 20 if options.quick else 1000
    session = servers.session("coordinator")
    session.run("CREATE TABLE spread (shard integer, id bigint, content text, digest bytea) PARTITION BY LIST (shard)")
    for partition in range(count):
        session.run(f"CREATE FOREIGN TABLE spread_{partition} PARTITION OF spread FOR VALUES IN ({partition}) "
                    f"SERVER shard_{1 + partition % 2} OPTIONS (table_name 'payloads')")
    lookup = "EXPLAIN (ANALYZE, TIMING OFF, SUMMARY ON) SELECT count(*) FROM spread WHERE id = -1"
    taken = {}
    for name, sql in (("all", lookup), ("one", lookup + " AND shard = 7")):
        for step in ("Planning", "Execution"):
            taken[name, step] = []
        for run in range(options.rounds + 1):
            plan = "\n".join(line for line, in session.run(sql))
            for step in ("Planning", "Execution"):
                if run > 0:
                    taken[name, step].append(float(re.search(rf"{step} Time: ([\d.]+) ms", plan)[1]) / 1000)
    return count, {name: Figure(runs) for name, runs in taken.items()}


def compiled_statements(options, servers, rows):
    """Seconds of a statement of so many rows with the just-in-time compiler and without, and its added private KiB."""
    session = servers.session("small")
    call = f"SELECT count({with_keys(CALLS['asymmetric_sign'])}) FROM payloads WHERE i <= {rows}"
    session.run(call)
    memory_before = session.status("Private_Dirty")

    def run(setting):
        session.run(f"SET jit = {setting}; SET jit_above_cost = 0; SET jit_inline_above_cost = 0; "
                    "SET jit_optimize_above_cost = 0")
        return session.seconds(call)

    figures = {setting: Figure(run(setting) for _ in range(options.rounds)) for setting in ("off", "on")}
    return figures, session.status("Private_Dirty") - memory_before


def rows_until(session, setting, call, source):
    """Rows at which the planner's cost of a call on every row reaches a setting."""
    session.run(f"SET {setting} = DEFAULT")
    limit = float(session.run(f"SHOW {setting}")[0][0])
    cost = session.run(f"EXPLAIN (FORMAT JSON) SELECT count({with_keys(call)}) FROM {source}")[0][0][0]["Plan"]
    (rows,), = session.run(f"SELECT count(*) FROM {source}")
    return limit / cost["Total Cost"] * rows


def measure_scaling(options):
    rows = 100 if options.quick else 10000
    with contextlib.closing(Servers(options, START_BOTH + START_SHARDS)) as servers:
        for context in CONTEXTS:
            fill(servers.session(context), rows)
        rates = rows_with_workers(options, servers, rows)
        shards, held = rows_on_shards(options, servers, rows)
        partitions, lookups = many_partitions(options, servers)
        compiled_rows = min(rows, 200)
        compiled, compiled_memory = compiled_statements(options, servers, compiled_rows)
        session = servers.session("small")
        starts = {name: rows_until(session, "jit_above_cost", call, source) for name, call, source in (
            ("asymmetric_sign", CALLS["asymmetric_sign"], "payloads"),
            ("asymmetric_verify", CALLS["asymmetric_verify"], "payloads"),
            ("create_digest", "create_digest('SHA256', content)", "contents"))}

    functions = ("create_digest", *CALLS)
    rates_table = table(
        ["rows a second", "one process, default context", "2 workers", "one process, small context", "1 worker", "2 workers",
         "2 workers / one process", "2 shards"],
        [[f"`{function}`", as_number(rates[function, "default", 0]), as_number(rates[function, "default", 2]),
          *(as_number(rates[function, "small", count]) for count in (0, 1, 2)),
          as_ratio(rates[function, "small", 2] / rates[function, "small", 0]),
          as_number(shards[function]) if function in shards else "-"] for function in functions])
    lookup_table = table([f"lookup by `id` over {partitions} foreign partitions", "planning", "executing"], [
        [text, as_time(lookups[name, "Planning"]), as_time(lookups[name, "Execution"])]
        for name, text in (("all", "all of them"), ("one", "`AND shard = 7`"))])
    text = f"""{rates_table}

![Rows a second of one process, two workers and two shards](charts/scaling.svg)

After these statements a session of the coordinator held {held[0]} connections to the first shard and {held[1]} to the second.

{lookup_table}

The just-in-time compiler: {compiled_rows} rows of `asymmetric_sign` take {as_time(compiled["on"])} with it and {as_time(compiled["off"])} without, and
the backend has {compiled_memory / 1024:.0f} MiB more private memory afterwards. The declared costs reach `jit_above_cost` at
{starts["asymmetric_sign"]:,.0f} rows of `asymmetric_sign`, {starts["asymmetric_verify"]:,.0f} of `asymmetric_verify` and {starts["create_digest"]:,.0f} digests."""
    shown = ("asymmetric_verify", "asymmetric_sign")
    chart = bar_chart("Rows a second in PostgreSQL, RSA 2048 bits, small context", shown, {
        "one process": [rates[name, "small", 0].median for name in shown],
        "1 worker": [rates[name, "small", 1].median for name in shown],
        "2 workers": [rates[name, "small", 2].median for name in shown],
        "2 shards": [shards[name].median for name in shown]})
    return {"scaling": text}, {"scaling": chart}
