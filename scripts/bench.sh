#!/usr/bin/env bash
# Builds the Release benchmark build in build-bench and measures the six figures of
# BENCHMARKS.md: answer assembly, change computation, command round trip, acceptance polling
# (with the host tool's CPU share while accepting), memory and reading a trace. Prints a summary; the raw
# Google Benchmark JSON and the summary stay in build-bench/results/.
#
#   scripts/bench.sh [REPETITIONS]     default 5; the figures are medians over the repetitions
#
# Run it on a quiet machine: the round-trip and polling figures are wall-clock and CPU
# measurements of real pseudo-terminal traffic.
set -euo pipefail
cd "$(dirname "$0")/.."

repetitions=${1:-5}
build=build-bench
results=$build/results
bash scripts/setup.sh --dev >/dev/null
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCPIBCR_BENCH=ON -DCPIBCR_WERROR=ON >/dev/null
cmake --build "$build" -j"$(nproc)" --target bench_assembly bench_change bench_roundtrip bench_polling \
  bench_trace cpibcr cpibcr_plugin cpibcr-sim
mkdir -p "$results"

{
  echo "date:    $(date -u '+%Y-%m-%d %H:%M UTC')"
  echo "cpu:     $(lscpu | sed -n 's/^Model name: *//p' | head -1), nproc $(nproc)"
  echo "memory:  $(awk '/MemTotal/ {printf "%.1f GiB", $2 / 1048576}' /proc/meminfo)"
  echo "os:      $(. /etc/os-release && echo "$PRETTY_NAME"), kernel $(uname -r)"
  echo "load:    $(cut -d' ' -f1-3 /proc/loadavg) (1, 5, 15 min) at the start"
  echo "commit:  $(git rev-parse --short HEAD)$(git diff --quiet HEAD -- . 2>/dev/null || echo ' (working tree differs)')"
} | tee "$results/machine.txt"

run() {
  local name=$1
  shift
  echo "running $name ..." >&2
  "$build/bench/$name" --benchmark_repetitions="$repetitions" --benchmark_display_aggregates_only=true \
    --benchmark_out="$results/$name.json" --benchmark_out_format=json "$@" >/dev/null 2>"$results/$name.log"
}
run bench_assembly
run bench_change --benchmark_min_time=0.2
run bench_trace
# The two loops take turns, so that a change in the machine's load falls on both alike.
run bench_roundtrip --benchmark_min_time=2 --benchmark_enable_random_interleaving=true
run bench_polling --benchmark_min_time=2

# The host tool against a simulator in a process of its own, so that the tool's figures hold
# only the host, Qt and the plug-in.
echo "running the host tool ..." >&2
python3 - "$build" "$results" <<'PY'
import json, os, re, resource, subprocess, sys, time

build, results = sys.argv[1], sys.argv[2]
tool = os.path.join(build, "tools", "cpibcr")
plugin = os.path.join(build, "plugins", "libcpibcr.so")
tick = os.sysconf("SC_CLK_TCK")

sim = subprocess.Popen([os.path.join(build, "sim", "cpibcr-sim")], stdin=subprocess.PIPE,
                       stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
port = None
for line in sim.stdout:
    m = re.match(r"port: (\S+)", line)
    if m:
        port = m.group(1)
        break
if not port:
    sys.exit("the simulator printed no port")


def proc_stat_seconds(pid):
    with open(f"/proc/{pid}/stat") as f:
        fields = f.read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / tick


def run_ns(pid):
    # Time on CPU of every thread of the process, in nanoseconds.
    total = 0
    for task in os.listdir(f"/proc/{pid}/task"):
        with open(f"/proc/{pid}/task/{task}/schedstat") as f:
            total += int(f.read().split()[0])
    return total


def status(pid, key):
    with open(f"/proc/{pid}/status") as f:
        for line in f:
            if line.startswith(key + ":"):
                return int(line.split()[1])
    return None


def max_rss_kib(args):
    # ru_maxrss of the children is the VmHWM of the largest child waited for; a fresh
    # interpreter per figure keeps them apart.
    code = ("import resource, subprocess, sys; subprocess.run(sys.argv[1:], stdout=subprocess.DEVNULL, "
            "stderr=subprocess.DEVNULL, check=True); "
            "print(resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss)")
    return int(subprocess.run([sys.executable, "-c", code] + args, capture_output=True, text=True,
                              check=True).stdout)


out = {"port": port}
out["help_hwm_kib"] = max_rss_kib([tool, "--help"])
out["status_hwm_kib"] = max_rss_kib([tool, "--port", port, "status"])

seconds, start, end = 10, 2.0, 9.0
before = resource.getrusage(resource.RUSAGE_CHILDREN)
t0 = time.monotonic()
p = subprocess.Popen([tool, "--port", port, "accept", "--seconds", str(seconds)],
                     stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
time.sleep(start)
ns1, st1, w1 = run_ns(p.pid), proc_stat_seconds(p.pid), time.monotonic()
time.sleep(end - start)
ns2, st2, w2 = run_ns(p.pid), proc_stat_seconds(p.pid), time.monotonic()
out["accept_vmrss_kib"] = status(p.pid, "VmRSS")
out["accept_vmhwm_kib"] = status(p.pid, "VmHWM")
text = p.communicate()[0]
after = resource.getrusage(resource.RUSAGE_CHILDREN)
out["accept_output"] = text.strip().splitlines()
out["accept_lifetime_cpu_s"] = (after.ru_utime + after.ru_stime) - (before.ru_utime + before.ru_stime)
out["accept_window_s"] = w2 - w1
out["accept_window_cpu_ns"] = ns2 - ns1
out["accept_window_share"] = (ns2 - ns1) / 1e9 / (w2 - w1)
out["accept_window_stat_share"] = (st2 - st1) / (w2 - w1)
out["accept_lifetime_wall_s"] = time.monotonic() - t0
out["plugin_bytes"] = os.path.getsize(plugin)
stripped = os.path.join(results, "libcpibcr.stripped.so")
subprocess.run(["strip", "--strip-unneeded", "-o", stripped, plugin], check=True)
out["plugin_stripped_bytes"] = os.path.getsize(stripped)
out["plugin_size"] = subprocess.run(["size", plugin], capture_output=True, text=True).stdout.strip()
sim.stdin.write("quit\n")
sim.stdin.close()
sim.wait(timeout=10)
with open(os.path.join(results, "tool.json"), "w") as f:
    json.dump(out, f, indent=1)
PY

python3 - "$results" <<'PY' | tee "$results/summary.txt"
import json, os, sys

results = sys.argv[1]


def medians(name):
    with open(os.path.join(results, name + ".json")) as f:
        data = json.load(f)
    rows = {}
    fastest = {}
    for b in data["benchmarks"]:
        if b.get("error_occurred"):
            sys.exit(f"{name}: {b['name']}: {b.get('error_message')}")
        if b.get("run_type") == "iteration":
            run = b["run_name"]
            fastest[run] = min(fastest.get(run, b["real_time"]), b["real_time"])
            # One repetition has no aggregates: its single run stands for the median.
            rows.setdefault(run, b)
    for b in data["benchmarks"]:
        if b.get("aggregate_name") == "median":
            rows[b["run_name"]] = dict(b)
    for b in data["benchmarks"]:
        if b.get("aggregate_name") == "cv":
            rows[b["run_name"]]["cv"] = b["real_time"]
    for run, best in fastest.items():
        rows[run]["fastest"] = best
    return rows


def spread(b):
    return f" (cv {b['cv'] * 100:.0f} %)" if "cv" in b else ""


def ms(b):
    scale = {"ns": 1e-6, "us": 1e-3, "ms": 1.0, "s": 1e3}[b["time_unit"]]
    return b["real_time"] * scale, b["cpu_time"] * scale


print("1. Answer assembly (16-byte pieces), median wall time per pass")
a = medians("bench_assembly")
for stream in ["Clean", "Garbage", "Flood"]:
    one = a[f"BM_Assembly{stream}/1048576"]
    four = a[f"BM_Assembly{stream}/4194304"]
    t1, t4 = ms(one)[0], ms(four)[0]
    extra = f", frames taken {four['frames']:.0f}" if "frames" in four else ""
    print(f"   {stream.lower():8s} 1 MiB {t1:8.2f} ms ({one['bytes_per_second'] / 2**20:6.1f} MiB/s)   "
          f"4 MiB {t4:8.2f} ms   ratio 4/1 = {t4 / t1:.2f} (fastest runs {four['fastest'] / one['fastest']:.2f})"
          f"{extra}")

print("2. Change computation, median ns per call (optimal / minimum)")
c = medians("bench_change")
for h in range(2, 17):
    o = c[f"BM_ChangeComputation/hoppers:{h}/mode:0"]["cpu_time"]
    m = c[f"BM_ChangeComputation/hoppers:{h}/mode:1"]["cpu_time"]
    print(f"   {h:2d} hoppers  {o:7.0f} / {m:7.0f}")

print("3. Command round trip (simple poll over a pseudo-terminal), median wall time")
r = medians("bench_roundtrip")
for delay in [2, 0]:
    d = r[f"BM_RoundTripDriver/delay_ms:{delay}/real_time"]
    p = r[f"BM_RoundTripPlain/delay_ms:{delay}/real_time"]
    print(f"   simulator answer delay {delay} ms: exec {ms(d)[0] * 1000:7.1f} us{spread(d)}, plain loop "
          f"{ms(p)[0] * 1000:7.1f} us{spread(p)}, ratio {ms(d)[0] / ms(p)[0]:.2f} (goal <= 1.30); "
          f"CPU {ms(d)[1] * 1000:.1f} / {ms(p)[1] * 1000:.1f} us")

print("4. Acceptance polling (one checkMoneyIn, no coins), median per poll")
p = medians("bench_polling")
own = p["BM_AcceptancePoll"]
both = p["BM_AcceptancePoll/process_time"]
cpu_own = ms(own)[1] * 1000
cpu_both = ms(both)[1] * 1000
print(f"   driver thread CPU {cpu_own:.1f} us, process CPU with the simulator thread {cpu_both:.1f} us, "
      f"wall {ms(own)[0] * 1000:.0f} us")
print(f"   CPU share at one poll per 200 ms: driver {cpu_own / 2000:.3f} %, with simulator {cpu_both / 2000:.3f} %")
with open(os.path.join(results, "tool.json")) as f:
    t = json.load(f)
print(f"   host tool accepting, no coins, external simulator: {t['accept_window_share'] * 100:.3f} % of one CPU "
      f"({t['accept_window_cpu_ns'] / 1e6:.1f} ms CPU in {t['accept_window_s']:.2f} s, schedstat); "
      f"/proc/<pid>/stat utime+stime: {t['accept_window_stat_share'] * 100:.2f} %")
print(f"   the whole 'accept --seconds 10' run, start-up and connect included: "
      f"{t['accept_lifetime_cpu_s'] * 1000:.0f} ms CPU in {t['accept_lifetime_wall_s']:.2f} s")

print("5. Memory")
print(f"   host tool: 'status' VmHWM {t['status_hwm_kib']} KiB; 'accept' in progress VmRSS "
      f"{t['accept_vmrss_kib']} KiB, VmHWM {t['accept_vmhwm_kib']} KiB; '--help' (no plug-in loaded) "
      f"VmHWM {t['help_hwm_kib']} KiB")
print(f"   plug-in libcpibcr.so: {t['plugin_bytes']} bytes as built, {t['plugin_stripped_bytes']} bytes stripped")
print("   " + t["plugin_size"].replace("\n", "\n   "))

print("6. Reading a 100 MB trace on one thread, median")
tr = medians("bench_trace")
for run, label in [("BM_ReadTrace/iterations:3", "parsed and assembled"), ("BM_ParseTrace/iterations:3", "parsed only")]:
    b = tr[run]
    print(f"   {label:21s} {ms(b)[0]:7.1f} ms  {b['bytes_per_second'] / 1e6:6.1f} MB/s (goal >= 50 MB/s)")
PY
