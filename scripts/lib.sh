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

# configure PRESET [NAME [FLAG...]]: into $build/NAME, which is $build/PRESET when no name is given. A
# folder configured elsewhere (a copied checkout) starts anew.
configure() {
    local preset=$1 name=${2-$1}
    shift $(($# > 1 ? 2 : 1))
    local folder=$build/$name cache=$build/$name/CMakeCache.txt
    if [[ -f $cache ]] && ! grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$root" "$cache"; then
        rm -rf "$folder"
    fi
    cmake --preset "$preset" -B "$folder" "$@" >"$build/configure-$name.log" 2>&1 || {
        cat "$build/configure-$name.log" >&2
        stop "the configuration failed; the lines above name what is missing"
    }
}

# compile NAME [TARGET...]
compile() {
    local name=$1 targets=()
    shift
    if (($# > 0)); then
        targets=(--target "$@")
    fi
    cmake --build "$build/$name" --parallel "$(nproc)" "${targets[@]}"
}
