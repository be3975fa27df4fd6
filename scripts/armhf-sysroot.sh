#!/usr/bin/env bash
# Prepares a Debian armhf sysroot for the 32-bit ARM cross build: Qt 5 Core
# and Test, the FFmpeg libraries with their headers, and everything those
# need at link and load time.
#
#   scripts/armhf-sysroot.sh [SYSROOT]
#
# SYSROOT defaults to $VEXA_ARMHF_SYSROOT, else build-armhf-sysroot in the
# checkout. A finished sysroot is reused as it is; delete the folder (or
# pass --force) to build it again. Runs as root without a terminal.
#
# The host's apt stays untouched: the armhf packages are fetched with a
# private apt configuration (its own lists, cache and status file) and
# unpacked with dpkg-deb, so no maintainer script ever runs. What those
# scripts would have done and the cross build needs is redone here:
# alternatives links and links from the sysroot's Qt tool folders to the
# host's moc, rcc and qmake. One helper for running under qemu-arm is added
# (see libqemu-nopidfd below).
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
repo="$(cd "$here/.." && pwd)"

force=0
sysroot=""
for arg in "$@"; do
    case "$arg" in
        --force) force=1 ;;
        -h|--help) sed -n '2,10p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
        -*) echo "armhf-sysroot: unknown option $arg" >&2; exit 2 ;;
        *) sysroot="$arg" ;;
    esac
done
sysroot="${sysroot:-${VEXA_ARMHF_SYSROOT:-$repo/build-armhf-sysroot}}"
mkdir -p "$sysroot"
sysroot="$(cd "$sysroot" && pwd)"

# Packages unpacked with all their dependencies.
with_deps=(libqt5core5a libqt5test5 libavformat-dev libavdevice-dev libavcodec-dev libavutil-dev)
# Packages unpacked alone: the Qt CMake files, headers and mkspecs. Their
# dependencies are GUI and GL libraries the build does not use.
alone=(qtbase5-dev qt5-qmake)
# Packages treated as installed already, so apt leaves out what only they
# pull in (Mesa's GL drivers and LLVM, loaded by nothing we run).
pretend_installed=(libglx-mesa0)

# A sysroot made by another version of this script is made again.
stamp_text="$(sha256sum < "${BASH_SOURCE[0]}" | cut -d' ' -f1)"
stamp="$sysroot/.vexa-sysroot-ready"

log() { echo "armhf-sysroot: $*"; }

if [[ $force == 0 && -f $stamp && "$(cat "$stamp")" == "$stamp_text" ]]; then
    log "reusing $sysroot"
    exit 0
fi

# --- host tools -----------------------------------------------------------
# readelf (from the cross binutils) finds missing sonames, the cross C
# compiler builds the emulator helper below, the host's Qt tools stand in
# for the sysroot's.
host_pkgs=(gcc-arm-linux-gnueabihf binutils-arm-linux-gnueabihf qtbase5-dev-tools ca-certificates)
bash "$here/install-deps.sh" "${host_pkgs[@]}"

# --- mirror ---------------------------------------------------------------
# Reuse the Debian mirror this machine already uses for its own release.
# shellcheck source=/dev/null
. /etc/os-release
codename="${VERSION_CODENAME:?no VERSION_CODENAME in /etc/os-release}"

find_mirror() {
    local f
    # deb822 files: the first enabled "deb" stanza that lists the release.
    for f in /etc/apt/sources.list.d/*.sources; do
        [[ -f $f ]] || continue
        awk -v want="$codename" '
            function flush() {
                if (types ~ /(^| )deb( |$)/ && (" " suites " ") ~ (" " want " ") && enabled != "no" && uris != "") {
                    split(uris, u, " "); print u[1] "\t" signed; found = 1; exit
                }
                types = suites = uris = signed = ""; enabled = "yes"
            }
            BEGIN { enabled = "yes" }
            /^[ \t]*#/ { next }
            /^[ \t]*$/ { flush(); next }
            {
                key = tolower($1); sub(/:$/, "", key)
                val = $0; sub(/^[^:]*:[ \t]*/, "", val)
                if (key == "types") types = val
                else if (key == "suites") suites = val
                else if (key == "uris") uris = val
                else if (key == "enabled") enabled = tolower(val)
                else if (key == "signed-by") signed = val
            }
            END { if (!found) flush() }
        ' "$f"
    done
    # One-line format: "deb [options] URI SUITE COMPONENTS".
    for f in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
        [[ -f $f ]] || continue
        awk -v want="$codename" '
            $1 == "deb" {
                i = 2
                if ($i ~ /^\[/) { while ($i !~ /\]$/) i++; i++ }
                if ($(i + 1) == want) { print $i "\t"; exit }
            }
        ' "$f"
    done
}
mirror_line="$(find_mirror | head -n1)"
mirror="${mirror_line%%$'\t'*}"
signed_by="${mirror_line#*$'\t'}"
if [[ -z $mirror ]]; then
    echo "armhf-sysroot: no Debian mirror for '$codename' found in /etc/apt/sources.list(.d)" >&2
    exit 1
fi
log "mirror $mirror ($codename)"

# --- private apt setup ----------------------------------------------------
apt_dir="$sysroot/.apt"
# Start from an empty folder; refuse to empty one this script did not make.
if [[ -n "$(ls -A "$sysroot")" && ! -d $apt_dir ]]; then
    echo "armhf-sysroot: $sysroot is not empty and was not made by this script" >&2
    exit 1
fi
find "$sysroot" -mindepth 1 -maxdepth 1 -exec rm -rf {} +
mkdir -p "$apt_dir"/{lists/partial,cache/archives/partial,sources.list.d,preferences.d,unpack}
opts="arch=armhf"
[[ -n $signed_by ]] && opts+=" signed-by=$signed_by"
cat > "$apt_dir/sources.list" <<EOF
deb [$opts] $mirror $codename main
deb [$opts] $mirror $codename-updates main
EOF
: > "$apt_dir/status"
: > "$apt_dir/preferences"
cat > "$apt_dir/apt.conf" <<EOF
APT::Architecture "armhf";
APT::Architectures { "armhf"; };
APT::Install-Recommends "false";
APT::Install-Suggests "false";
Acquire::Languages "none";
Dir::State "$apt_dir";
Dir::State::Lists "$apt_dir/lists";
Dir::State::status "$apt_dir/status";
Dir::Cache "$apt_dir/cache";
Dir::Cache::archives "$apt_dir/cache/archives";
Dir::Etc::SourceList "$apt_dir/sources.list";
Dir::Etc::SourceParts "$apt_dir/sources.list.d";
Dir::Etc::Preferences "$apt_dir/preferences";
Dir::Etc::PreferencesParts "$apt_dir/preferences.d";
Dir::Log "$apt_dir";
Debug::NoLocking "true";
APT::Sandbox::User "root";
EOF
export APT_CONFIG="$apt_dir/apt.conf"

log "updating the armhf package lists"
apt-get update -qq

# Mark the left-out packages installed at their candidate version, without
# dependencies. The pin keeps apt from "upgrading" this bare record to the
# mirror's record of the same version, which would bring the dependencies
# back.
for p in "${pretend_installed[@]}"; do
    ver="$(apt-cache show --no-all-versions "$p" | sed -n 's/^Version: //p' | head -n1)"
    [[ -n $ver ]] || { echo "armhf-sysroot: no armhf candidate for $p" >&2; exit 1; }
    printf 'Package: %s\nStatus: install ok installed\nPriority: optional\nArchitecture: armhf\nMulti-Arch: same\nVersion: %s\nDescription: left out of the sysroot\n\n' \
        "$p" "$ver" >> "$apt_dir/status"
    printf 'Package: %s\nPin: release o=Debian\nPin-Priority: -1\n\n' "$p" >> "$apt_dir/preferences"
done

log "downloading ${with_deps[*]} with dependencies, ${alone[*]} alone"
apt-get install -qq -y --download-only "${with_deps[@]}" > "$apt_dir/download.log" \
    || { cat "$apt_dir/download.log" >&2; exit 1; }
(cd "$apt_dir/unpack" && apt-get download -qq "${alone[@]}")

# --- unpack ----------------------------------------------------------------
# Every package goes in as shipped. The sysroot keeps the packages' own
# /lib and /usr/lib split: no merged-/usr links are made beforehand.
debs=("$apt_dir"/cache/archives/*.deb "$apt_dir"/unpack/*.deb)
log "unpacking ${#debs[@]} packages into $sysroot"
for deb in "${debs[@]}"; do
    dpkg-deb -x "$deb" "$sysroot"
done

multiarch=arm-linux-gnueabihf
libdirs=("$sysroot/lib/$multiarch" "$sysroot/usr/lib/$multiarch" "$sysroot/lib" "$sysroot/usr/lib")

# Alternatives (libblas.so.3, liblapack.so.3, ...) are made by maintainer
# scripts, which dpkg-deb does not run. Link every soname that a library in
# the library folders needs but none of them holds to the file of that name
# in a subfolder. This also covers sonames found through a RUNPATH
# (libpulsecommon), which the cross linker does not follow. Plugins in
# subfolders are left alone: nothing we link or run loads them.
declare -A have=()
for d in "${libdirs[@]}"; do
    [[ -d $d ]] || continue
    while IFS= read -r -d '' f; do have["${f##*/}"]=1; done \
        < <(find "$d" -maxdepth 1 \( -type f -o -type l \) -name '*.so*' -print0)
done
declare -A needed=()
while IFS= read -r -d '' f; do
    while read -r so; do needed["$so"]=1; done < <(
        arm-linux-gnueabihf-readelf -d "$f" 2>/dev/null | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
done < <(find "${libdirs[@]}" -maxdepth 1 -type f -name '*.so*' -print0 2>/dev/null)
for so in "${!needed[@]}"; do
    [[ -n ${have[$so]:-} ]] && continue
    target="$(find "$sysroot/usr/lib/$multiarch" "$sysroot/lib/$multiarch" -mindepth 2 -name "$so" 2>/dev/null | head -n1)"
    if [[ -n $target ]]; then
        ln -sfn "${target#"$sysroot/usr/lib/$multiarch/"}" "$sysroot/usr/lib/$multiarch/$so"
        log "linked $so -> ${target#"$sysroot"}"
    else
        log "warning: nothing in the sysroot provides $so"
    fi
done

# Qt's CMake files look for moc, rcc and qmake beside the sysroot's Qt; the
# host's tools of the same Qt release produce the same code.
for dir in "$sysroot/usr/lib/qt5/bin" "$sysroot/usr/lib/$multiarch/qt5/bin"; do
    mkdir -p "$dir"
    for tool in moc rcc qmake uic qlalr; do
        if [[ -x /usr/lib/qt5/bin/$tool ]]; then
            ln -sfn "/usr/lib/qt5/bin/$tool" "$dir/$tool"
        fi
    done
done
if [[ ! -d $sysroot/usr/lib/$multiarch/qt5/mkspecs/linux-g++ ]]; then
    echo "armhf-sysroot: Qt mkspecs missing (qt5-qmake not unpacked?)" >&2
    exit 1
fi

# qemu-arm (7.2) refuses clone() with CLONE_PIDFD while passing waitid()
# with P_PIDFD through to the kernel, which supports it. Qt's QProcess takes
# the working waitid() as proof that pidfd children work, its clone() then
# fails, and it carries on with a pid of -1: children never start, and a
# kill() on that pid reaches every process of the machine. A preloaded
# library, seen only by programs running under the emulator, makes the
# waitid() probe fail so that QProcess uses plain fork(). It is not part of
# anything installed on the board.
shim=/usr/lib/$multiarch/libqemu-nopidfd.so
cat > "$apt_dir/nopidfd.c" <<'EOF_C'
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <stdarg.h>
#include <sys/syscall.h>

#define VEXA_P_PIDFD 3

long syscall(long number, ...)
{
    static long (*next)(long, ...);
    long a[7];
    va_list ap;
    int i;

    /* Arguments are forwarded word by word, which keeps the register and
     * stack layout of 64-bit arguments as the caller made it. */
    va_start(ap, number);
    for (i = 0; i < 7; ++i)
        a[i] = va_arg(ap, long);
    va_end(ap);
    if (number == SYS_waitid && a[0] == VEXA_P_PIDFD) {
        errno = EINVAL;
        return -1;
    }
    if (!next)
        next = (long (*)(long, ...))dlsym(RTLD_NEXT, "syscall");
    return next(number, a[0], a[1], a[2], a[3], a[4], a[5], a[6]);
}
EOF_C
arm-linux-gnueabihf-gcc --sysroot="$sysroot" -O2 -Wall -shared -fPIC \
    -o "$sysroot$shim" "$apt_dir/nopidfd.c" -ldl
mkdir -p "$sysroot/etc"
echo "$shim" > "$sysroot/etc/ld.so.preload"

# Keep the package lists for a later look; drop the downloaded archives and
# what only people read.
rm -rf "$apt_dir/cache/archives" "$apt_dir/unpack" \
    "$sysroot"/usr/share/{doc,man,info,locale}
echo "$stamp_text" > "$stamp"
log "ready: $sysroot ($(du -sh "$sysroot" | cut -f1))"
