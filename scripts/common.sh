# Shared by the scripts: installing what is missing, building, paths. Everything it prints goes to standard error.
top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$top" || exit 1

# say TEXT: what is being done. On a terminal it stands in one line, which the next takes over; elsewhere in a line each.
say() {
    if [ -t 2 ]; then printf '\r\033[K%.*s' "$(($(tput cols 2>/dev/null || echo 80) - 1))" "$1" >&2; else echo "$1" >&2; fi
}

# said: ends that line.
said() { [ ! -t 2 ] || printf '\r\033[K' >&2; }

# quietly LOG COMMAND...: what it prints goes into build/LOG.log, of which the end is shown where the command fails.
quietly() {
    local log=build/$1.log status
    shift
    mkdir -p build
    "$@" >"$log" 2>&1
    status=$?
    [ $status -eq 0 ] || { said; tail -n 30 "$log" >&2; echo "$1 failed; all that it printed: $top/$log" >&2; }
    return $status
}

# The packages of those sections of packages.txt; a section that is not there is an error.
packages_of() {
    awk -v sections="$*" '
        BEGIN { count = split(sections, list, " "); for (i in list) wanted[list[i]] = 1 }
        /^# \[/ {
            on = 0
            split(substr($0, 4, index($0, "]") - 4), names, " ")
            for (i in names) if (names[i] in wanted) { on = 1; found[names[i]] = 1 }
        }
        /^[^#]/ && on { print $1 }
        END { for (name in wanted) if (!(name in found)) { print "packages.txt has no section " name > "/dev/stderr"; exit 1 } }
    ' packages.txt
}

# Runs apt-get as root (or with sudo) and says how far it is.
apt() {
    local sudo="" log=$top/build/install.log status
    [ "$(id -u)" -eq 0 ] || sudo=sudo
    mkdir -p build
    # It reports on descriptor 3, which is the pipe; sudo would close it.
    $sudo env DEBIAN_FRONTEND=noninteractive sh -c 'exec apt-get -o APT::Status-Fd=3 "$@" 3>&1 >>"$0" 2>&1' "$log" "$@" \
        | while IFS=: read -r kind _ percent what; do
            [ ! -t 2 ] || case $kind in
                dlstatus) say "downloading packages: ${percent%%.*} %, $what" ;;
                pmstatus) say "installing packages: ${percent%%.*} %, $what" ;;
            esac
        done
    status=${PIPESTATUS[0]}
    [ "$status" -eq 0 ] || { said; tail -n 20 "$log" >&2; echo "apt-get failed; all that it printed: $log" >&2; }
    return "$status"
}

# install_packages SECTION...: installs the packages of those sections of packages.txt that are missing.
install_packages() {
    local listed missing=() package
    listed=$(packages_of "$@") || return 1
    for package in $listed; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    local start=$SECONDS
    said
    echo "installing: ${missing[*]}" >&2
    apt update && apt install -y --no-install-recommends "${missing[@]}" || return 1
    said
    echo "installed in $((SECONDS - start)) s" >&2
}

# build PRESET [TARGET...]: configures where needed and builds; says the seconds it took.
build() { build_with "$1" "" "${@:2}"; }

# build_programs TARGET...: for those who use them, without what only benches need.
build_programs() { build_with release -DKX_BUILD_BENCH=OFF "$@"; }

build_with() {
    local preset=$1 option=$2 start=$SECONDS
    shift 2
    say "configuring $preset"
    quietly configure cmake --preset "$preset" ${option:+"$option"} || return 1
    said
    NINJA_STATUS="building $preset: %f of %t, %e s, " cmake --build --preset "$preset" ${1:+--target "$@"} >&2 || return 1
    echo "built $preset in $((SECONDS - start)) s" >&2
}
