#!/usr/bin/env bash
# The manual page of tarvelo-softcard and its --help name the same commands, and for each of them the
# same options with the same defaults; groff has nothing to complain about.
# Usage: manual_page_test.sh PROGRAM PAGE
set -euo pipefail
export LC_ALL=C.UTF-8

program=$1 page=$2
failures=0

fail() {
    printf 'FAILED: %s\n' "$*"
    failures=$((failures + 1))
}

expect_equal() { [[ $2 == "$3" ]] || fail "$1: --help has \"${2//$'\n'/ }\", the page has \"${3//$'\n'/ }\""; }

# The page as plain text; the part of one command, from its heading to the next.
plain() { sed -e 's/\\f[BIR]//g' -e 's/\\-/-/g' -e 's/\\e/\\/g' "$page"; }
part_of() { plain | sed -n "/^\.SS $1\$/,/^\.S[SH] /p" | sed -e 1d; }

commands=$("$program" --help | sed -n '/^Subcommands:/,$s/^  \([a-z]*\) .*/\1/p' | sort)
[[ -n $commands ]] || fail "--help names no command"
expect_equal commands "$commands" "$(plain | sed -n 's/^\.SS //p' | sort)"

for command in $commands; do
    # The help of every command is in the page's OPTIONS.
    help=$("$program" "$command" --help | sed -n 's/^  --\([a-z-]*\).*/--\1/p' | sort)
    expect_equal "$command" "$help" "$(part_of "$command" | sed -n 's/^\(--[a-z-]*\).*/\1/p' | sort)"
done

# What the parser shows as a default ("TEXT=x") the page has in the same order.
for command in $commands; do
    help=$("$program" "$command" --help | sed -n 's/^  --[a-z-]* [^=]*=\[\{0,1\}\([^],]*\).*/\1/p' |
        sed -e 's/  .*//' -e 's/ Excludes:.*//')
    stated=$(part_of "$command" | sed -n 's/.*Default: \(.*\)\.$/\1/p')
    for value in ${help// /_}; do
        grep -qxF -- "${value//_/ }" <<<"$stated" || fail "$command: the page does not have the default ${value//_/ }"
    done
done

complaints=$(groff -man -Kutf8 -Tutf8 -ww -z "$page" 2>&1) || fail "groff failed"
[[ -z $complaints ]] || fail "groff: $complaints"

((failures == 0))
