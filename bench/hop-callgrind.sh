#!/usr/bin/env bash
# Instructions per packet per hop, module relay chain against the plain Qt
# chain, counted by callgrind in one run (counts do not swing with the
# machine's load as timings do). "untracked" is the module chain emitting
# without the delivery record that makes unlinking safe: the part of the
# difference that comes from the module structure itself (the slot reached
# through VexaObject's table, one more class level in Qt's receiver check,
# the virtual hook and the out-of-line send).
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
    # ir[chain K] = instructions per packet per hop; tot[chain K] = per packet.
    { split($2, k, "="); split($3, n, "="); tot[$1 " " k[2]] = $4 / n[2]; ir[$1 " " k[2]] = $4 / (k[2] * n[2]) }
    END {
        printf "%-10s %12s %12s %12s\n", "", "K = 4", "K = 16", "K-slope"
        split("module untracked plain", chains, " ")
        for (c = 1; c <= 3; ++c) {
            ch = chains[c]
            if (!((ch " 4") in ir) || !((ch " 16") in ir))
                continue
            # The slope between the two chain lengths leaves out what every
            # packet pays once (the loop, the last relay sending to no one).
            slope[ch] = (tot[ch " 16"] - tot[ch " 4"]) / 12
            printf "%-10s %12.1f %12.1f %12.1f   instructions per hop\n", ch, ir[ch " 4"], ir[ch " 16"], slope[ch]
        }
        for (c = 1; c <= 2; ++c) {
            ch = chains[c]
            if ((ch in slope) && ("plain" in slope))
                printf "%-10s %12.3f %12.3f %12.3f   ratio to plain Qt\n", ch, ir[ch " 4"] / ir["plain 4"],
                       ir[ch " 16"] / ir["plain 16"], slope[ch] / slope["plain"]
        }
    }'
