// A small program for the tests of the companions: what linkers and profilers find hard, in three sources.
#pragma once

#define NOINLINE __attribute__((noinline))

class shape {
public:
    NOINLINE explicit shape(int sides); // its two variants share a section
    NOINLINE virtual ~shape();
    NOINLINE virtual int corners() const;

private:
    int sides_;
};

template <typename T>
NOINLINE T twice(T value) {
    return value + value;
}

int work_elsewhere(int amount);
int recursive(int depth);
