#include "shapes.h"

#include <cstdlib>

shape::shape(int sides) : sides_(sides) {}

shape::~shape() {
    sides_ = 0;
}

int shape::corners() const {
    if (sides_ < 0) {
        std::abort(); // splits the function into a usual and a cold part
    }
    return sides_;
}

namespace {

NOINLINE int mixed(int a, int b) { // becomes a clone for its constant argument
    volatile int sum = a;
    sum = sum + b;
    return sum;
}

} // namespace

static NOINLINE int helper(int a) { // another file has one of this name
    return mixed(a, 7);
}

int work_elsewhere(int amount) {
    int sum = 0;
    for (int i = 0; i < amount; ++i) {
        sum += helper(i) + mixed(i, 7);
    }
    return sum;
}
