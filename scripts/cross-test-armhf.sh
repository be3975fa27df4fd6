#!/usr/bin/env bash
# Cross-builds the whole project for the board (32-bit ARM, arm-linux-gnueabihf)
# and runs the whole test suite under qemu-arm.
#
#   scripts/cross-test-armhf.sh [ctest options...]
#
# Steps: install the missing host packages, make the armhf sysroot (or reuse
# it), configure and build library, platform model, tools, examples,
# benchmark programs and tests in build-armhf, then run ctest there. Options
# given to the script go to ctest, e.g. "-R json" to run some tests only.
#
# Environment (all optional):
#   VEXA_ARMHF_SYSROOT     sysroot folder (default: build-armhf-sysroot)
#   VEXA_ARMHF_BUILD_DIR   build folder (default: build-armhf)
#   VEXA_ARMHF_BUILD_TYPE  CMake build type (default: Release)
#   VEXA_ARMHF_JOBS        parallel compile and test jobs (default: 2)
#   VEXA_ARMHF_BENCH       OFF to skip the benchmark programs (default: ON)
#   VEXA_ARMHF_TIMEOUT     ctest timeout in seconds for tests without one of
#                          their own (default: 600)
#
# Runs as root without a terminal (CI=true), on a fresh Debian 12 machine too.
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
repo="$(cd "$here/.." && pwd)"

sysroot="${VEXA_ARMHF_SYSROOT:-$repo/build-armhf-sysroot}"
build="${VEXA_ARMHF_BUILD_DIR:-$repo/build-armhf}"
build_type="${VEXA_ARMHF_BUILD_TYPE:-Release}"
jobs="${VEXA_ARMHF_JOBS:-2}"
bench="${VEXA_ARMHF_BENCH:-ON}"
timeout="${VEXA_ARMHF_TIMEOUT:-600}"

log() { echo "cross-test-armhf: $*"; }
t0=$SECONDS
phase_start=$SECONDS
phase() {
    local now=$SECONDS
    log "$1 took $((now - phase_start)) s"
    phase_start=$now
}

# --- host packages ----------------------------------------------------------
# Cross compiler, user-mode emulator, build tools, the host's moc of the same
# Qt release, and ffmpeg/ffprobe for tests that make or check media files with
# them on the build machine.
host_pkgs=(g++-arm-linux-gnueabihf binutils-arm-linux-gnueabihf qemu-user
           cmake make pkg-config qtbase5-dev-tools ffmpeg ca-certificates)
bash "$here/install-deps.sh" "${host_pkgs[@]}"
phase "host packages"

# --- sysroot -----------------------------------------------------------------
bash "$here/armhf-sysroot.sh" "$sysroot"
sysroot="$(cd "$sysroot" && pwd)"
phase "sysroot"

# --- configure and build -----------------------------------------------------
cmake -S "$repo" -B "$build" \
    -DCMAKE_TOOLCHAIN_FILE="$repo/cmake/toolchain-armhf.cmake" \
    -DVEXA_ARMHF_SYSROOT="$sysroot" \
    -DCMAKE_BUILD_TYPE="$build_type" \
    -DVEXA_PLATFORM=model \
    -DVEXA_BUILD_EXAMPLES=ON \
    -DVEXA_BUILD_BENCH="$bench" \
    -DBUILD_TESTING=ON
cmake --build "$build" -j "$jobs"
phase "configure and build"

# --- tests under qemu-arm ------------------------------------------------------
# Each test program runs as "qemu-arm -L <sysroot> <test>" (the toolchain
# file sets CMake's cross-compiling emulator). Tests that configure against
# the build (the packaging test) read the sysroot from the environment.
export VEXA_ARMHF_SYSROOT="$sysroot"
# The board modules' camera runs longer: its encoders are slow under
# emulation, and the published streams' receivers need a group of pictures.
export VEXA_BOARD_SECONDS="${VEXA_BOARD_SECONDS:-8}"
# Where the machine allows it, the tests get a PID namespace of their own: a
# test that signals a wrong pid under emulation (kill(-1, ...)) then reaches
# only its own suite, never the other work on a shared machine.
isolate=()
if command -v unshare >/dev/null && unshare --pid --fork --mount-proc --kill-child true 2>/dev/null; then
    isolate=(unshare --pid --fork --mount-proc --kill-child)
fi
status=0
"${isolate[@]}" ctest --test-dir "$build" -j "$jobs" --output-on-failure --timeout "$timeout" \
    --no-tests=error "$@" || status=$?
phase "tests"
log "total $((SECONDS - t0)) s"
exit "$status"
