// A test that ends its process has not passed, whatever status the process ends with: exit(0) in the product would look
// like success.
#include <gtest/gtest.h>

#include <cstdlib>
#include <unistd.h>

const bool is_watched = [] {
    static const testing::UnitTest& run = *testing::UnitTest::GetInstance();
    static const pid_t tests = getpid(); // death tests end in processes of their own
    return std::atexit([] {
               if (run.current_test_info() != nullptr && getpid() == tests) {
                   _exit(3);
               }
           }) == 0;
}();
