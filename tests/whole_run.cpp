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
            if (is_under_way && getpid() == tests) { // death tests end in processes of their own
                _exit(3);
            }
        });
    }
    void SetUp() override { is_under_way = true; }
    void TearDown() override { is_under_way = false; }

private:
    static inline bool is_under_way = false;
    static inline const pid_t tests = getpid();
};

const testing::Environment* const run = testing::AddGlobalTestEnvironment(new whole_run);

} // namespace
