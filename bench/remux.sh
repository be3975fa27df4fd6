#!/usr/bin/env bash
# Remux benchmark (not a test): the same generated clip remuxed by vexa-launch
# and by `ffmpeg -c copy`, alternately, in the same run; prints the median wall
# times and their ratio. Target: vexa-launch within 1.2x of ffmpeg.
#
# Usage: bench/remux.sh <build-dir> [clip-seconds (default 120)] [runs (default 5)]
set -euo pipefail

[ $# -ge 1 ] || { echo "usage: $0 <build-dir> [clip-seconds] [runs]" >&2; exit 2; }
build=$1
seconds=${2:-120}
runs=${3:-5}
repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
launch=$build/tools/vexa-launch
[ -x "$launch" ] || { echo "remux.sh: $launch not found; build first" >&2; exit 2; }
command -v ffmpeg >/dev/null || { echo "remux.sh: ffmpeg is needed" >&2; exit 2; }

work=$(mktemp -d "${TMPDIR:-/tmp}/vexa-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT
clip=$work/clip.mp4

echo "Generating a ${seconds}-second 1280x720 H.264 + AAC clip..."
ffmpeg -hide_banner -loglevel error -y \
    -f lavfi -i testsrc2=size=1280x720:rate=25 \
    -f lavfi -i sine=frequency=440:sample_rate=48000 \
    -t "$seconds" -c:v libx264 -preset ultrafast -b:v 4M -g 50 -pix_fmt yuv420p \
    -c:a aac -b:a 128k -shortest "$clip"
echo "Clip: $(( $(stat -c %s "$clip") / 1024 / 1024 )) MiB"

now() { date +%s%N; }
# Median of integers (nanoseconds), one per line.
median() { sort -n | awk '{a[NR]=$1} END {print (NR % 2) ? a[(NR+1)/2] : int((a[NR/2] + a[NR/2+1]) / 2)}'; }
secs() { awk -v ns="$1" 'BEGIN {printf "%.3f", ns / 1e9}'; }

ffmpeg_ns=()
vexa_ns=()
for i in $(seq 1 "$runs"); do
    rm -f "$work/out-ffmpeg.mp4" "$work/out-vexa.mp4"
    t0=$(now)
    ffmpeg -hide_banner -loglevel error -y -i "$clip" -map 0:v:0 -map 0:a:0 -c copy "$work/out-ffmpeg.mp4"
    t1=$(now)
    "$launch" "$repo/examples/pipelines/remux.json" --quiet \
        --set "in.path=$clip" --set "out.path=$work/out-vexa.mp4" >/dev/null
    t2=$(now)
    ffmpeg_ns+=($((t1 - t0)))
    vexa_ns+=($((t2 - t1)))
    echo "run $i: ffmpeg $(secs $((t1 - t0))) s, vexa-launch $(secs $((t2 - t1))) s"
done

f=$(printf '%s\n' "${ffmpeg_ns[@]}" | median)
v=$(printf '%s\n' "${vexa_ns[@]}" | median)
echo
awk -v f="$f" -v v="$v" 'BEGIN {
    r = v / f
    printf "median: ffmpeg -c copy %.3f s, vexa-launch %.3f s, ratio %.2f (target <= 1.20: %s)\n",
           f / 1e9, v / 1e9, r, (r <= 1.2) ? "met" : "NOT met"
}'
echo "machine: $(nproc) cores, $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ *//'), $(uname -m), $(ffmpeg -version | head -1 | cut -d' ' -f1-3)"
