#!/usr/bin/env bash
# Installs what is missing, builds VexaBase with its tests and runs the whole
# suite through CTest.
#   scripts/run-tests.sh            native build in build/
#   scripts/run-tests.sh --asan     AddressSanitizer + UndefinedBehaviorSanitizer + LeakSanitizer build in build-asan/
#   scripts/run-tests.sh --tsan     ThreadSanitizer build in build-tsan/, Qt's locks annotated (instruments/tsan)
# Any sanitizer report fails the test that made it; tests/lsan.supp and
# tests/tsan.supp list the reports inside Qt that are let through, each with
# its reason. Extra arguments after the mode go to ctest (e.g. -R tst_json).
set -euo pipefail
cd "$(dirname "$0")/.."
top=$PWD

build=build
flags=()
timeout=300
mode="${1:-}"
case "$mode" in
    --asan)
        build=build-asan
        # Benchmarks and the remux benchmark are not tests; skip them under the sanitizers.
        flags+=(-DVEXA_SANITIZE=ON -DVEXA_BUILD_BENCH=OFF)
        export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1:fast_unwind_on_malloc=0:abort_on_error=1}"
        export LSAN_OPTIONS="${LSAN_OPTIONS:-suppressions=$top/tests/lsan.supp:print_suppressions=0}"
        export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
        # Full stacks on every allocation make the stress test's queue slow.
        export VEXA_STRESS_SCALE="${VEXA_STRESS_SCALE:-0.2}"
        shift
        ;;
    --tsan)
        build=build-tsan
        flags+=(-DVEXA_TSAN=ON -DVEXA_BUILD_BENCH=OFF)
        # Every report counts; the run goes on so that one test shows all it
        # finds, and the test fails with exit code 66 at its end.
        export TSAN_OPTIONS="${TSAN_OPTIONS:-suppressions=$top/tests/tsan.supp:halt_on_error=0:exitcode=66:second_deadlock_stack=1:ignore_noninstrumented_modules=1:print_suppressions=0}"
        # The stress test's default size is meant for native speed (about a second).
        export VEXA_STRESS_SCALE="${VEXA_STRESS_SCALE:-0.2}"
        timeout=900
        shift
        ;;
esac

bash scripts/install-deps.sh
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo "${flags[@]}"
cmake --build "$build" -j"$(nproc)"
cd "$build"
ctest --output-on-failure -j"$(nproc)" --timeout "$timeout" "$@"
