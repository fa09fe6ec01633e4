#!/usr/bin/env bash
# Installs what is missing, builds the fuzz targets and runs each for a while. Needs no network and no display.
#   ./fuzz.sh [SECONDS] [TARGET...]   60 seconds each of all targets; inputs found stay in build/fuzz/corpus
#   ./fuzz.sh --save [TARGET...]      merges those inputs into the saved ones, fuzz/corpus, as few as cover the same
# Ends with 1 when a target has found something, and says in which file the input is.
set -euo pipefail
cd "$(dirname "$0")"
. scripts/packages.sh

all_targets="gvcp acknowledge discovery gvsp description xml gentl"
most_files=60
most_bytes=60000 # of a target's saved inputs
longest=4096     # bytes of an input

save=no
seconds=60
if [ "${1:-}" = --save ]; then
    save=yes
    shift
elif [[ "${1:-}" =~ ^[1-9][0-9]*$ ]]; then
    seconds=$1
    shift
fi
targets=${*:-$all_targets}
for target in $targets; do
    case " $all_targets " in
        *" $target "*) ;;
        *) echo "usage: ./fuzz.sh [SECONDS | --save] [TARGET...]; targets: $all_targets" >&2; exit 2 ;;
    esac
done

# shellcheck disable=SC2086
install_packages $build_packages $fuzz_packages
cmake --preset fuzz >/dev/null
programs=()
for target in $targets; do programs+=("${target}_fuzz" "${target}_seeds"); done
cmake --build --preset fuzz --target "${programs[@]}"

bin=$PWD/build/fuzz/bin
work=$PWD/build/fuzz/corpus
found=$PWD/build/fuzz/found
export ASAN_OPTIONS=detect_stack_use_after_return=1:intercept_tls_get_addr=0
export LSAN_OPTIONS=suppressions=$PWD/cmake/lsan.supp:print_suppressions=0
export G_SLICE=always-malloc

# options_of TARGET: what libFuzzer is told. One input may take 20 s (a machine may be busy), and 2 GB.
options_of() {
    echo "-max_len=$longest -timeout=20 -rss_limit_mb=2048 -artifact_prefix=$found/$1/"
    [ -f "fuzz/$1.dict" ] && echo "-dict=fuzz/$1.dict"
    true
}

# run TARGET: one line of figures. 1 when it has found something.
run() {
    local target=$1 log=$work/$1.log code=0 runs before after
    mkdir -p "$work/$target" "$found/$target" "fuzz/corpus/$target"
    "$bin/${target}_seeds" "$work/$target" 2>"$log" || { report "$target" "the valid inputs" "$log"; return 1; }
    # shellcheck disable=SC2046
    "$bin/${target}_fuzz" $(options_of "$target") -max_total_time="$seconds" -print_final_stats=1 \
        "$work/$target" "fuzz/corpus/$target" >"$log" 2>&1 || code=$?
    runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    before=$(sed -n 's/.*INITED.* cov: \([0-9]*\).*/\1/p' "$log" | head -1)
    after=$(sed -n 's/.* cov: \([0-9]*\).*/\1/p' "$log" | tail -1)
    printf '%-12s runs %-9s coverage %s (%s new) ' "$target" "${runs:-?}" "${after:-?}" \
        "$((${after:-0} - ${before:-0}))"
    if [ "$code" -eq 0 ]; then
        echo "findings 0"
        return 0
    fi
    [ -n "$runs" ] || { echo "did not run: $(tail -n 1 "$log")"; return 1; }
    echo "findings 1"
    report "$target" "$(sed -n 's/.*Test unit written to //p' "$log" | tail -1)" "$log"
    return 1
}

# report TARGET INPUT LOG
report() {
    grep -E -m1 'ERROR: |^broken: |runtime error: ' "$3" | sed 's/^/    /' || true
    echo "    input: $2"
    echo "    again: $bin/$1_fuzz INPUT; all of the output: $3"
}

# save TARGET: few inputs that cover what all of them cover. The merge writes those first that add most, and only as
# many are kept as the limits allow, beside those that were given names.
save() {
    local target=$1 log=$work/$1-merge.log merged size files=0 bytes=0
    merged=$(mktemp -d "$work/merged.XXXXXX")
    mkdir -p "fuzz/corpus/$target" "$work/$target"
    # shellcheck disable=SC2046
    "$bin/${target}_fuzz" $(options_of "$target") -set_cover_merge=1 "$merged" "fuzz/corpus/$target" "$work/$target" \
        >"$log" 2>&1 || { echo "$target: the merge failed, see $log" >&2; return 1; }
    find "fuzz/corpus/$target" -type f -regextype posix-extended -regex '.*/[0-9a-f]{40}' -delete # names of their own stay
    while read -r _ size file; do
        [ $files -lt $most_files ] || break
        [ $((bytes + size)) -le $most_bytes ] || continue
        cp "$merged/$file" "fuzz/corpus/$target/"
        files=$((files + 1)) bytes=$((bytes + size))
    done < <(find "$merged" -type f -printf '%T@ %s %f\n' | sort -n)
    echo "$target: $files files, $bytes bytes, of $(find "$merged" -type f | wc -l)"
    rm -rf "$merged"
}

failed=0
for target in $targets; do
    if [ $save = yes ]; then save "$target" || failed=1; else run "$target" || failed=1; fi
done
exit $failed
