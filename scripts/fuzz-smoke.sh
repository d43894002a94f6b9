#!/usr/bin/env bash
# Builds the fuzz preset and runs every fuzz target for a few seconds (default 10) on its seed
# corpus, keeping what it finds in a scratch corpus under build/fuzz.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-10}
bash scripts/setup.sh
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$(nproc)"
# The XML targets are seeded at run time from the shared conformance cases, which are never
# copied into the repository.
xmlseeds=build/fuzz/seeds/xml
rm -rf "$xmlseeds"
mkdir -p "$xmlseeds"
for shared in ../shared ../../shared; do
  if [ -d "$shared/xmlconf/xmltest" ]; then
    root="$shared/xmlconf/xmltest/"
    find "$root" -name '*.xml' -size -64k -print0 | while IFS= read -r -d '' f; do
      rel=${f#"$root"}
      cp "$f" "$xmlseeds/${rel//\//_}"
    done
    break
  fi
done
for program in build/fuzz/fuzz/*_fuzz; do
  name=$(basename "$program" _fuzz)
  scratch=build/fuzz/corpus/$name
  mkdir -p "$scratch"
  seeds=()
  [ -d "fuzz/corpus/$name" ] && seeds+=("fuzz/corpus/$name")
  case "$name" in xml_*) seeds+=("$xmlseeds") ;; esac
  echo "fuzz: $name for ${seconds}s"
  "$program" -max_total_time="$seconds" -print_final_stats=0 "$scratch" "${seeds[@]}" 2>&1 | tail -n 2
done
echo "fuzz: every target ran clean"
