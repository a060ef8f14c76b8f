// SPDX-License-Identifier: Apache-2.0
// Runs a test program under the locale that PARAM_TEST_LOCALE names (a comma-decimal one, say),
// so that the suites show that no number text depends on the host process's locale.
#include <clocale>
#include <cstdio>
#include <cstdlib>

#include <gtest/gtest.h>

namespace {

class LocaleEnvironment : public ::testing::Environment
{
public:
    explicit LocaleEnvironment(char const* name) : m_name(name) {}

    void SetUp() override
    {
        if (std::setlocale(LC_ALL, m_name) == nullptr)
            GTEST_SKIP() << "locale " << m_name
                         << " is not installed on this host: no test ran under it";
        // A locale that writes numbers as the C locale does would prove nothing.
        char text[16];
        std::snprintf(text, sizeof(text), "%.1f", 1.5);
        ASSERT_STREQ(text, "1,5") << "locale " << m_name << " does not write a decimal comma";
    }

private:
    char const* m_name;
};

// Registered while the program starts, before the test runner's main initialises the tests.
::testing::Environment* const g_localeEnvironment =
    std::getenv("PARAM_TEST_LOCALE") != nullptr
        ? ::testing::AddGlobalTestEnvironment(
              new LocaleEnvironment(std::getenv("PARAM_TEST_LOCALE")))
        : nullptr;

} // namespace
