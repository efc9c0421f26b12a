#!/usr/bin/env bash
# Sets up, builds and runs every test:
#   build/       Release (GCC, warnings as errors): the test suites, and the benchmarks, each
#                run once briefly so that they keep building and working
#   build-asan/  Debug with AddressSanitizer and UndefinedBehaviorSanitizer: the test suites
#   build-fuzz/  RelWithDebInfo with clang: each fuzz harness for a short run on the sample
#                inputs kept in fuzz/corpus/
# The big targets are unity builds, which keeps a clean run within a CI budget on 2 cores.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$here"

unity=(-DCMAKE_UNITY_BUILD=ON)
bash scripts/setup.sh build "${unity[@]}"
bash scripts/setup.sh build-asan "${unity[@]}" -DKAVOR_SANITIZE=ON -DKAVOR_BENCH=OFF \
  -DCMAKE_BUILD_TYPE=Debug
CC=clang CXX=clang++ bash scripts/setup.sh build-fuzz "${unity[@]}" -DKAVOR_FUZZ=ON \
  -DKAVOR_TESTS=OFF -DKAVOR_BENCH=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo

export ASAN_OPTIONS=detect_leaks=0:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1

status=0
echo "== sanitizer build tests"
ctest --test-dir build-asan --output-on-failure -j2 || status=1

echo "== fuzz harnesses (a short run each, starting from fuzz/corpus/)"
for fuzzer in build-fuzz/*_fuzz; do
  [ -x "$fuzzer" ] || continue
  name="$(basename "$fuzzer")"
  corpus="fuzz/corpus/${name%_fuzz}"
  work="$(mktemp -d)"
  [ -d "$corpus" ] && cp -r "$corpus"/. "$work"/
  if ! "$fuzzer" -runs=20000 -max_total_time=45 -max_len=65536 "$work" > "build-fuzz/$name.log" 2>&1; then
    echo "fuzz: $name failed; see build-fuzz/$name.log"; tail -n 30 "build-fuzz/$name.log"; status=1
  else
    echo "fuzz: $name ok"
  fi
  rm -rf "$work"
done

echo "== tests"
ctest --test-dir build --output-on-failure -j2 || status=1

echo "== benchmarks (one short pass each; figures in build/<name>.json)"
for bench in build/*_bench; do
  [ -x "$bench" ] || continue
  name="$(basename "$bench")"
  if ! "$bench" --benchmark_min_time=0.01 --benchmark_out="build/$name.json" \
      --benchmark_out_format=json > "build/$name.log" 2>&1; then
    echo "bench: $name failed; see build/$name.log"; tail -n 30 "build/$name.log"; status=1
  else
    echo "bench: $name ok"
  fi
done
exit $status
