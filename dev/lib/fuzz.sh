# shellcheck shell=bash
# Running the fuzz targets of build/fuzz, each for a while, from its seeds.

# fuzzOne PROGRAM SECONDS OUT: what it found is left in OUT; its words only when it found something.
fuzzOne() {
    local program=$1 seconds=$2 out=$3 name log work seeds=()
    name=$(basename "$program")
    log=$out/$name.log
    work=$(mktemp -d)
    [[ ! -d $projectRoot/fuzz/corpus/$name ]] || seeds+=("$projectRoot/fuzz/corpus/$name")
    [[ ! -d $projectRoot/fuzz/corpus/${name%_fuzz} || $name != *_fuzz ]] || seeds+=("$projectRoot/fuzz/corpus/${name%_fuzz}")
    if ((${#seeds[@]} == 0)); then
        printf '%s: no seeds in fuzz/corpus/%s\n' "$name" "${name%_fuzz}"
        return 1
    fi
    # Their own input rules files inside the sandbox, so that whatever a target writes is gone afterwards.
    if (cd "$work" && "$program" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
        -artifact_prefix="$out/$name-" "$work" "${seeds[@]}") >"$log" 2>&1; then
        rm -f "$log"
        return 0
    fi
    printf '%s failed; its input and log are in %s\n' "$name" "$out"
    grep -E 'ERROR:|SUMMARY:|runtime error:' "$log" || tail -5 "$log"
    return 1
}

# fuzzAll FOLDER SECONDS OUT: every target, two at a time; runs inside the sandbox.
fuzzAll() {
    local programs
    mapfile -t programs < <(find "$1" -maxdepth 1 -type f -name '*_fuzz' -perm -u+x | sort)
    if ((${#programs[@]} == 0)); then
        printf 'no fuzz target in %s\n' "$1"
        return 1
    fi
    export -f fuzzOne
    export projectRoot
    printf '%s\0' "${programs[@]}" | xargs -0 -P "$(nproc)" -I{} bash -euc 'fuzzOne "$@"' fuzz {} "$2" "$3"
}
