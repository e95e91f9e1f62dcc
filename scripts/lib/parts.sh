# Sourced by the scripts that run many checks: each is a part, every part runs, whatever became of the others, and a
# summary closes the run.

# Of the part with number N: N.log is its output, N.summary its lines for the summary, N.failed is there if it failed.
part_folder=$(mktemp -d)
trap 'rm -rf "$part_folder"' EXIT
part_number=1000

# run_part NUMBER TITLE COMMAND...: runs the command in a shell that stops at the first error; notes its outcome and its
# duration; CTest's closing line, if it ran that; what its own parts came to, if it had some.
run_part() {
    local own="$part_folder/$1" title=$2 start=$SECONDS outcome=passed
    shift 2
    printf '\n==== %s\n' "$title"
    if ! bash -euo pipefail -c 'source scripts/lib/build.sh; "$@"' part "$@" 2>&1 | tee "$own.log"; then
        outcome=FAILED
        touch "$own.failed"
    fi
    printf -- '---- %s: %s after %d s\n' "$title" "$outcome" $((SECONDS - start))
    printf '%-32s %s, %4d s\n' "$title" "$outcome" $((SECONDS - start)) >"$own.summary"
    if grep -q '^==== Summary' "$own.log"; then
        sed '1,/^==== Summary/d; s/^/    /' "$own.log" >>"$own.summary"
    else
        grep -E 'tests passed, .* out of' "$own.log" | sed 's/^/    /' >>"$own.summary"
    fi
}

# part TITLE COMMAND...: runs it now.
part() {
    run_part $((++part_number)) "$@"
}

# part_beside TITLE COMMAND...: runs it beside the parts that follow; what it prints comes when all have ended.
part_beside() {
    local own="$part_folder/$((++part_number))"
    printf '\n==== %s: runs beside what follows\n' "$1"
    run_part "$part_number" "$@" >"$own.output" 2>&1 &
}

# end_of_parts: waits for the parts beside, prints the summary and ends the script with the outcome of all.
end_of_parts() {
    wait
    find "$part_folder" -name '*.output' | sort | xargs -r cat
    printf '\n==== Summary after %d s\n' "$SECONDS"
    cat "$part_folder"/*.summary
    if compgen -G "$part_folder/*.failed" >/dev/null; then
        exit 1
    fi
}
