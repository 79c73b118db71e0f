# Sourced by the commands: installs what is needed, chooses the preset and builds it. Sets $preset.
# With bench=ON the measurements are built too.
# REQUIRE_32BIT=1 makes a machine that can't build the 32-bit product an error.

preset=${1:-release}
bench=${bench:-OFF}
status=0
if [ "$bench" = ON ]; then script/bootstrap --bench || status=$?
else script/bootstrap || status=$?; fi
if [ "$status" = 3 ] && [ "$preset" != native ]; then
    [ "${REQUIRE_32BIT:-0}" = 1 ] && { echo "The 32-bit product can't be built here." >&2; exit 1; }
    cat >&2 <<'TEXT'

  **********************************************************************
  *  NOT THE PRODUCT: no 32-bit toolchain can be had on this machine.  *
  *  Going on with the preset 'native', the same sources in 64 bits.   *
  **********************************************************************

TEXT
    preset=native
elif [ "$status" != 0 ] && [ "$status" != 3 ]; then
    exit "$status"
fi
[ "$preset" != oldhost ] || script/sysroot

echo "building: preset $preset in build/$preset"
cmake --preset "$preset" -DFLASHLIB_BENCH="$bench" >build/configure.log || { cat build/configure.log >&2; exit 1; }
cmake --build --preset "$preset" >build/build.log || { cat build/build.log >&2; exit 1; }
