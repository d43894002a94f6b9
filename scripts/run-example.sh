#!/usr/bin/env bash
# Sets up the machine if needed, builds the release preset and runs the vorx tool's main job on
# the bundled example files.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)" --target vorx_tool
./build/release/tools/vorx/vorx xml check examples/sample.xml
./build/release/tools/vorx/vorx crc examples/check.txt examples/sample.xml
