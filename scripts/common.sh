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

as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    else
        sudo "$@"
    fi
}

installed() {
    # A package of the other architecture is listed with its suffix.
    local status
    status=$(dpkg-query -W -f '${db:Status-Status}\n' "$1" 2>/dev/null | head -n 1) || return 1
    [ "$status" = installed ]
}

refresh_index() {
    # An index that is being mirrored right now must not stop the others: what is missing shows at the installation.
    as_root apt-get update || echo "apt-get update reported an error; going on with the indexes that it has"
}

apt_install() {
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "$@"
}

install_packages() {
    local codename
    dpkg --print-foreign-architectures | grep -qx i386 || as_root dpkg --add-architecture i386
    refresh_index
    if apt_install "$@"; then
        return 0
    fi
    # The i386 index of the security archive can lag behind amd64's. Taking every package from the release itself
    # makes the two architectures agree.
    codename=$(. /etc/os-release && echo "$VERSION_CODENAME")
    echo "The plain installation failed; trying again with the packages of $codename only"
    if apt_install -t "$codename" "$@"; then
        return 0
    fi
    echo "Both ways of installing failed for: $*"
    echo "(as the machine's sources offer them, and with -t $codename); the reason is in apt's messages above."
    return 1
}

# The text of those files that exist, each followed by an empty line.
configuration() {
    local file
    for file in "$@"; do
        if [ -e "$file" ]; then
            cat "$file"
            echo
        fi
    done
}

# The machine's own package sources, asked for source packages, as a list of its own below the build folder.
write_source_list() {
    local codename
    codename=$(. /etc/os-release && echo "$VERSION_CODENAME")
    mkdir -p "$build/apt/lists/partial"
    {
        configuration /etc/apt/sources.list /etc/apt/sources.list.d/*.list |
            awk '$1 == "deb" { $1 = "deb-src"; print }'
        configuration /etc/apt/sources.list.d/*.sources | awk -v RS= '
            /(^|\n)Types:[^\n]*deb/ && !/(^|\n)Enabled:[ ]*(no|false)/ {
                uris = suites = components = key = ""
                count = split($0, lines, "\n")
                for (i = 1; i <= count; i++) {
                    name = lines[i]; sub(/:.*/, "", name)
                    value = lines[i]; sub(/^[^:]*:[ ]*/, "", value)
                    if (name == "URIs") uris = value
                    if (name == "Suites") suites = value
                    if (name == "Components") components = value
                    if (name == "Signed-By") key = "[signed-by=" value "] "
                }
                n = split(uris, u, " "); m = split(suites, s, " ")
                for (i = 1; i <= n; i++) for (j = 1; j <= m; j++) print "deb-src " key u[i] " " s[j] " " components
            }'
    } | awk -v name="$codename" '$0 ~ ("[ ]" name "[ ]")' >"$build/apt/sources.list"
    if ! [ -s "$build/apt/sources.list" ]; then
        echo "No package source of $codename was found in /etc/apt"
        return 1
    fi
}

source_apt() {
    apt-get -o Dir::Etc::SourceList="$build/apt/sources.list" -o Dir::Etc::SourceParts=/dev/null \
        -o Dir::State::Lists="$build/apt/lists" -o APT::Architectures="$(dpkg --print-architecture)" \
        -o APT::Sandbox::User=root -o Dir::Cache::srcpkgcache= -o Dir::Cache::pkgcache= "$@"
}

source_present() {
    local name=$1 version=$3 file=$4
    [ -e "$build/sources/$name/$file" ] && [ "$(cat "$build/sources/$name.version" 2>/dev/null)" = "$version" ]
}

fetch_source() {
    local name=$1 package=$2 version=$3 file=$4 download="$build/sources/download"
    rm -rf "$download" "$build/sources/$name"
    mkdir -p "$download"
    (cd "$download" && source_apt source --only-source "$package=$version")
    mv "$download/$package-"*/ "$build/sources/$name"
    rm -rf "$download"
    [ -e "$build/sources/$name/$file" ] || { echo "$name $version has no $file"; return 1; }
    echo "$version" >"$build/sources/$name.version"
}

fetch_sources() {
    write_source_list
    source_apt update || echo "apt-get update reported an error; going on with the indexes that it has"
    local row
    for row in "$@"; do
        # shellcheck disable=SC2086
        fetch_source $row
    done
}

# need_packages LOGNAME "What they are" PACKAGE...: installs those that are missing.
need_packages() {
    local log=$1 title=$2 package missing=()
    shift 2
    for package in "$@"; do
        installed "$package" || missing+=("$package")
    done
    if [ ${#missing[@]} -gt 0 ]; then
        step "Installing $title" "$log" install_packages "${missing[@]}"
    fi
}

# need_sources LOGNAME "What they are" ROW...: unpacks source packages below build/sources. A row holds our name of it,
# the source package, its version and a file that its folder must have.
need_sources() {
    local log=$1 title=$2 row missing=()
    shift 2
    for row in "$@"; do
        # shellcheck disable=SC2086
        source_present $row || missing+=("$row")
    done
    if [ ${#missing[@]} -gt 0 ]; then
        step "Fetching $title" "$log" fetch_sources "${missing[@]}"
    fi
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
