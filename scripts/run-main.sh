#!/usr/bin/env bash
# Installs what is missing, builds VexaBase with its example modules and
# tools, and runs the demo pipeline: a sample clip remuxed through
# vexa-launch. An input clip of your own may be given as the first argument.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=RelWithDebInfo
cmake --build build -j"$(nproc)"
exec bash scripts/demo.sh build "$@"
