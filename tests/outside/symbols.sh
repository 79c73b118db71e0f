#!/bin/sh
# Reads the library's dynamic symbols: it must load on old hosts, and need nothing but the C and C++ run-time, the
# closed libraries and g_InstallLocalDir. The versions hold for the 32-bit product; sanitizers bring their own.
# symbols.sh --hosts BUILD PRESET: prints what each binary that a build ships needs of the host, and fails where that is
# newer than hosts.txt says. Exit status 77: the list is not for what this machine builds.
set -eu

# The newest version of a kind (GLIBC) that a binary needs; "-": none.
newest() {
    version=$(readelf -VW "$1" | grep -oE "\b$2_[0-9.]+" | sort -u | sort -V | tail -n 1)
    echo "${version:--}"
}

# Compares what the binaries need with the list.
check_hosts() {
    list=$(dirname "$0")/hosts.txt
    [ "$2" != release ] || [ "$(getconf GNU_LIBC_VERSION)" = "glibc 2.36" ] || exit 77  # not Debian 12
    installed=$(mktemp -d)
    trap 'rm -rf "$installed"' EXIT
    cmake --install "$1" --prefix "$installed" >/dev/null
    find "$installed" -type f ! -name '*.a' | sort | while read -r binary; do
        [ "$(head -c 4 "$binary" | od -An -c | tr -d ' ')" = '177ELF' ] || continue
        name=${binary#"$installed"/}
        needs="$(newest "$binary" GLIBC) $(newest "$binary" GLIBCXX)"
        printf '%-60s %s\n' "$name" "$needs"
        limit=$(sed -n "s,^$2  *$name  *,,p" "$list" | tr -s ' ')
        [ -n "$limit" ] || { echo "$list does not say what $name needs." >&2; exit 1; }
        for i in 1 2; do
            need=$(echo "$needs" | cut -d ' ' -f $i)
            most=$(echo "$limit" | cut -d ' ' -f $i)
            [ "$(printf '%s\n%s\n' "$need" "$most" | sort -V | tail -n 1)" = "$most" ] && continue
            echo "$name needs a newer host than before: $need, not $most." >&2
            exit 1
        done
    done
}
if [ "$1" = --hosts ]; then
    check_hosts "$2" "$3"
    exit
fi

library=$1
symbols=$(readelf --dyn-syms -W "$library" | awk '$7 == "UND" && $8 != "" { print $5, $8 }')
case "$symbols" in *__asan_init*) exit 77 ;; esac
fail() { echo "$*" >&2; exit 1; }

# Names without a version come from no system library.
unknown=$(echo "$symbols" | awk '$2 !~ /@/ && $1 != "WEAK" { print $2 }' | grep -vxE \
    'g_InstallLocalDir|cruFd|(OpenCru|InitFlashTable)Driver|(Select|Query|Read|Write|Execute)FlashTable|ReadFlashHeader|CorruptNVRAM|ZalCi(Initialize|Create|Send|Recv|Close|StatusMessage)|_ZN1[13]CZalXML(Node|Reader).*' || true)
[ -z "$unknown" ] || fail "undefined and from nowhere: $unknown"

needed=$(readelf -dW "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | grep -vxE 'libstdc\+\+\.so\.6|libgcc_s\.so\.1|libm\.so\.6|libc\.so\.6' || true)
[ -z "$needed" ] || fail "needs more than the run-time: $needed"

readelf -dW "$library" | grep -q 'SONAME.*\[libflash\.so\.1\]' || fail "no SONAME"
readelf -dW "$library" | grep -q TEXTREL && fail "text relocations"
readelf -dW "$library" | grep -q 'FLAGS.*NOW' || fail "not bound at load"
readelf -lW "$library" | grep -q GNU_RELRO || fail "no relro"
readelf -lW "$library" | grep 'GNU_STACK' | grep -q 'RWE' && fail "executable stack"

readelf -h "$library" | grep -q ELF32 || exit 0
readelf -VW "$library" | grep -oE '(GLIBC|GLIBCXX|CXXABI)_[0-9.]+' | sort -u | while read -r version; do
    case "$version" in
        GLIBC_*) limit=GLIBC_2.12 ;;
        GLIBCXX_*) limit=GLIBCXX_3.4.11 ;;
        *) limit=CXXABI_1.3 ;;
    esac
    newest=$(printf '%s\n%s\n' "$version" "$limit" | sort -V | tail -n 1)
    [ "$newest" = "$limit" ] || fail "needs $version, newer than $limit"
done
