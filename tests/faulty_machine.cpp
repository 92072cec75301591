// A library to preload into the tool (LD_PRELOAD), which makes the machine fail where a test says so:
//
//   FAIL_READ=N     from the Nth byte of input on, reading fails with EIO
//   LATE_INPUT=1    after the end of its input a file has more, as a terminal has
//   FAIL_MALLOC=N   the Nth allocation of the process gets no memory
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <unistd.h>

namespace {

long setting(const char* name) {
    const char* const text = std::getenv(name);
    return text == nullptr ? 0 : std::atol(text);
}

} // namespace

extern "C" void* __libc_malloc(std::size_t size); // NOLINT: the C library's own name

extern "C" void* malloc(std::size_t size) noexcept {
    static long calls = 0;
    if (++calls == setting("FAIL_MALLOC")) {
        errno = ENOMEM;
        return nullptr;
    }
    return __libc_malloc(size);
}

extern "C" ssize_t read(int file, void* buffer, std::size_t size) {
    static const auto real_read = reinterpret_cast<ssize_t (*)(int, void*, std::size_t)>(dlsym(RTLD_NEXT, "read"));
    static ssize_t taken = 0;
    static bool ended = false;
    constexpr char late[] = "late,input,9\n";
    if (const ssize_t limit = setting("FAIL_READ"); limit != 0) {
        if (taken >= limit) {
            errno = EIO;
            return -1;
        }
        size = std::min(size, static_cast<std::size_t>(limit - taken));
    }
    if (ended && setting("LATE_INPUT") != 0) {
        ended = false;
        std::memcpy(buffer, late, sizeof late - 1);
        return sizeof late - 1;
    }
    const ssize_t count = real_read(file, buffer, size);
    ended = count == 0;
    taken += std::max<ssize_t>(count, 0);
    return count;
}
