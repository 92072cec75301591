// A test that ends its process has not passed, whatever status the process ends with: exit(0) in the product would look
// like success. Only a run of all the tests that were asked for may end this process.
#include <gtest/gtest.h>

#include <cstdlib>
#include <unistd.h>

namespace {

class whole_run : public testing::Environment {
public:
    whole_run() {
        std::atexit([] {
            if (!is_over && getpid() == tests) { // death tests end in processes of their own
                _exit(3);
            }
        });
    }
    void TearDown() override { is_over = true; }

private:
    static inline bool is_over = false;
    static inline const pid_t tests = getpid();
};

const testing::Environment* const run = testing::AddGlobalTestEnvironment(new whole_run);

} // namespace
