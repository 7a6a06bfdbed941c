# Shell functions that ./quil and ./test share. Source it after setting `root` (the project's folder) and `me` (the name
# that messages begin with).

# Takes the lock that everything holds that changes build/; waits for another holder. It is released when the process
# ends. Descriptor 9 is not for the programs that are started: close it with 9>&-.
lock_build() {
    mkdir -p "$root/build" || return 1
    exec 9>"$root/build/.lock" || return 1
    flock 9
}
unlock_build() { exec 9>&-; }

# missing_packages PURPOSE...: those packages of the purposes that are not installed.
missing_packages() {
    local purpose package wanted=()
    while read -r purpose package _; do
        [[ " $* " == *" $purpose "* ]] && wanted+=("$package")
    done < <(grep -v '^#' "$root/tools/packages.txt")
    # A package that Debian never heard of has no line in the answer, so start from the wanted ones.
    local installed
    installed=" $(dpkg-query -W -f '${db:Status-Status} ${Package} ' "${wanted[@]}" 2>/dev/null)"
    for package in "${wanted[@]}"; do
        [[ $installed == *" installed $package "* ]] || echo "$package"
    done
}

# install_missing LOG PURPOSE...: installs what is missing from Debian's packages; says so, or why it cannot.
install_missing() {
    local log=$1
    shift
    if ! command -v dpkg-query >/dev/null; then
        return 0  # not Debian: configuring tells what is not there
    fi
    local missing
    mapfile -t missing < <(missing_packages "$@")
    if ((${#missing[@]} == 0)); then
        return 0
    fi
    local install=(apt-get install -y --no-install-recommends "${missing[@]}")
    local by_hand="apt-get update && ${install[*]}"
    local become=()
    if ((EUID != 0)); then
        if ! command -v sudo >/dev/null; then
            echo "$me: packages are missing, and installing them takes root's rights. As root, run:" >&2
            echo "    $by_hand" >&2
            return 1
        fi
        become=(sudo)
    fi
    echo "$me: installing ${missing[*]}" >&2
    if ((EUID != 0)) && ! sudo -v; then
        echo "$me: cannot become root through sudo. As root, run:" >&2
        echo "    $by_hand" >&2
        return 1
    fi
    # The package lists of a fresh machine are empty or old: fetch them when installing from those at hand fails.
    local environment=(env DEBIAN_FRONTEND=noninteractive)
    if "${become[@]}" "${environment[@]}" "${install[@]}" >"$log" 2>&1 </dev/null 9>&- ||
        { "${become[@]}" "${environment[@]}" apt-get update >>"$log" 2>&1 </dev/null 9>&- &&
            "${become[@]}" "${environment[@]}" "${install[@]}" >>"$log" 2>&1 </dev/null 9>&-; }; then
        return 0
    fi
    tail -n 15 "$log" >&2
    echo "$me: the packages could not be installed (above; all of it in $log). Is the network there? Try, as root:" >&2
    echo "    $by_hand" >&2
    return 1
}

# configure PRESET [OPTION...]: configures build/PRESET. A folder that was configured elsewhere is begun anew.
configure() {
    local preset=$1 cache=$root/build/$1/CMakeCache.txt fresh=()
    shift
    if [[ -f $cache ]] && ! grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$root" "$cache"; then
        fresh=(--fresh)
    fi
    (cd "$root" && cmake --preset "$preset" "${fresh[@]}" "$@") 9>&-
}
