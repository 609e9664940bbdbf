#!/bin/sh
# Builds every fuzzer with clang, libFuzzer and the sanitizers, and runs each for the given number
# of seconds (default 60) with its own corpus folder. Findings (crash-*, leak-*, timeout-*) land
# in build-fuzz/tools/fuzz/findings/<name>/.
set -eu
seconds="${1:-60}"
source_dir="$(cd "$(dirname "$0")/../.." && pwd)"
build_dir="${LAUNCHER_FUZZ_BUILD:-$source_dir/build-fuzz}"

CXX="${CXX:-clang++}" cmake -S "$source_dir" -B "$build_dir" -G Ninja \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo -DLAUNCHER_FUZZ=ON -DLAUNCHER_BUILD_TESTS=OFF >/dev/null
cmake --build "$build_dir" --target launcher_fuzzers -j2

fuzz_dir="$build_dir/tools/fuzz"
for fuzzer in "$fuzz_dir"/*_fuzzer; do
    name="$(basename "$fuzzer" _fuzzer)"
    corpus="$fuzz_dir/corpus/$name"
    findings="$fuzz_dir/findings/$name"
    mkdir -p "$corpus" "$findings"
    # A few well-formed documents to start from, kept in the source tree.
    if [ -d "$source_dir/tools/fuzz/seeds/$name" ]; then
        cp -n "$source_dir/tools/fuzz/seeds/$name"/* "$corpus"/
    fi
    max_len=65536
    case "$name" in
    info_plist | code_resources)
        # libplist runs out of stack only a few megabytes into a nested list: these inputs may be
        # that long, and start from one such list, made here rather than kept in the tree.
        max_len=4194304
        deep="$corpus/deep-arrays"
        if [ ! -f "$deep" ]; then
            {
                printf '<plist version="1.0"><dict><key>files</key>'
                yes '<array>' | head -n 200000 | tr -d '\n'
                yes '</array>' | head -n 200000 | tr -d '\n'
                printf '</dict></plist>'
            } >"$deep"
        fi
        ;;
    esac
    echo "== $name: $seconds s"
    "$fuzzer" -max_total_time="$seconds" -max_len="$max_len" -timeout=10 -rss_limit_mb=2048 \
        -artifact_prefix="$findings/" -print_final_stats=1 "$corpus" 2>&1 |
        grep -E '^(stat::number_of_executed_units|stat::peak_rss_mb|==[0-9]+==ERROR|SUMMARY|Done)' ||
        true
done
echo "Findings, if any:"
find "$fuzz_dir/findings" -type f
