# Shared by run.sh and test.sh: the packages of the build and a configure-and-build step.
BUILD_PACKAGES=(cmake make g++ pkg-config libjsoncpp-dev libboost-dev libgtest-dev)
TEST_PACKAGES=()

# build DIR [cmake options...]: configures (again, so that options given now take effect over
# an existing build directory), then builds incrementally.
build() {
    local dir=$1
    shift
    cmake -S "$ROOT" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
    cmake --build "$dir" -j "$(nproc)" -- --no-print-directory >/dev/null
}
