# Sourced by the scripts that run many checks. Each check is a part. A failed part does not stop the others. A summary
# with the outcome and the time of each part ends the run.
#
# time_limit, in seconds, may be set before the first part. It stops what still runs by then, and the run fails.

# For the part with number N: N.log is its output, N.summary its lines of the summary; N.failed exists if it failed.
part_folder=$(mktemp -d)
trap 'rm -rf "$part_folder"' EXIT
part_number=1000
time_limit=

# part TITLE COMMAND...: runs the command in a shell that stops at the first error. Notes the outcome, the time,
# CTest's closing lines and failed tests if the command ran CTest, and the summary of the command's own parts if it had
# any.
part() {
    local own="$part_folder/$((++part_number))" title=$1 start=$SECONDS outcome=passed status=0 limited=()
    shift
    printf '\n==== %s\n' "$title"
    if [ -n "$time_limit" ]; then
        # 0 would mean no limit.
        limited=(timeout --kill-after=30 $((time_limit > SECONDS ? time_limit - SECONDS : 1)))
    fi
    "${limited[@]}" bash -euo pipefail -c 'source scripts/lib/build.sh; "$@"' part "$@" 2>&1 | tee "$own.log" ||
        status=$?
    if [ "$status" -ne 0 ]; then
        outcome=FAILED
        touch "$own.failed"
    fi
    if [ "$status" -eq 124 ]; then
        outcome="FAILED (out of time)"
    fi
    printf -- '---- %s: %s after %d s\n' "$title" "$outcome" $((SECONDS - start))
    printf '%-32s %s, %4d s\n' "$title" "$outcome" $((SECONDS - start)) >"$own.summary"
    if grep -q '^==== Summary' "$own.log"; then
        sed '1,/^==== Summary/d; /^==== Why it failed/,$d; /^$/d; s/^/    /' "$own.log" >>"$own.summary"
    else
        grep -E 'tests passed, .* out of|^Total Test time|^\s+[0-9]+ - .*\(.*\)$' "$own.log" |
            sed 's/^/    /' >>"$own.summary" || true
    fi
}

# parts_beside FUNCTION: runs the function, which calls part, in parallel with the parts that follow. Its output comes
# at the end.
parts_beside() {
    printf '\n==== %s: runs in parallel with the parts that follow\n' "$1"
    part_number=2000
    "$1" >"$part_folder/beside.output" 2>&1 &
    part_number=1000
}

# end_of_parts: waits for the parallel parts, prints the summary and exits: with 1 if a part failed. Then it also prints
# what the failed parts said.
end_of_parts() {
    wait
    cat "$part_folder"/*.output 2>/dev/null
    printf '\n==== Summary after %d s\n' "$SECONDS"
    cat "$part_folder"/*.summary
    local failed own
    failed=$(compgen -G "$part_folder/*.failed") || exit 0
    for own in ${failed//.failed/}; do
        printf '\n==== Why it failed: %s\n' "$(head -n 1 "$own.summary")"
        # What tests, compilers and sanitizers print of a failure, and how the part ended.
        grep -aE -A 8 ': Failure$|\*\*\*(Failed|Timeout|Exception)|: (fatal )?error: |^SUMMARY: |^WARNING: Thread' \
            "$own.log" | head -n 60 || true
        echo "..."
        tail -n 15 "$own.log"
    done
    exit 1
}
