#!/usr/bin/env bash
# Instructions per packet per hop, module relay chain against the plain Qt
# chain, counted by callgrind in one run (counts do not swing with the
# machine's load as timings do).
#   bench/hop-callgrind.sh [path/to/vexa_bench_hop]
set -euo pipefail
bench=${1:-build/bench/vexa_bench_hop}
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
valgrind --tool=callgrind --callgrind-out-file="$out/hop.%p" "$bench" --callgrind >/dev/null 2>"$out/valgrind.log" \
    || { cat "$out/valgrind.log" >&2; exit 1; }
# Each dump names its loop in "desc: Trigger: Client Request: <label>" and
# holds its instruction total in "summary:" (or "totals:").
for f in "$out"/hop.*; do
    label=$(sed -n 's/^desc: Trigger: Client Request: //p' "$f")
    [ -n "$label" ] || continue
    ir=$(sed -n 's/^summary: //p; s/^totals: //p' "$f" | head -n1 | cut -d' ' -f1)
    echo "$label $ir"
done | awk '
    { split($2, k, "="); split($3, n, "="); per = $4 / (k[2] * n[2]); ir[$1 " " k[2]] = per }
    END {
        printf "%4s %16s %16s %8s\n", "K", "module Ir/hop", "plain Ir/hop", "ratio"
        for (kk = 4; kk <= 16; kk *= 4)
            if ((("module " kk) in ir) && (("plain " kk) in ir))
                printf "%4d %16.1f %16.1f %8.3f\n", kk, ir["module " kk], ir["plain " kk], ir["module " kk] / ir["plain " kk]
    }'
