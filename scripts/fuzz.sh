#!/usr/bin/env bash
# Builds the fuzz targets with clang and libFuzzer (build-fuzz/) and runs
# each for a while.
#   scripts/fuzz.sh                  each target 10 minutes
#   scripts/fuzz.sh 3600 board       the board target for an hour
#   scripts/fuzz.sh --ci             each target 60 seconds (what .ci/run does)
# Targets: json, pipeline, board (tests/fuzz/fuzz_<target>.cpp). Each run
# starts from the seed corpus (tests/fuzz/corpus/<target>) and the inputs of
# earlier crashes (tests/fuzz/regressions/<target>) and keeps what it learns
# in build-fuzz/corpus/<target>. An input that crashes is copied into
# tests/fuzz/regressions/<target>/ and the script fails: commit the input
# with the fix, and the normal test suite replays it from then on.
# Extra libFuzzer options can be given in FUZZ_OPTIONS (e.g. "-jobs=2").
set -euo pipefail
cd "$(dirname "$0")/.."
top=$PWD

seconds=600
if [ "${1:-}" = "--ci" ]; then
    seconds=60
    shift
elif [[ "${1:-}" =~ ^[0-9]+$ ]]; then
    seconds=$1
    shift
fi
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(json pipeline board)

bash scripts/install-deps.sh clang-14 libclang-rt-14-dev
CC=clang-14 CXX=clang++-14 cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DVEXA_FUZZ=ON -DBUILD_TESTING=OFF -DVEXA_BUILD_BENCH=OFF
cmake --build build-fuzz -j"$(nproc)" --target "${targets[@]/#/fuzz_}"

# Fuzzing runs with fast allocation stacks and no leak check; a second pass
# over the corpus checks each input for leaks with full stacks, so that the
# leaks inside Qt listed in tests/lsan.supp can be told apart (full stacks
# make fuzzing itself some forty times slower).
fast_asan="detect_leaks=0:abort_on_error=1:allocator_may_return_null=1"
leak_asan="detect_leaks=1:fast_unwind_on_malloc=0:abort_on_error=1:allocator_may_return_null=1"
export LSAN_OPTIONS="${LSAN_OPTIONS:-suppressions=$top/tests/lsan.supp:print_suppressions=0}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"

failed=()
for t in "${targets[@]}"; do
    work=build-fuzz/corpus/$t
    crashes=build-fuzz/crashes/$t
    regressions=tests/fuzz/regressions/$t
    mkdir -p "$work" "$crashes"
    inputs=("$work" "tests/fuzz/corpus/$t")
    [ -d "$regressions" ] && inputs+=("$regressions")
    echo "== fuzz_$t for ${seconds}s"
    start=$(date +%s)
    # shellcheck disable=SC2086
    if ! ASAN_OPTIONS="${ASAN_OPTIONS:-$fast_asan}" build-fuzz/tests/fuzz/fuzz_"$t" \
            -max_total_time="$seconds" -timeout=20 -rss_limit_mb=2048 -detect_leaks=0 \
            -max_len=65536 -print_final_stats=1 -dict="tests/fuzz/dict/$t.dict" \
            -artifact_prefix="$crashes/" ${FUZZ_OPTIONS:-} "${inputs[@]}" ||
       ! ASAN_OPTIONS="${ASAN_OPTIONS:-$leak_asan}" build-fuzz/tests/fuzz/fuzz_"$t" \
            -runs=0 -detect_leaks=1 -rss_limit_mb=2048 -max_len=65536 \
            -artifact_prefix="$crashes/" "${inputs[@]}"; then
        mkdir -p "$regressions"
        for f in "$crashes"/*; do
            [ -f "$f" ] && cp "$f" "$regressions/" && echo "fuzz: crash input kept as $regressions/$(basename "$f")"
        done
        failed+=("$t")
    fi
    echo "== fuzz_$t took $(( $(date +%s) - start ))s"
done

if [ ${#failed[@]} -gt 0 ]; then
    echo "fuzz: crashes in: ${failed[*]}" >&2
    exit 1
fi
echo "fuzz: no crash in ${targets[*]}"
