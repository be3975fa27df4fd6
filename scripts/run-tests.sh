#!/usr/bin/env bash
# Installs what is missing, builds VexaBase with its tests and runs the whole
# suite through CTest.
#   scripts/run-tests.sh            native build in build/
#   scripts/run-tests.sh --asan     AddressSanitizer + UndefinedBehaviorSanitizer build in build-asan/
set -euo pipefail
cd "$(dirname "$0")/.."

build=build
flags=()
if [ "${1:-}" = "--asan" ]; then
    build=build-asan
    # Benchmarks and the remux benchmark are not tests; skip them under the sanitizers.
    flags+=(-DVEXA_SANITIZE=ON -DVEXA_BUILD_BENCH=OFF)
    export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=0:abort_on_error=1}"
    export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
fi

bash scripts/install-deps.sh
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo "${flags[@]}"
cmake --build "$build" -j"$(nproc)"
cd "$build"
ctest --output-on-failure -j"$(nproc)" --timeout 300
