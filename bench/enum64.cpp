// Times Router6Prefix::EnumPrefix64 over a /0 and counts the heap it holds at its peak:
//   enum64 [RUNS]
// prints the median and the slowest call and the peak of live heap bytes during one call.
#include "tarnnetwork.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <vector>

namespace {

size_t live = 0;
size_t peak = 0;
bool counting = false;

}  // namespace

// Every allocation carries its size in front of it, so that the live total can be kept.
void* operator new(size_t size) {
    auto* block = static_cast<size_t*>(std::malloc(size + sizeof(std::max_align_t)));
    if (block == nullptr) throw std::bad_alloc();
    *block = size;
    if (counting) peak = std::max(peak, live += size);
    return reinterpret_cast<char*>(block) + sizeof(std::max_align_t);
}

void operator delete(void* p) noexcept {
    if (p == nullptr) return;
    auto* block = reinterpret_cast<size_t*>(static_cast<char*>(p) - sizeof(std::max_align_t));
    if (counting) live -= std::min(live, *block);
    std::free(block);
}

void operator delete(void* p, size_t) noexcept { operator delete(p); }

int main(int argc, char** argv) {
    int runs = argc > 1 ? std::atoi(argv[1]) : 1000;
    if (runs <= 0) {
        std::fprintf(stderr, "enum64: RUNS must be a positive number\n");
        return 255;
    }
    counting = true;
    size_t count = tarn::network::ipv6::router::Router6Prefix::EnumPrefix64("2001:db8::", 0).size();
    counting = false;
    std::vector<double> ms;
    for (int i = 0; i < runs; ++i) {
        auto start = std::chrono::steady_clock::now();
        auto prefixes = tarn::network::ipv6::router::Router6Prefix::EnumPrefix64("2001:db8::", 0);
        ms.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
    std::sort(ms.begin(), ms.end());
    std::printf("EnumPrefix64 /0: %zu prefixes, median %.3f ms, slowest %.3f ms over %d calls, peak heap %.1f KiB\n", count,
                ms[ms.size() / 2], ms.back(), runs, peak / 1024.0);
    return 0;
}
