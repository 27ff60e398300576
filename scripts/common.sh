# Shared by run.sh and test.sh: the packages of the build and a configure-and-build step.
BUILD_PACKAGES=(cmake make g++ pkg-config libjsoncpp-dev libboost-dev libgtest-dev)
TEST_PACKAGES=()

# build DIR [cmake options...]: configures once, then builds incrementally.
build() {
    local dir=$1
    shift
    if [ ! -f "$dir/CMakeCache.txt" ]; then
        cmake -S "$ROOT" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
    fi
    cmake --build "$dir" -j "$(nproc)" -- --no-print-directory >/dev/null
}
