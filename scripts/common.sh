# Shared by the scripts of this folder; to be sourced.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build="$root/build"
logs="$build/logs"
mkdir -p "$logs"

# step "What is done" LOGNAME COMMAND...: one line on the console, the long output in build/logs/LOGNAME.log. On
# failure the end of that log and its name.
step() {
    local title=$1 log="$logs/$2.log" start=$SECONDS
    shift 2
    printf '%-46s ' "$title ..."
    # In the background, because a function called in a condition would not stop at its first failing command.
    "$@" >"$log" 2>&1 </dev/null &
    if wait $!; then
        printf 'done (%d s)\n' $((SECONDS - start))
        return 0
    fi
    printf 'FAILED\n\n'
    tail -n 30 "$log"
    printf '\nThe whole output is in %s\n' "$log"
    return 1
}

configure_preset() {
    (cd "$root" && cmake --preset "$1")
}

build_preset() {
    (cd "$root" && cmake --build --preset "$1" -j "$(nproc)")
}

# Sets the machine up, then configures and builds a preset.
prepare() {
    "$root/scripts/setup"
    step "Configuring ($1)" "configure-$1" configure_preset "$1"
    step "Building ($1)" "build-$1" build_preset "$1"
}
