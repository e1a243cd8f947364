# Sourced by the other scripts: where they run and what they share.
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
# Real stereo data for further tests, where it lies beside the checkout.
if [ -z "${KOVA_TEST_DATA:-}" ] && [ -d "$root/../shared/data" ]; then
    KOVA_TEST_DATA=$(cd "$root/../shared/data" && pwd)
    export KOVA_TEST_DATA
fi

# Configures a preset once; Ninja notices later changes by itself.
configure() {
    [ -f "build/$1/build.ninja" ] || cmake --preset "$1" "${@:2}"
}

# build PRESET [TARGET ...]
build() {
    local preset=$1
    shift
    configure "$preset"
    cmake --build --preset "$preset" ${1:+--target "$@"}
}

# Says how long a step took: step "NAME" COMMAND [ARGUMENT ...]. Status 77 of the command means that
# the step cannot be done here and was skipped; that is no failure.
step() {
    local name=$1 begin=$SECONDS status=0 how=
    shift
    echo "=== $name"
    "$@" || status=$?
    case $status in
        0) ;;
        77) how=", SKIPPED" status=0 ;;
        *) how=", FAILED ($status)" ;;
    esac
    echo "=== $name: $((SECONDS - begin)) s$how"
    return $status
}
