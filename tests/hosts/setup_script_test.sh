#!/usr/bin/env bash
# scripts/setup on systems that this one is not: the package tools are replaced by ones that answer
# from a list and write down what they are asked to do.
# Usage: setup_script_test.sh SOURCE-FOLDER
set -euo pipefail

source_folder=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

fail() {
    printf 'FAILED: %s\n' "$*"
    failures=$((failures + 1))
}

# A checkout with a short list, and a PATH with nothing but what is named.
mkdir -p "$work/tree/scripts" "$work/bin"
cp "$source_folder"/scripts/{setup,lib.sh} "$work/tree/scripts/"
printf '# Compiler\nfirst-package\n\nsecond-package  # why\n' >"$work/tree/scripts/packages.txt"
for program in bash basename dirname sed id env mkdir; do
    ln -s "$(command -v "$program")" "$work/bin/$program"
done

program() {
    printf '#!%s\n%s\n' "$(command -v bash)" "$2" >"$work/bin/$1"
    chmod +x "$work/bin/$1"
}

# Runs setup; what it prints goes to $work/output, what was asked of the tools to $work/asked.
run_setup() {
    : >"$work/asked"
    PATH=$work/bin "$work/bin/bash" "$work/tree/scripts/setup" >"$work/output" 2>&1
}

expect_text() { grep -qF -- "$2" "$1" || fail "no \"$2\" in: $(<"$1")"; }

# Neither Debian nor Ubuntu.
if run_setup; then fail "another system was accepted"; fi
expect_text "$work/output" "Debian and Ubuntu only"
expect_text "$work/output" "    first-package"
expect_text "$work/output" "    second-package"

# Everything is there: apt-get is not touched.
program apt-get "echo \"apt-get \$*\" >>'$work/asked'"
program sudo "echo sudo >>'$work/asked'; \"\$@\""
program dpkg-query 'printf "install ok installed"'
run_setup || fail "setup failed with every package installed"
[[ ! -s $work/asked ]] || fail "apt-get was asked without need: $(<"$work/asked")"

# One is missing: that one alone is installed, without what it only recommends.
program dpkg-query '[[ ${!#} == first-package ]] && printf "install ok installed"'
run_setup || fail "setup failed with a missing package: $(<"$work/output")"
expect_text "$work/asked" "apt-get update"
expect_text "$work/asked" "--no-install-recommends second-package"
if grep -qF first-package "$work/asked"; then fail "an installed package was asked for"; fi
if ((EUID != 0)); then expect_text "$work/asked" "sudo"; fi

# Removed but not purged is missing too.
program dpkg-query 'printf "deinstall ok config-files"'
run_setup || fail "setup failed with removed packages"
expect_text "$work/asked" "--no-install-recommends first-package second-package"

# The installation fails: so does setup.
program apt-get '[[ $* != *install* ]]'
if run_setup; then fail "a failed installation was taken for success"; fi

((failures == 0))
