#include "shapes.h"

#include <cstdio>
#include <cstdlib>

static NOINLINE int helper(int a) {
    return a * 3 + twice(a);
}

static int by_value(const void* a, const void* b) { // only the C library calls it
    return *static_cast<const int*>(a) - *static_cast<const int*>(b);
}

__attribute__((constructor)) static void set_up() { // so with this one
    std::puts("set up");
}

NOINLINE int recursive(int depth) {
    return depth < 2 ? depth : recursive(depth - 1) + recursive(depth - 2);
}

int main(int argc, char**) {
    int values[] = {5, 3, 9, 1};
    std::qsort(values, 4, sizeof values[0], by_value);
    const shape triangle(3);
    int sum = triangle.corners();
    for (int i = 0; i < 40; ++i) {
        sum += helper(i) + work_elsewhere(argc + i) + static_cast<int>(twice(i * 0.5));
    }
    for (int i = 1; i < argc; ++i) { // as long as there are arguments, for profilers that sample
        for (int j = 0; j < 3000; ++j) {
            sum += recursive(18) & 1;
        }
    }
    std::printf("%d %d\n", values[0], sum + recursive(12));
}
