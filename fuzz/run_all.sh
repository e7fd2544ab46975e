#!/usr/bin/env bash
# Runs every fuzz target for SECONDS (default 600) on a copy of its seed corpus and
# prints, per target, the executions and the findings (crash, leak, timeout and oom
# files). A finding does not end the target's time: libFuzzer stops at it, and the
# target starts again on its grown corpus until its time is used up. Exit status 1
# when anything was found; each finding is printed with its report and its bytes.
#
#   fuzz/run_all.sh [SECONDS]
# Environment: FUZZ_BUILD (default build-fuzz; configured and built when needed),
# FUZZ_JOBS (targets at once, default 2), FUZZ_OUT (findings, default $FUZZ_BUILD/fuzz/findings),
# FUZZ_TARGETS (names of the targets to run, separated by blanks; default all).
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${1:-600}
build=${FUZZ_BUILD:-build-fuzz}
jobs=${FUZZ_JOBS:-2}
out=${FUZZ_OUT:-$build/fuzz/findings}
# A small input must not need more than 128 MB; every input is at most 64 KiB.
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-halt_on_error=1:print_stacktrace=1}
limits=(-max_len=65536 -malloc_limit_mb=128 -rss_limit_mb=1024 -timeout=25)

if [[ ! -f $build/build.ninja ]]; then
  CXX=clang++ cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZEV_BUILD_FUZZ=ON \
    -DZEV_BUILD_TESTS=OFF -DZEV_BUILD_TOOLS=OFF -DCMAKE_CXX_FLAGS=-fsanitize=fuzzer-no-link,address,undefined >/dev/null
fi
cmake --build "$build" -j "$jobs" >/dev/null

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
rm -rf "$out"
mkdir -p "$out"

# Fuzzes one target until its time is used; writes "<executions> <findings>" to $work/<target>.result.
fuzz_one() {
  local fuzzer=$1 name
  name=$(basename "$fuzzer")
  local corpus=$work/$name.corpus findings=$out/$name
  mkdir -p "$corpus" "$findings"
  cp -r "$build/fuzz/corpus/$name/." "$corpus/"
  local start=$SECONDS executions=0 round=0 left
  while left=$((seconds - (SECONDS - start))); ((left > 0)); do
    round=$((round + 1))
    local log=$work/$name.$round.log
    "$fuzzer" "${limits[@]}" -max_total_time="$left" -print_final_stats=1 \
      -artifact_prefix="$findings/" "$corpus" >"$log" 2>&1 || true
    local ran
    ran=$(grep -o 'stat::number_of_executed_units: [0-9]*' "$log" | tail -n 1 | grep -o '[0-9]*$' || true)
    [[ -n $ran ]] || ran=$(grep -o '^#[0-9]*' "$log" | tail -n 1 | tr -d '#' || true)
    executions=$((executions + ${ran:-0}))
    if grep -q -E '^==[0-9]+== ?ERROR|^SUMMARY: |deadly signal|out-of-memory|malloc\(.*\) exceeds limit|ALARM: working' "$log"; then
      local input
      input=$(sed -n 's/.*Test unit written to //p' "$log" | tail -n 1)
      # One report per distinct input; a seed that fails leaves the corpus, or every restart would stop at it.
      [[ -f $findings/report.$(basename "$input").log ]] || cp "$log" "$findings/report.$(basename "$input").log"
      if [[ -f $input ]]; then
        for seed in "$corpus"/*; do cmp -s "$seed" "$input" && rm -f "$seed" || true; done
      fi
    else
      break   # the time ran out without a finding
    fi
  done
  echo "$executions $(find "$findings" -type f ! -name 'report.*' | wc -l)" >"$work/$name.result"
}

fuzzers=()
for fuzzer in "$build"/fuzz/fuzz_*; do
  [[ -x $fuzzer && -f $fuzzer ]] || continue
  [[ -z ${FUZZ_TARGETS:-} || " $FUZZ_TARGETS " == *" $(basename "$fuzzer") "* ]] && fuzzers+=("$fuzzer")
done
echo "fuzzing ${#fuzzers[@]} targets for $seconds s each, $jobs at a time"
for fuzzer in "${fuzzers[@]}"; do
  while (($(jobs -rp | wc -l) >= jobs)); do wait -n || true; done
  fuzz_one "$fuzzer" &
done
wait

status=0
printf '%-18s %12s  %s\n' target executions result
for fuzzer in "${fuzzers[@]}"; do
  name=$(basename "$fuzzer")
  read -r executions found <"$work/$name.result"
  if ((executions == 0)); then
    printf '%-18s %12s  %s\n' "$name" "$executions" "did not run; see $fuzzer -help=1"
    status=1
    continue
  fi
  if ((found == 0)); then
    printf '%-18s %12s  %s\n' "$name" "$executions" "ok, nothing found"
    continue
  fi
  printf '%-18s %12s  %s\n' "$name" "$executions" "$found finding(s) in $out/$name"
  status=1
  # The first three findings in full: the sanitizer's error line and the top of its stack,
  # libFuzzer's summary, and the input's first bytes.
  shown=0
  for input in "$out/$name"/*; do
    [[ $input == */report.* ]] && continue
    if ((shown++ == 3)); then
      echo "---- $name: $((found - 3)) more in $out/$name"
      break
    fi
    echo "---- $name: $input ($(stat -c %s "$input") bytes); reproduce with $fuzzer $input"
    report=$out/$name/report.$(basename "$input").log
    if [[ -f $report ]]; then
      grep -E -A 22 '^==[0-9]+== ?ERROR|runtime error:|^ALARM: ' "$report" | grep -v -E '^#[0-9]+|NEW_FUNC' | head -n 24 || true
      grep -E '^SUMMARY: ' "$report" || true
    fi
    head -c 128 "$input" | od -A x -t x1z -v
  done
done
exit $status
