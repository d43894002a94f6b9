#!/usr/bin/env bash
# Sets up the machine if needed, builds with the given preset (default: ci) and runs its tests.
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${1:-ci}
shift || true
bash scripts/setup.sh
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" -j "$(nproc)"
ctest --preset "$preset" -j "$(nproc)" "$@"
