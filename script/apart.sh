# Sourced by script/bootstrap and script/sysroot: gets packages of an architecture and unpacks them into a folder, with
# package lists of its own: the system's package state is not touched. $root is the repository's folder.
# $apart_sources: apt's list of archives; empty: the system's.

apart_sources=

# Runs apt-get or apt-cache for $architecture alone.
apt_apart() {
    command=$1
    shift
    if [ -n "$apart_sources" ]; then
        set -- -o Dir::Etc::SourceList="$apart_sources" -o Dir::Etc::SourceParts=/dev/null "$@"
    fi
    "$command" -qq -o APT::Architecture="$architecture" -o APT::Architectures="$architecture" \
        -o Dir::State::status=/dev/null -o Dir::State::Lists="$root/build/apt/lists" \
        -o Dir::Cache="$root/build/apt/cache" -o APT::Sandbox::User=root "$@"
}

# Gets the package lists of an architecture for apt_apart.
update_apart() {
    architecture=$1
    rm -rf build/apt
    mkdir -p build/apt/lists/partial build/apt/cache/archives/partial build/apt/packages
    apt_apart apt-get update 2>build/apt/update.log ||
        say "not every package list for $architecture could be updated; going on"
}

# Downloads packages and unpacks them into a folder. Its file .unpacked names those that are in it whole.
unpack_apart() {
    folder=$1
    shift
    if ! (cd build/apt/packages && apt_apart apt-get download "$@"); then
        cat build/apt/update.log >&2
        return 1
    fi
    mkdir -p "$folder"
    for package in build/apt/packages/*.deb; do dpkg-deb -x "$package" "$folder" || return 1; done
    printf '%s\n' "$@" >>"$folder/.unpacked"
    rm -rf build/apt
}
