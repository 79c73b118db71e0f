#!/bin/sh
# Follows a page of docs/ in a copy of the tree: runs its commands, compares what they print where the page shows it, and
# writes its files. guide.sh TREE BUILD PAGE: the library, the simulated server and the packages are the ones in BUILD.
set -eu
tree=$1
build=$2
page=$tree/docs/$3
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# What stands in the page: ```console is commands behind $ with their output, where ... is any number of lines;
# ```LANGUAGE FILE is the file's contents, or more of them.
awk -v end=__END_OF_BLOCK__ '
    /^```/ && !block { block = 1; console = /console/; if ($2) print (seen[$2]++ ? "more" : "file"), $2, "<<\"" end "\""; text = $2; next }
    /^```/ { if (open || text) print end; block = open = 0; next }
    block && console && /^\$ / { if (open) print end; open = 1; print "run <<\"" end "\""; sub(/^\$ /, "") }
    block && (console || text)' "$page" >"$folder/steps"
[ "$(grep -c '^run' "$folder/steps")" -ge 5 ] || { echo "The page has hardly a command." >&2; exit 1; }

file() { cat >"$1"; }
more() { cat >>"$1"; }

# Runs the command in the first line; what the others show must be what it prints, its exit status included.
run() {
    read -r command
    cat >"$folder/expected"
    status=0
    eval "$command" </dev/null >"$folder/output" 2>&1 || status=$?
    [ "$status" = 0 ] || echo "[exit status $status]" >>"$folder/output"
    if [ -s "$folder/expected" ]; then
        awk -v shown="$folder/expected" '
            { line[NR] = $0 }
            END {
                for (i = 1; (getline want <shown) > 0; i++) {
                    any = want == "..."
                    if (any && (getline want <shown) <= 0) exit 0
                    while (any && i <= NR && line[i] != want) i++
                    if (i > NR || line[i] != want) exit 1
                }
                exit i != NR + 1
            }' "$folder/output" && return
    elif [ "$status" = 0 ]; then
        return
    fi
    echo "The page says: \$ $command" >&2
    diff -u "$folder/expected" "$folder/output" >&2
    exit 1
}

copy=$folder/tree
mkdir -p "$copy/build/release"
tar -C "$tree" --exclude=./build --exclude=./.git -cf - . | tar -C "$copy" -xf -
[ ! -e "$tree/build/sysroot-i386" ] || ln -s "$tree/build/sysroot-i386" "$copy/build/"
ln -s "$build/sim" "$build/tools" "$copy/build/release/"
cp -r "$build/packages" "$copy/build/release/"
sed -i -e "s|^add_subdirectory(FlashLib)|include(\"$build/built.cmake\")|" \
    -e '/add_subdirectory(\(platform\|support\|sim\|tools\|tests\))/d' -e '/install.cmake/d' \
    "$copy/CMakeLists.txt"
cd "$copy"
. "$folder/steps"
