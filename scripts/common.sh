# Shared by the scripts: installing what is missing, building, paths. Everything it prints goes to standard error.
top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$top" || exit 1

# Installs the Debian packages of packages.txt that are missing (as root or with sudo).
install_packages() {
    local missing=() package
    while read -r package; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
    done < <(grep -v '^#' packages.txt)
    [ ${#missing[@]} -eq 0 ] && return 0
    local sudo=""
    [ "$(id -u)" -eq 0 ] || sudo=sudo
    echo "installing: ${missing[*]}" >&2
    { $sudo apt-get update && $sudo env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}"; } >&2
}

# build PRESET [TARGET...]: configures where needed and builds; prints the seconds it took.
build() {
    local preset=$1 start=$SECONDS
    shift
    cmake --preset "$preset" >&2 || return 1
    cmake --build --preset "$preset" ${1:+--target "$@"} >&2 || return 1
    echo "built $preset in $((SECONDS - start)) s" >&2
}
