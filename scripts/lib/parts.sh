# Sourced by the scripts that run many checks. Each check is a part. A failed part does not stop the others. A summary
# with the outcome and the time of each part ends the run.
#
# time_limit, in seconds, may be set before end_of_parts: a run that took longer fails.

# For the part with number N: N.log is its output, N.summary its lines of the summary; N.failed exists if it failed.
part_folder=$(mktemp -d)
trap 'rm -rf "$part_folder"' EXIT
part_number=1000
time_limit=

# run_part NUMBER TITLE COMMAND...: runs the command in a shell that stops at the first error. Notes the outcome, the
# time, CTest's closing lines and failed tests if the command ran CTest, and the summary of the command's own parts if it had any.
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
        grep -E 'tests passed, .* out of|^Total Test time|^\s+[0-9]+ - .*\(.*\)$' "$own.log" |
            sed 's/^/    /' >>"$own.summary" || true
    fi
}

# part TITLE COMMAND...: runs the command now.
part() {
    run_part $((++part_number)) "$@"
}

# part_beside TITLE COMMAND...: runs the command in parallel with the parts that follow. Its output comes at the end.
part_beside() {
    local own="$part_folder/$((++part_number))"
    printf '\n==== %s: runs in parallel with the parts that follow\n' "$1"
    run_part "$part_number" "$@" >"$own.output" 2>&1 &
}

# end_of_parts: waits for the parallel parts, prints the summary and exits: with 1 if a part failed or time ran out.
end_of_parts() {
    wait
    find "$part_folder" -name '*.output' | sort | xargs -r cat
    printf '\n==== Summary after %d s\n' "$SECONDS"
    cat "$part_folder"/*.summary
    if [ -n "$time_limit" ] && [ "$SECONDS" -gt "$time_limit" ]; then
        echo "The run took $SECONDS s. The limit is $time_limit s."
        exit 1
    fi
    if compgen -G "$part_folder/*.failed" >/dev/null; then
        exit 1
    fi
}
