// The main of every test program: GoogleTest with per-test isolation.
#include <gtest/gtest.h>

#include "support/KivTestEnvironment.h"

namespace {

class IsolationListener : public ::testing::EmptyTestEventListener {
public:
    void OnTestStart(const ::testing::TestInfo&) override { kiv::test::detail::BeginTest(); }
    void OnTestEnd(const ::testing::TestInfo&) override { kiv::test::detail::EndTest(); }
};

}  // namespace

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    ::testing::UnitTest::GetInstance()->listeners().Append(new IsolationListener);
    return RUN_ALL_TESTS();
}
