#!/usr/bin/env bash
# Remux benchmark (not a test): one generated 1080p H.264 + AAC clip remuxed
# to MP4, Matroska and MPEG-TS by vexa-launch and by `ffmpeg -c copy`,
# alternately, several runs each; prints the median wall time, CPU time
# (user + sys) and peak memory (maximum resident set) of each and their
# ratios. Target: CPU and wall time within 1.05x of ffmpeg per container.
# Then the CPU time of both on a 0.1 s clip: the part of a run that does
# not depend on its length.
#
# With REMUX_CALLGRIND=1 it also counts the instructions of one run of each
# under callgrind (user space only; counts do not swing with the machine's
# load as times do).
#
# Usage: bench/remux.sh <build-dir> [clip-seconds (default 60)] [runs (default 5)]
set -euo pipefail

[ $# -ge 1 ] || { echo "usage: $0 <build-dir> [clip-seconds] [runs]" >&2; exit 2; }
build=$1
seconds=${2:-60}
runs=${3:-5}
repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
launch=$build/tools/vexa-launch
[ -x "$launch" ] || { echo "remux.sh: $launch not found; build first" >&2; exit 2; }
command -v ffmpeg >/dev/null || { echo "remux.sh: ffmpeg is needed" >&2; exit 2; }
[ -x /usr/bin/time ] || { echo "remux.sh: /usr/bin/time is needed (Debian package time)" >&2; exit 2; }

work=$(mktemp -d "${TMPDIR:-/tmp}/vexa-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT
clip=$work/clip.mp4

echo "Generating a ${seconds}-second 1920x1080 25 fps H.264 + AAC clip..."
ffmpeg -hide_banner -loglevel error -y \
    -f lavfi -i testsrc2=size=1920x1080:rate=25 \
    -f lavfi -i sine=frequency=440:sample_rate=48000 \
    -t "$seconds" -c:v libx264 -preset ultrafast -b:v 8M -g 50 -pix_fmt yuv420p \
    -c:a aac -b:a 128k -shortest "$clip"
echo "Clip: $(( $(stat -c %s "$clip") / 1024 / 1024 )) MiB"

# One measured run: "wall_s cpu_s maxrss_kib" on stdout. Times come from
# bash's own timer (millisecond resolution; /usr/bin/time gives only
# hundredths, too coarse for runs of a tenth of a second), the peak memory
# from /usr/bin/time.
measure() {
    local TIMEFORMAT='%3R %3U %3S'
    { time /usr/bin/time -f "%M" -o "$work/mem" "$@" >/dev/null 2>"$work/err"; } 2>"$work/time"
    awk -v m="$(cat "$work/mem")" '{printf "%s %.3f %s\n", $1, $2 + $3, m}' "$work/time"
}
# Median of a column of numbers.
median() { sort -g | awk '{a[NR]=$1} END {print (NR % 2) ? a[(NR+1)/2] : (a[NR/2] + a[NR/2+1]) / 2}'; }

# Remuxes $1 to $2-<program>.$3 with each program, alternately, $runs times each:
# one measure line per run in $work/ffmpeg.txt and $work/vexa.txt.
alternate() {
    local input=$1 out=$2
    : >"$work/ffmpeg.txt"
    : >"$work/vexa.txt"
    for i in $(seq 1 "$runs"); do
        measure ffmpeg -hide_banner -loglevel error -y -i "$input" -map 0:v:0 -map 0:a:0 -c copy "$out-ffmpeg.$3" \
            >>"$work/ffmpeg.txt"
        measure "$launch" "$repo/examples/pipelines/remux.json" --quiet -y \
            --set "in.path=$input" --set "out.path=$out-vexa.$3" >>"$work/vexa.txt"
    done
}

printf "\n%-5s %-12s %9s %9s %10s\n" "out" "tool" "wall s" "cpu s" "peak MiB"
summary=()
for ext in mp4 mkv ts; do
    alternate "$clip" "$work/out" "$ext"
    for tool in ffmpeg vexa; do
        w=$(cut -d' ' -f1 "$work/$tool.txt" | median)
        c=$(cut -d' ' -f2 "$work/$tool.txt" | median)
        m=$(cut -d' ' -f3 "$work/$tool.txt" | median)
        printf "%-5s %-12s %9.3f %9.3f %10.1f\n" "$ext" "$tool" "$w" "$c" "$(awk -v k="$m" 'BEGIN {print k / 1024}')"
        eval "${tool}_w=$w ${tool}_c=$c ${tool}_m=$m"
    done
    summary+=("$(awk -v e="$ext" -v fw="$ffmpeg_w" -v vw="$vexa_w" -v fc="$ffmpeg_c" -v vc="$vexa_c" -v fm="$ffmpeg_m" -v vm="$vexa_m" 'BEGIN {
        rw = vw / fw; rc = (fc > 0) ? vc / fc : 0; rm = vm / fm
        printf "%-5s wall %.2fx (%s), cpu %.2fx (%s), peak memory %.2fx", e, rw, (rw <= 1.05) ? "met" : "NOT met",
               rc, (rc <= 1.05) ? "met" : "NOT met", rm
    }')")
done
echo
echo "Ratios vexa-launch / ffmpeg (medians of $runs runs; target <= 1.05):"
printf '%s\n' "${summary[@]}"

# The fixed cost of a run, apart from the packets: the same remux of the
# clip's first tenth of a second (mostly loading and linking the libraries).
ffmpeg -hide_banner -loglevel error -y -i "$clip" -t 0.1 -c copy "$work/tiny.mp4"
alternate "$work/tiny.mp4" "$work/tiny" mp4
echo "start-up (0.1 s clip to MP4), median CPU: ffmpeg $(cut -d' ' -f2 "$work/ffmpeg.txt" | median) s, vexa-launch $(cut -d' ' -f2 "$work/vexa.txt" | median) s"
echo "machine: $(nproc) cores, $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ *//'), $(uname -m), $(ffmpeg -version | head -1 | cut -d' ' -f1-3), load $(cut -d' ' -f1-3 /proc/loadavg)"

if [ "${REMUX_CALLGRIND:-0}" = 1 ]; then
    command -v valgrind >/dev/null || { echo "remux.sh: valgrind is needed for REMUX_CALLGRIND=1" >&2; exit 2; }
    # Instructions of one run under callgrind, user space, all threads.
    instructions() {
        valgrind --tool=callgrind --callgrind-out-file=/dev/null "$@" 2>&1 >/dev/null \
            | sed -n 's/^==[0-9]*== Collected : //p'
    }
    echo
    echo "Instructions (callgrind, one run each):"
    printf "%-5s %14s %14s %7s\n" "out" "ffmpeg" "vexa-launch" "ratio"
    for ext in mp4 mkv ts; do
        f=$(instructions ffmpeg -hide_banner -loglevel error -y -i "$clip" -map 0:v:0 -map 0:a:0 -c copy "$work/out-ffmpeg.$ext")
        v=$(instructions "$launch" "$repo/examples/pipelines/remux.json" --quiet -y \
            --set "in.path=$clip" --set "out.path=$work/out-vexa.$ext")
        printf "%-5s %14s %14s %7.3f\n" "$ext" "$f" "$v" "$(awk -v a="$f" -v b="$v" 'BEGIN {print b / a}')"
    done
fi
