#!/bin/sh
# Installs a build, moves the tree, and uses it from outside as a component author does: with CMake and with pkg-config,
# on the installed simulated server. Then makes the packages and compares what is in them. At last builds the library
# inside another project, where nothing but a compiler can be found. Argument: the build folder.
set -eu
build=$1
source=$(cd "$(dirname "$0")/../.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
unset LD_LIBRARY_PATH
export QVFLASHLOG="$work/flash.debug.log"
fail() { echo "$*" >&2; exit 1; }
quietly() { "$@" >"$work/log" 2>&1 || { cat "$work/log" >&2; fail "failed: $*"; }; }

quietly cmake --install "$build" --prefix "$work/first"
mkdir "$work/moved"
prefix=$work/moved/flashlib
mv "$work/first" "$prefix"
! grep -rlF -e "$source" -e "$build" -e "$work" "$prefix" || fail "these tell a path of the machine that built them"

# Runs the programs that were built in a folder; the component's package is in package/ there.
run_from() {
    cp -r "$prefix/share/flashlib/servers/rack" "$1/server"
    on_server="$prefix/bin/zalsim --server $1/server"
    product=$($on_server -- "$1/product")
    grep -qF "\"product\": \"$product\"" "$1/server/server.json" || fail "the product is: $product"
    quietly $on_server -- "$1/package/devicefw" /y "$1/package"
    $on_server --describe | grep -q 'TMBR *1\.3\.2' || fail "the component installed nothing"
}

outside=$work/outside
cp -r "$source/tests/outside/package" "$outside"
cp -r "$prefix/share/flashlib/components" "$outside/"

quietly minisign -G -W -s "$outside/author.key" -p "$outside/author.pub"
quietly cmake -G Ninja -S "$outside" -B "$outside/cmake" -DCMAKE_PREFIX_PATH="$prefix" \
    -DFLASHLIB_SIGNING_KEY="$outside/author.key"
quietly cmake --build "$outside/cmake"
mv "$outside/cmake/packages/devicefw" "$outside/cmake/package"
run_from "$outside/cmake"

export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
libraries=$(pkg-config --variable=libdir flashlib)
mkdir "$outside/pkgconfig" "$outside/headers"
cp -r "$prefix/lib/flashlib/packages/devicefw" "$outside/pkgconfig/package"
quietly $CXX -o "$outside/pkgconfig/package/devicefw" "$outside"/components/devicefw/*.cpp -Wl,-rpath,"$libraries" \
    $(pkg-config --cflags --libs flashlib-host)
quietly $CXX -c -o "$outside/product.o" "$outside/product.cpp" $(pkg-config --cflags flashlib)
quietly $CXX -o "$outside/pkgconfig/product" "$outside/product.o" -Wl,-rpath,"$libraries" $(pkg-config --libs flashlib)
run_from "$outside/pkgconfig"

# Each header stands on its own.
(cd "$prefix/include/flashlib" && find . -name '*.h') | while read -r header; do
    echo "#include \"${header#./}\"" >"$outside/headers/$(echo "${header#./}" | tr / -).cpp"
done
quietly $CXX -std=c++17 -fsyntax-only -Wall -Wextra -Werror $(pkg-config --cflags flashlib) "$outside"/headers/*.cpp

rule=$("$prefix/bin/zalrule" --server "$outside/cmake/server" 'CPLD(1) == 4')
[ "$rule" = "1 (0x00000001)" ] || fail "the rule is: $rule"
quietly minisign -V -p "$outside/author.pub" -m "$outside/cmake/package/MANIFEST"
quietly "$prefix/bin/zaldeploy" verify --server "$outside/cmake/server" --trust "$outside/author.pub" \
    "$outside/cmake/package"
"$prefix/bin/zaldeploy" inventory --server "$outside/cmake/server" | grep -q 'Tamberline controller *1\.3\.2' ||
    fail "zaldeploy does not see what was installed"

# The packages hold that tree.
quietly cpack --config "$build/CPackConfig.cmake" -B "$work/packages"
(cd "$prefix" && find . ! -type d) | sort >"$work/installed"
tar -tzf "$work"/packages/*.tar.gz | grep -v '/$' | sed 's,^[^/]*/,./,' | sort | diff "$work/installed" - ||
    fail "the .tar.gz holds something else"
ar p "$work"/packages/*.deb data.tar.gz | tar -tz | grep -v '/$' | sed 's,^\./usr/,./,' | sort |
    diff "$work/installed" - || fail "the .deb holds something else"
mode=OFF
case "$(readelf -h "$prefix/lib/libflash.so.1")" in
    *ELF32*)
        mode=ON
        ar p "$work"/packages/*.deb control.tar.gz | tar -xzO ./control | grep -qx 'Architecture: i386' ||
            fail "the .deb is for another architecture"
        if command -v lintian >/dev/null; then
            lintian --allow-root --show-overrides "$work"/packages/*.deb >"$work/lintian" 2>&1 || true
            ! grep '^E:' "$work/lintian" >&2 || fail "lintian finds errors in the .deb"
            [ "$(grep '^O:' "$work/lintian")" = "O: flashlib: embedded-library expat [usr/lib/libzalxml.so]" ] ||
                fail "lintian's overrides are: $(cat "$work/lintian")"
        fi
        ;;
esac
for program in "$prefix"/bin/*; do
    [ -s "$prefix/share/man/man1/${program##*/}.1.gz" ] || fail "${program##*/} has no manual page"
done

# In a system of its own the .deb is installed, upgraded and removed, and leaves alone what was made meanwhile.
root=$work/root
dpkg_there() {
    quietly dpkg --root="$root" --log="$work/dpkg.log" --force-not-root --force-bad-path --force-depends \
        --force-architecture "$@"
}
made() { (cd "$root" && find etc var/lib/flashlib ! -type d -exec cksum {} +); }
mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates" "$root/etc/flashlib/trusted.d"
: >"$root/var/lib/dpkg/status"
dpkg_there --install "$work"/packages/*.deb
cp "$outside/author.pub" "$root/etc/flashlib/trusted.d/"
mkdir -p "$root/var/lib/flashlib/backup"
cp "$outside/cmake/server/vrl.bin" "$root/var/lib/flashlib/backup/P70_2.30.bin"
made >"$work/made"
dpkg_there --install "$work"/packages/*.deb
dpkg_there --purge flashlib
[ ! -e "$root/usr" ] || fail "dpkg leaves $(find "$root/usr")"
made | diff "$work/made" - || fail "dpkg takes away what is not the package's"

# The library alone, inside another project.
parent=$work/parent
cp -r "$source/tests/outside/parent" "$parent"
cp "$outside/product.cpp" "$parent/"
mkdir "$parent/bin"
for tool in ar as ld ninja ranlib ${CMAKE_CXX_COMPILER_LAUNCHER:-}; do ln -s "$(command -v $tool)" "$parent/bin/"; done
cmake=$(command -v cmake)
quietly env PATH="$parent/bin" "$cmake" -G Ninja -S "$parent" -B "$parent/build" \
    -DFETCHCONTENT_SOURCE_DIR_FLASHLIB="$source" \
    -DFLASHLIB_32BIT=$mode -DCMAKE_FIND_USE_CMAKE_SYSTEM_PATH=OFF -DZALXML_LIBRARY="$prefix/lib/libzalxml.so" \
    -DZALFTBL_LIBRARY="$prefix/lib/libzalftbl.so" -DZALCI_LIBRARY="$prefix/lib/libzalci.so"
quietly env PATH="$parent/bin" "$cmake" --build "$parent/build"
[ "$($on_server -- "$parent/build/product")" = "$product" ] || fail "the program of another project fails"
