// The program of the samples: an order of its functions takes from here, from the static and from no shared library.
#include <cstdio>

extern "C" int part_work(int);
extern "C" int shared_work(int);

static int never(int a) {
    return part_work(a) - 7;
}
static int last(int a) {
    return a * 7;
}
static int often(int a) {
    return part_work(a) + last(a);
}

int main(int argc, char**) {
    int sum = argc > 9 ? never(argc) : shared_work(20);
    for (int i = 0; i < 100; ++i) {
        sum += often(i);
    }
    std::printf("%d\n", sum);
}
