#!/usr/bin/env bash
# Builds the fuzz preset and runs every fuzz target for a few seconds (default 10) on its seed
# corpus, keeping what it finds in a scratch corpus under build/fuzz.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-10}
bash scripts/setup.sh
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$(nproc)"
for program in build/fuzz/fuzz/*_fuzz; do
  name=$(basename "$program" _fuzz)
  scratch=build/fuzz/corpus/$name
  mkdir -p "$scratch"
  echo "fuzz: $name for ${seconds}s"
  "$program" -max_total_time="$seconds" -print_final_stats=0 "$scratch" "fuzz/corpus/$name" 2>&1 | tail -n 2
done
echo "fuzz: every target ran clean"
