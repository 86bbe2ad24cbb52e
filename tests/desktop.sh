#!/usr/bin/env bash
# desktop.sh QUIRE SOURCE_DIR BUILD_DIR: what the desktop and the shell read of Quire. The desktop
# entry and the AppStream file pass their validators; the manual page renders without a warning
# and documents every subcommand and option of the program's help; the bash completion completes
# subcommands, options, option values, folders and PDF files.
set -uo pipefail
quire=$1
source_dir=$2
build_dir=$3
failures=0
fail() {
    echo "FAIL: $*" >&2
    failures=$((failures + 1))
}

# Validators.
desktop-file-validate "$source_dir"/desktop/*.desktop || fail "desktop-file-validate"
appstreamcli validate --no-net "$build_dir"/*.metainfo.xml || fail "appstreamcli validate"

# The manual page.
warnings=$(MANWIDTH=200 man --warnings -l "$build_dir/quire.1" 2>&1 >/dev/null)
[[ -z $warnings ]] || fail "man warns: $warnings"
page=$(MANWIDTH=200 man -l "$build_dir/quire.1" 2>/dev/null)
subcommands=$("$quire" --help | sed -n '/^Usage:$/,/^$/s/^  quire \([a-z][a-z]*\).*/\1/p' | sort -u)
[[ $(wc -w <<<"$subcommands") -ge 7 ]] || fail "subcommands in quire --help: $subcommands"
for name in $subcommands; do
    section=$(awk -v name="quire $name" '$0 == "   " name { on = 1; next } /^   quire / { on = 0 } on' <<<"$page")
    [[ -n $section ]] || fail "no section for $name in the manual page"
    for option in $("$quire" "$name" --help | grep -oE '^  (-[a-zA-Z], )?--[a-z-]+' | grep -oE -- '--[a-z-]+'); do
        grep -qe "$option" <<<"$section" || fail "$name $option is not in the manual page"
    done
done

# The completion, in an interactive shell with bash-completion loaded, in a folder of a few files.
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/scans"
touch "$work/a.pdf" "$work/B.PDF" "$work/notes.txt" "$work/page.png"
completions=$(cd "$work" && QUIRE="$quire" COMPLETION="$source_dir/desktop/quire.bash" bash -i 2>/dev/null <<'SCRIPT'
source /usr/share/bash-completion/bash_completion
source "$COMPLETION"
complete_line() {
    COMP_LINE="$QUIRE $1"
    COMP_POINT=${#COMP_LINE}
    read -ra COMP_WORDS <<<"$COMP_LINE"
    [[ $COMP_LINE == *" " ]] && COMP_WORDS+=("")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    COMPREPLY=()
    _quire
    echo "$1=$(printf '%s\n' "${COMPREPLY[@]}" | sort | tr '\n' ' ')"
}
complete_line "me"
complete_line "w"
complete_line "merge --ov"
complete_line "merge --overwrite a"
complete_line "watermark --text-position b"
complete_line "crop -d "
complete_line "split --every 2 "
complete_line "render a.pdf -o "
complete_line "-- "
SCRIPT
)
expected='me=merge 
w=watermark 
merge --ov=--overwrite 
merge --overwrite a=all ask 
watermark --text-position b=bottom-left bottom-right 
crop -d =scans 
split --every 2 =B.PDF a.pdf scans 
render a.pdf -o =page.png scans 
-- =B.PDF a.pdf scans '
if [[ $completions != "$expected" ]]; then
    fail "completions differ"
    diff <(echo "$expected") <(echo "$completions") >&2
fi

if [[ $failures -gt 0 ]]; then
    echo "$failures failed" >&2
    exit 1
fi
echo "desktop integration: all checks passed"
