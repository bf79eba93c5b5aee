# Shared by the scripts of this folder; to be sourced, not run.
# After sourcing: the working directory is the checkout, $root names it, $build is the folder for
# everything that is built.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"

# A folder that another user built in (root, once, is enough) cannot be written: use one's own.
build=build
if [[ -e build && ! ( -O build && -w build ) ]]; then
    build="build-$(id -un)"
fi

say() { printf '\n== %s\n' "$*"; }

stop() {
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit 1
}

# configure PRESET: into $build/PRESET. A folder configured elsewhere (a copied checkout) starts anew.
configure() {
    local folder=$build/$1 cache=$build/$1/CMakeCache.txt
    if [[ -f $cache ]] && ! grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$root" "$cache"; then
        rm -rf "$folder"
    fi
    cmake --preset "$1" -B "$folder" >"$build/configure-$1.log" 2>&1 || {
        cat "$build/configure-$1.log" >&2
        stop "the configuration failed; the lines above name what is missing"
    }
}

# compile PRESET [TARGET...]
compile() {
    local preset=$1 targets=()
    shift
    if (($# > 0)); then
        targets=(--target "$@")
    fi
    cmake --build "$build/$preset" --parallel "$(nproc)" "${targets[@]}"
}
