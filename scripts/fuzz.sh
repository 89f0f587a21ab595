#!/usr/bin/env bash
# Builds the libFuzzer targets (clang, in build-fuzz) and runs each on a copy of its seed
# corpus, so that the checked-in corpus is never modified. Fails when a target crashes; the
# input that did it is kept in build-fuzz/artifacts.
#   scripts/fuzz.sh                             every target, FUZZ_SECONDS (default 25) each
#   FUZZ_SECONDS=600 scripts/fuzz.sh applier    one target for ten minutes
# Targets: feed_lines, validator, applier (docs/testing.md). Skipped when clang is missing.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=${FUZZ_SECONDS:-25}
dir=${FUZZ_BUILD_DIR:-build-fuzz}
targets=("$@")
((${#targets[@]})) || targets=(feed_lines validator applier)

if ! command -v clang++ >/dev/null; then
  echo "fuzz: clang++ is not installed (scripts/bootstrap.sh installs it); skipped"
  exit 0
fi
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
# -O1 and line tables: what libFuzzer's documentation suggests, and the quickest build that
# still names source lines in a report.
cmake -S . -B "$dir" -G Ninja -DCMAKE_CXX_COMPILER=clang++ -DPIMSNMP_FUZZ=ON \
  -DPIMSNMP_BUILD_TESTS=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -gline-tables-only -DNDEBUG" "${launcher[@]}" >/dev/null
cmake --build "$dir" -j "$(nproc)" --target "${targets[@]/#/fuzz_}"

artifacts="$dir/artifacts"
mkdir -p "$artifacts"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=()
for t in "${targets[@]}"; do
  cp -r "tests/fuzz/corpus/$t" "$work/$t"
  echo "== fuzz_$t: $seconds s"
  # stderr of the target closed: refused updates are logged there, once per input.
  if ! ASAN_OPTIONS=detect_leaks=1 \
    UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1:suppressions=tests/fuzz/ubsan.supp \
    "$dir/tests/fuzz/fuzz_$t" "$work/$t" -dict=tests/fuzz/state.dict \
    -max_total_time="$seconds" -rss_limit_mb=2048 -timeout=20 -close_fd_mask=2 \
    -print_final_stats=1 -artifact_prefix="$artifacts/$t-" 2>"$work/$t.log"; then
    tail -n 60 "$work/$t.log"
    failed+=("$t")
  fi
  grep -E "^stat::(number_of_executed_units|peak_rss_mb)|^Done " "$work/$t.log" || true
done
if ((${#failed[@]})); then
  echo "fuzz: ${failed[*]} failed; inputs in $artifacts (reproduce: $dir/tests/fuzz/fuzz_<target> <input>)"
  exit 1
fi
echo "fuzz: no crash"
