"""Rows without an SQL engine: bench/function_bench.cc, which Google Benchmark runs."""

import collections
import json
import subprocess

from figures import Figure, as_ratio, as_size, as_time, bar_chart, number, table

FUNCTIONS = ("asymmetric_verify", "asymmetric_encrypt", "create_asymmetric_pub_key", "asymmetric_decrypt",
             "asymmetric_sign")
NANOSECONDS = 1e-9


def run(options, *arguments):
    """Seconds per row by (function, variant, size, threads)."""
    done = subprocess.run([options.build_dir / "bench/halvex_bench", "--benchmark_format=json", *arguments],
                          stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        raise RuntimeError(f"halvex_bench failed: {done.stderr}")
    runs = collections.defaultdict(list)
    for row in json.loads(done.stdout)["benchmarks"]:
        if row["run_type"] == "iteration":
            function, variant, size, _, threads = row["run_name"].split("/")
            runs[function, variant, int(size), int(threads.split(":")[1])].append(row["real_time"] * NANOSECONDS)
    return {name: Figure(values) for name, values in runs.items()}


def measure(options):
    common = [f"--benchmark_repetitions={options.rounds}", "--benchmark_enable_random_interleaving=true"]
    if options.quick:
        common.append("--benchmark_min_time=0.001")
        figures = run(options, *common, "--benchmark_filter=/(2048|16|64)/")
        sizes, bits = (16, 64), (2048,)
    else:
        common.append("--benchmark_min_time=0.08")
        figures = run(options, *common, "--benchmark_filter=/(2048|16|64)/")
        figures |= run(options, *common, "--benchmark_filter=/(3072|4096|1024|65536|1048576|100000000)/.*threads:1$")
        sizes, bits = (16, 64, 1024, 65536, 1 << 20, 10**8), (2048, 3072, 4096)

    rows = [[f"`{function}`", str(length), *(as_time(figures[function, variant, length, 1])
                                             for variant in ("openssl", "component", "default", "small")),
             as_ratio(figures[function, "component", length, 1] / figures[function, "openssl", length, 1])]
            for function in FUNCTIONS for length in bits]
    by_function = table(["function", "bits", "OpenSSL alone", "component", "stand-in server, default context",
                         "stand-in server, small context", "component / OpenSSL"], rows)

    digests = table(["content", "OpenSSL alone", "component", "stand-in server", "stand-in server / OpenSSL"], [
        [as_size(size), *(as_time(figures["create_digest", variant, size, 1])
                          for variant in ("openssl", "component", "default")),
         as_ratio(figures["create_digest", "default", size, 1] / figures["create_digest", "openssl", size, 1])]
        for size in sizes])

    def gain(function, variant, size):
        return as_ratio(figures[function, variant, size, 1] / figures[function, variant, size, 2])

    threads = table(["function", "OpenSSL alone", "default context", "small context"], [
        *([f"`{function}`", *(gain(function, variant, 2048) for variant in ("openssl", "default", "small"))]
          for function in FUNCTIONS),
        ["`create_digest`, 64 B", gain("create_digest", "openssl", 64), gain("create_digest", "default", 64), "-"]])

    chart = bar_chart("Rows a second through the stand-in server, RSA 2048 bits", FUNCTIONS, {
        f"{context}, {count} thread{'s'[:count - 1]}":
            [1 / figures[function, context, 2048, count].median for function in FUNCTIONS]
        for context in ("default", "small") for count in (1, 2)})
    small = figures["asymmetric_verify", "default", 2048, 1] / figures["asymmetric_verify", "small", 2048, 1]
    text = f"""One row, with a content of 64 bytes:

{by_function}

![Rows a second in both library contexts](charts/rows.svg)

Digests (SHA256), which always run in the default context:

{digests}

How many times the rows of one thread two threads compute, RSA 2048 bits:

{threads}

A row of `asymmetric_verify` with 2048 bits is {number(small.median)} times as fast in the small context as in the default one."""
    return {"calls": text}, {"rows": chart}
