#!/bin/sh
# Follows a page of docs/ in an empty folder, with nothing but an installation in $flashlib: runs its commands, compares
# what they print where the page shows it, and writes its files. guide.sh PAGE BUILD: BUILD is what is installed.
set -eu
page=$1
build=$2
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# What the page needs, which not every machine has: <!-- needs PROGRAM -->.
for program in $(sed -n 's/^<!-- needs \(.*\) -->$/\1/p' "$page"); do
    command -v "$program" >/dev/null || { echo "skipped: there is no $program; script/bootstrap installs it"; exit 77; }
done

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

export flashlib=$folder/flashlib PATH="$folder/flashlib/bin:$PATH" CMAKE_GENERATOR=Ninja
cmake --install "$build" --prefix "$flashlib" >/dev/null
mkdir "$folder/empty"
cd "$folder/empty"
. "$folder/steps"
