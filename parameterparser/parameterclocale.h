// SPDX-License-Identifier: Apache-2.0
// ParameterCLocaleScope: number text read and written as in the C locale, whatever the host's.
#pragma once

#include <locale.h>

/// While it lives, the calling thread formats and parses numbers in the C locale ("1.5", never
/// "1,5"), whatever locale the host process has set; the thread's previous locale comes back at
/// its end. Other threads are not touched. Where the C locale cannot be had, nothing changes.
class ParameterCLocaleScope
{
public:
    ParameterCLocaleScope();
    ~ParameterCLocaleScope();

    ParameterCLocaleScope(ParameterCLocaleScope const&) = delete;
    ParameterCLocaleScope& operator=(ParameterCLocaleScope const&) = delete;
    ParameterCLocaleScope(ParameterCLocaleScope&&) = delete;
    ParameterCLocaleScope& operator=(ParameterCLocaleScope&&) = delete;

private:
    locale_t m_previous = static_cast<locale_t>(nullptr);
};
