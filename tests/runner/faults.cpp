// SPDX-License-Identifier: LGPL-2.1-or-later
// Tests that go wrong in every way: faults.cmake says what the runner has to make of them.
#include <csignal>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>
#include <thread>

namespace {

int state;
int *memory;

void wait_for_ever()
{
    for (;;)
        pause();
}

TEST(Alone, First)
{
    EXPECT_EQ(++state, 1);
}

TEST(Alone, Second)
{
    EXPECT_EQ(++state, 1);
}

TEST(Fault, Expectation)
{
    EXPECT_EQ(state, 1);
}

TEST(Fault, Exception)
{
    throw state;
}

TEST(Fault, Signal)
{
    raise(SIGKILL);
}

TEST(Fault, Abortion)
{
    std::abort();
}

TEST(Fault, EndOfProcess)
{
    std::exit(0);
}

TEST(Fault, SuddenEndOfProcess)
{
    _exit(0);
}

TEST(Fault, StatusAfterItsEnd)
{
    std::atexit([] { _exit(9); });
}

TEST(Fault, Hanging)
{
    if (fork() == 0)
        wait_for_ever();
    wait_for_ever();
}

TEST(Sanitizer, Leak)
{
    memory = new int[100];
    memory = nullptr;
}

TEST(Sanitizer, Overflow)
{
    volatile char *bytes = new char[8];
    bytes[8] = 1;
    delete[] bytes;
}

TEST(Sanitizer, Race)
{
    std::thread one{[] { state = 1; }};
    std::thread other{[] { state = 2; }};
    one.join();
    other.join();
}

TEST(Other, Skipped)
{
    GTEST_SKIP() << "for a reason";
}

TEST(Other, DISABLED_Never)
{
    FAIL();
}

TEST(Death, Expected)
{
    EXPECT_DEATH(std::abort(), "");
}

TEST(Death, ExpectedOfAFreshProcess)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(std::exit(4), testing::ExitedWithCode(4), "");
}

TEST(Death, DoesNotComeAbout)
{
    EXPECT_DEATH(state = 1, "");
}

struct BadSuite : testing::Test {
    static void SetUpTestSuite() { FAIL(); }
};

TEST_F(BadSuite, IsNotSetUp) {}

struct Parameters : testing::TestWithParam<std::string> {};

TEST_P(Parameters, AreToldApart)
{
    EXPECT_NE(GetParam(), "b c");
}

INSTANTIATE_TEST_SUITE_P(Some, Parameters, testing::Values("a\n  x", "b c"));

} // namespace
